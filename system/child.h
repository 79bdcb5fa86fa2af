// Running another program, the daemon or curl, in a child process.
#pragma once

#include <string>
#include <vector>

namespace velun {

/// Ignores SIGPIPE from now on: a reader that ends early must not end a command half way, for
/// example between the stop and the start of a restart. Called once, before the first fork.
void ignore_abandoned_output();

/// Replaces the process with the program that the first word names, looked up on the search path if
/// it has no slash. The words are its arguments, argument zero included. The program gets the
/// SIGPIPE disposition that velun was started with. Returns only on failure.
void execute(std::vector<std::string>& words);

}  // namespace velun
