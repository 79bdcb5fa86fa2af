// Turns a `Config` into the text of `velun.yaml`. A valid record reads back as the same one, except
// for an `intercept_port` without `intercept_apps` (not written), list items that are empty or hold
// a comma, a bare value that ends in a carriage return (lost with the blanks before it), and lists
// whose bare items hold an apostrophe.
#pragma once

#include <string>

#include "config/config.h"

namespace velun {

/// The text of the whole file, its lines in a fixed order; optional keys appear only if they are
/// set.
std::string render_config(const Config& config);

/// Returns the text unchanged, or in double quotes with escapes if it is empty or would be read
/// differently. The exceptions above stay bare.
std::string quote_value(const std::string& text);

}  // namespace velun
