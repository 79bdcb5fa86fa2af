// Starting, stopping and restarting the daemon. velun signals a process only if the pid file
// records it and a daemon answers on the control port, and it never sends SIGKILL. The pid file is
// the only record of the daemon: if the pid was reused while another daemon answers, the new
// process gets the signal.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "config/config.h"

namespace velun {

/// The process id in the text of a pid file: a decimal number after optional white space and an
/// optional sign; the rest is ignored. Returns nothing if there is no number, if it does not fit a
/// pid, or if it is zero or negative: a signal to those would reach whole groups.
std::optional<pid_t> recorded_pid(const std::string& text);

/// Starts the daemon in a session of its own, records its pid and waits about five seconds for the
/// control port, or about half a minute if a listener accepts connections but never answers. Starts
/// nothing if the mode is off or a daemon already answers. Returns the exit status: 0 if a daemon
/// answers afterwards or the mode is off, else 1. Throws std::filesystem::filesystem_error if the
/// state directory cannot be created. `argument_zero` is velun's own, see `find_daemon_program`.
int start_daemon(const Config& config, const std::string& argument_zero);

/// Sends SIGTERM to the recorded daemon and waits up to about five seconds for it to end. Returns
/// the exit status: 0 if no daemon of ours runs afterwards; 1, with a message on standard error, if
/// it may still run or another process was left alone.
int stop_daemon(const Config& config);

/// Stops the daemon and, if that returned 0, starts it. Returns the exit status of the last step;
/// throws like `start_daemon`.
int restart_daemon(const Config& config, const std::string& argument_zero);

}  // namespace velun
