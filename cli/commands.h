// The command table and the way from one command line to one handler and one exit status.
#pragma once

#include <string>

#include "config/config.h"

namespace velun {

/// What a handler gets: the words of the command line and the configuration.
struct Invocation {
  std::string argument_zero;  ///< the tool's own path as the process received it
  std::string command;        ///< first word; "help" without one
  std::string argument;       ///< second word or empty
  std::string third;          ///< third word or empty
  Config config;              ///< defaults for the commands that need no configuration
};

/// Runs the command that the invocation names and returns the exit status. The configuration is
/// loaded before the word is looked up, so that a machine without one hears of that first.
int run_command(Invocation& invocation);

}  // namespace velun
