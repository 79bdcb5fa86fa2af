// The request that every report makes to the daemon.
#pragma once

#include <optional>
#include <string>

#include "config/config.h"

namespace velun {

/// Probes the daemon, then asks it for `path` with the control token. Returns nothing if no daemon
/// is healthy, and the empty text if the request fails or is refused. Callers must not copy parts
/// of the parsed tree: the body may be nested a hundred thousand levels deep, and a recursive copy
/// would exhaust the stack.
std::optional<std::string> ask_daemon(const Config& config, const std::string& path);

}  // namespace velun
