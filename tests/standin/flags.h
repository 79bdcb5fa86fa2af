// The stand-in's command line: the flags that velun starts its daemon with, and no others.
#pragma once

#include <map>
#include <string>
#include <vector>

/// What was given: each flag with its value, the empty text for a flag that takes none.
using Flags = std::map<std::string, std::string>;

/// Reads `words`, the command line without the program. Returns the empty text when they are flags
/// of the daemon with values that it takes, else one line that says what is wrong with them.
std::string read_flags(const std::vector<std::string>& words, Flags& flags);
