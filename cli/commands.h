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

/// Runs the command that the invocation names and returns the exit status. The configuration is
/// loaded before an unknown word is reported, so that a machine without one hears of that first.
int run_command(const Invocation& invocation);

}  // namespace velun
