// Loading and saving the config file. A load reports all problems at once; a save writes the whole
// file anew.
#pragma once

#include "config/config.h"

namespace velun {

/// Loads the file at `config_path` into `config` and returns whether it is valid. If it cannot be
/// read, `config` is left alone, and `verbose` reports that on standard error. If it has problems,
/// all of them are reported on standard error, and every field is replaced: by the file's value
/// where the key is valid, by the default otherwise.
bool load_config(Config& config, bool verbose);

/// Writes the rendering to `config_path`, creating its parent directories, and prints "wrote " and
/// the path. Throws std::filesystem::filesystem_error if a directory cannot be created. A failed
/// write is not reported.
void save_config(const Config& config);

}  // namespace velun
