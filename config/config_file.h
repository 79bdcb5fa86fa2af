// Loading and saving the config file. A load reports all problems at once; a save writes the whole
// file anew.
#pragma once

#include "config/config.h"

namespace velun {

/// Loads the file at `config_path` into `config`. False when the file cannot be read, which leaves
/// `config` alone and is reported on standard error if `verbose`. False, too, when it has problems,
/// which are always reported together on standard error. A file that can be read replaces every
/// field: with its value where the key is valid, with the default where it is invalid or absent.
bool load_config(Config& config, bool verbose);

/// Writes the rendering to `config_path`, creating its parent directories, and prints "wrote " and
/// the path. Throws std::filesystem::filesystem_error if a directory cannot be created. A failed
/// write is not reported.
void save_config(const Config& config);

}  // namespace velun
