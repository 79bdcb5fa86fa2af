// The interactive first-run dialogue, the only command that reads standard input.
#pragma once

#include <string>

namespace velun {

/// Prints `label` on standard output, with `fallback` in brackets, and reads one line from standard
/// input. Returns the line unchanged, or `fallback` for an empty line or at the end of input.
std::string prompt_value(const std::string& label, const std::string& fallback);

/// Asks for the mode and the detection source, with the current values as defaults, and writes the
/// config file. The daemon is left as it is. Returns 0, even if the file could not be written;
/// throws std::filesystem::filesystem_error if its directory cannot be created.
int run_setup();

}  // namespace velun
