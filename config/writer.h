// Turns a `Config` into the text of `velun.yaml`. A valid record reads back as the same one, except
// for an `intercept_port` without `intercept_apps` (not written), list items that are empty or hold
// a comma, a bare value that ends in a carriage return (lost with the blanks before it), and lists
// whose bare items hold an apostrophe.
#pragma once

#include <string>

#include "config/config.h"

namespace velun {

/// The whole file in its fixed order of lines; optional keys appear only when they are set.
std::string render_config(const Config& config);

/// The text bare when it is plain enough, else in double quotes with escapes.
std::string quote_value(const std::string& text);

}  // namespace velun
