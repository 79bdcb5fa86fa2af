// `velun config`: where the configuration is and what is in effect.
#pragma once

#include "config/config.h"

namespace velun {

/// Prints the config file's path and the canonical rendering of `config`. Returns 0.
int show_config(const Config& config);

}  // namespace velun
