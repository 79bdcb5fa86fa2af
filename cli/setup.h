// The interactive first-run dialogue, the only command that reads standard input.
#pragma once

#include <string>

namespace velun {

/// Asks `label` on standard output with the default in brackets and reads one line from standard
/// input. Returns the line untouched, or `fallback` for an empty line or the end of input.
std::string prompt_value(const std::string& label, const std::string& fallback);

/// Asks for the mode and the detection source, offering the current values, and writes the config
/// file. The daemon is not touched. Returns 0, also when the file could not be written; throws
/// std::filesystem::filesystem_error when its directory cannot be created.
int run_setup();

}  // namespace velun
