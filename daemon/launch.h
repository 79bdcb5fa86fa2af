// Starts the daemon program `velund` with the flags of the configuration. A daemon that already
// answers is left alone, and one that is slow to answer is never killed.
#pragma once

#include <string>
#include <vector>

#include "config/config.h"

namespace velun {

/// The daemon's command line for `config`, one element per flag and value, program not included.
std::vector<std::string> daemon_argv(const Config& config);

/// The program to execute: the file "velund" beside the tool, when there is one; else the value of
/// the environment variable `VELUND`, even empty; else "velund", left to the search path.
/// `argument_zero` is the tool's own, resolved through symbolic links; a bare name is resolved
/// against the current directory.
std::string find_daemon_program(const std::string& argument_zero);

/// Starts the daemon in a session of its own, records its pid and waits up to about five seconds
/// for the control port. Returns the exit status: 0 when a daemon runs afterwards or the mode is
/// off, 1 otherwise. Throws std::filesystem::filesystem_error when the state directory cannot be
/// created.
int start_daemon(const Config& config, const std::string& argument_zero);

}  // namespace velun
