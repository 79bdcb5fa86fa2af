// Stops the daemon that this tool started, and only that one: a process is signalled only when it
// is both recorded in the pid file and backed by an answer on the control port.
#pragma once

#include "config/config.h"

namespace velun {

/// Sends SIGTERM to the recorded daemon and waits up to about five seconds for it to go; SIGKILL is
/// never sent. Returns the exit status: 0 when no daemon of ours runs afterwards, 1 when something
/// was left as it was, after saying on standard error what the user can do.
int stop_daemon(const Config& config);

}  // namespace velun
