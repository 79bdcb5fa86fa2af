// The command table: finds the handler of a command line and runs it.
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

/// Runs the command and returns its exit status. All commands but help and setup need a valid
/// configuration; without one the status is 1, even for an unknown word. With one, an unknown word
/// gives 2. Exceptions of handlers pass through.
int run_command(const Invocation& invocation);

}  // namespace velun
