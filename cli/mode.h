// `velun mode`.
#pragma once

#include <string>

#include "config/config.h"

namespace velun {

/// Saves `word` as the new mode and brings the daemon in line with it: restarted or started for
/// "watch" and "protect", stopped for "off". Returns 2 for a word that is no mode, before anything
/// is written; else 0 or the status of the stop or start. The file stays written when those fail.
/// Throws std::filesystem::filesystem_error when a directory cannot be created.
int change_mode(Config config, const std::string& word, const std::string& argument_zero);

}  // namespace velun
