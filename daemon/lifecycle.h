// The daemon's life as far as velun has a hand in it. velun means to end only what it started: a
// process is signalled when the pid file records it and a daemon answers on the control port, and
// nothing is ever killed. The pid file is all that one run leaves to the next, so that a recorded
// pid that was given to another process since, while a daemon of other origin answers, gets the
// signal.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "config/config.h"

namespace velun {

/// The process id that a pid file of this text records: one decimal number, behind white space and
/// a sign if there is one, up to the first other character. Nothing when there is none or it does
/// not fit a pid, and for zero and below: signals to those would reach whole groups.
std::optional<pid_t> recorded_pid(const std::string& text);

/// Starts the daemon in a session of its own, records its pid and waits about five seconds for the
/// control port, or up to half a minute while a listener takes connections and stays mute. Returns
/// the exit status: 0 when a daemon answers afterwards or the mode is off, 1 otherwise. Throws
/// std::filesystem::filesystem_error when the state directory cannot be created. `argument_zero` is
/// the tool's own, see `find_daemon_program`.
int start_daemon(const Config& config, const std::string& argument_zero);

/// Sends SIGTERM to the recorded daemon and waits up to about five seconds for it to go; SIGKILL is
/// never sent. Returns the exit status: 0 when no daemon of ours runs afterwards, 1 when one may
/// still run or another was left alone, after saying so on standard error.
int stop_daemon(const Config& config);

/// Stops the daemon and, only when that returned 0, starts it. Returns the exit status of the step
/// that decided; throws like `start_daemon`.
int restart_daemon(const Config& config, const std::string& argument_zero);

}  // namespace velun
