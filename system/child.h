// What a forked child does to become another program, the daemon or curl.
#pragma once

#include <string>
#include <vector>

namespace velun {

/// Replaces the process with the program that the first word names, looked up on the search path
/// when it holds no slash; the words are its arguments, argument zero included. Returns only when
/// that failed.
void execute(std::vector<std::string>& words);

}  // namespace velun
