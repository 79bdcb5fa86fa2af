// The two ways in which the config file is touched: read whole with everything that is wrong with
// it reported at once, and written whole from a record.
#pragma once

#include "config/config.h"

namespace velun {

/// Loads the file at `config_path` into `config`. False when the file cannot be read, which leaves
/// `config` alone and is reported on standard error if `verbose`. False, too, when it has problems,
/// which are always reported together on standard error. A file that can be read replaces every
/// field: with its value where the key is valid, with the default where it is invalid or absent.
bool load_config(Config& config, bool verbose);

/// Writes the rendering to `config_path`, creating its parent directories, and prints "wrote " and
/// the path. Throws std::filesystem::filesystem_error when a directory cannot be created; a file
/// that cannot be written goes unreported.
void save_config(const Config& config);

}  // namespace velun
