// Turns a `Config` into the text of `velun.yaml`. A valid record is read back unchanged, with these
// exceptions: without `intercept_apps`, `intercept_port` is not written; empty list items are
// dropped, and items with a comma are split; a bare value that ends in a carriage return loses it
// and the blanks before it; a list with an apostrophe in a bare item may be refused.
#pragma once

#include <string>

#include "config/config.h"

namespace velun {

/// The text of the whole file, its lines in a fixed order; optional keys appear only if they are
/// set.
std::string render_config(const Config& config);

/// Returns the text unchanged, or in double quotes with escapes if it is empty or might be read
/// differently. The last two exceptions above stay bare.
std::string quote_value(const std::string& text);

}  // namespace velun
