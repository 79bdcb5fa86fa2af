// Asking whether something is there.
#pragma once

#include <string>

namespace velun {

/// True when anything is at the path, links followed. A question that fails, for a name too long or
/// a missing permission, counts as no.
bool path_exists(const std::string& path);

}  // namespace velun
