// `velun model`: lists the bundles, downloads the catalog's model, points the configuration at one.
#pragma once

#include <string>

#include "config/config.h"

namespace velun {

/// Runs the sub-command `word` ("list" or empty, "fetch", "use") with its `argument`. Returns the
/// exit status: 0, 1 if the operation failed, 2 for a wrong command line. Throws
/// std::filesystem::filesystem_error if a directory cannot be created, a download cannot be
/// renamed, or the current directory is gone and a relative path cannot be made absolute.
int run_model_command(const Config& config, const std::string& word, const std::string& argument);

}  // namespace velun
