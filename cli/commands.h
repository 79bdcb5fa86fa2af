// The command table and the way from one command line to one handler and one exit status.
#pragma once

#include <string>

namespace velun {

/// The words of one command line.
struct Invocation {
  std::string argument_zero;  ///< the tool's own path as the process received it
  std::string command;        ///< first word; "help" without one
  std::string argument;       ///< second word or empty
  std::string third;          ///< third word or empty
};

/// Runs the command that the invocation names and returns its exit status; 2 for an unknown word,
/// and 1 before that when the command needs a configuration and there is no valid one, so that a
/// machine without one hears of that first. What a handler throws passes through.
int run_command(const Invocation& invocation);

}  // namespace velun
