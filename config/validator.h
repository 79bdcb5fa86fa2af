// Judges what the reader found: checks each key's value and applies the good ones over the
// defaults. It never stops at the first problem, so that a file is reported whole.
#pragma once

#include <string>
#include <string_view>

#include "config/config.h"
#include "config/reader.h"

namespace velun {

/// A default record with every valid value applied. Each bad key appends one problem and keeps its
/// default; a last problem says that `model_dir` and `endpoint_url` exclude each other, both of
/// which stay stored.
Config validate_config(const RawConfig& raw, Problems& problems);

/// The known key nearest to `unknown_key`, at most three byte edits away; the empty text when none
/// is that near. Of equally near keys the one documented first wins.
std::string suggest_key(std::string_view unknown_key);

}  // namespace velun
