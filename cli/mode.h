// `velun mode` and the restart it shares with `velun restart`.
#pragma once

#include <string>

#include "config/config.h"

namespace velun {

/// Stops the daemon and, only when that returned 0, starts it. Returns the exit status of the step
/// that decided. `argument_zero` is the tool's own, see `start_daemon`.
int restart_daemon(const Config& config, const std::string& argument_zero);

/// Saves `word` as the new mode and brings the daemon in line with it: restarted or started for
/// "watch" and "protect", stopped for "off". Returns 2 for a word that is no mode, before anything
/// is written; else 0 or the status of the stop or start. The file stays written when those fail.
int change_mode(Config config, const std::string& word, const std::string& argument_zero);

}  // namespace velun
