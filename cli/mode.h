// `velun mode`.
#pragma once

#include <string>

#include "config/config.h"

namespace velun {

/// Saves `word` as the new mode, then starts or restarts the daemon for "watch" and "protect" and
/// stops it for "off". Returns 2 for a word that is not a mode, before anything is written; else 0
/// or the status of the stop or the start. The file stays written if those fail. Throws
/// std::filesystem::filesystem_error if a directory cannot be created.
int change_mode(Config config, const std::string& word, const std::string& argument_zero);

}  // namespace velun
