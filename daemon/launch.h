// Starts the daemon program `velund` with the flags of the configuration. A daemon that already
// answers is left alone, and one that is slow to answer is never killed.
#pragma once

#include <string>

#include "config/config.h"

namespace velun {

/// Starts the daemon in a session of its own, records its pid and waits up to about five seconds
/// for the control port. Returns the exit status: 0 when a daemon runs afterwards or the mode is
/// off, 1 otherwise. Throws std::filesystem::filesystem_error when the state directory cannot be
/// created.
int start_daemon(const Config& config, const std::string& argument_zero);

}  // namespace velun
