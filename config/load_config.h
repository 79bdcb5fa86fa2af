// The one way in which the config file is read.
#pragma once

#include "config/config.h"

namespace velun {

/// Loads the file at `config_path` into `config`. False when the file cannot be read, which leaves
/// `config` alone and is reported on standard error only when `verbose`; false, too, when it has
/// problems, which are reported together on standard error while every valid key is applied.
bool load_config(Config& config, bool verbose);

}  // namespace velun
