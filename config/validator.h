// Checks the values that the reader found and applies the valid ones over the defaults. It never
// stops at the first problem, so one run reports them all.
#pragma once

#include <string>
#include <string_view>

#include "config/config.h"
#include "config/reader.h"

namespace velun {

/// Returns a default record with every valid value applied. Each invalid key appends one problem
/// and keeps its default. If `model_dir` and `endpoint_url` are both set, a last problem says that
/// they exclude each other, and both stay stored.
Config validate_config(const RawConfig& raw, Problems& problems);

/// The known key nearest to `unknown_key`, at most three byte edits away; the empty text if none is
/// that near. Of equally near keys, the one documented first wins.
std::string suggest_key(std::string_view unknown_key);

}  // namespace velun
