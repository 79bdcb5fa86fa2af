// Running another program, the daemon or curl, in a child process.
#pragma once

#include <string>
#include <vector>

namespace velun {

/// Ignores SIGPIPE from now on: a reader that leaves early must not end a command half way, between
/// the stop and the start of a restart, say. Called once, before the first fork.
void ignore_abandoned_output();

/// Replaces the process with the program that the first word names, looked up on the search path
/// when it holds no slash; the words are its arguments, argument zero included. The program gets
/// back the SIGPIPE disposition that velun was started with. Returns only when that failed.
void execute(std::vector<std::string>& words);

}  // namespace velun
