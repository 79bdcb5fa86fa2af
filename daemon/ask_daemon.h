// How every report gets its answer from the daemon.
#pragma once

#include <optional>
#include <string>

#include "config/config.h"

namespace velun {

/// What the daemon says at a `path` that wants the token: nothing when no daemon is healthy, which
/// is asked first and without it; the empty text when a healthy one refuses or `control_get` fails
/// otherwise. The body is the daemon's: whoever takes it apart must not copy its parts, for in an
/// answer that is nested a hundred thousand levels deep a copy would exhaust the stack.
std::optional<std::string> ask_daemon(const Config& config, const std::string& path);

}  // namespace velun
