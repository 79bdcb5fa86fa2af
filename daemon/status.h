// The report of `velun status`: whether the daemon answers, and its own description.
#pragma once

#include <optional>
#include <string>

#include "config/config.h"

namespace velun {

/// The report for a /v1/status answer `body`; nothing if the body is not a JSON object or a known
/// member has the wrong type. `control_port` appears in the dashboard line.
std::optional<std::string> status_report(const std::string& body, int control_port);

/// Prints the report, or that the daemon is not running. Returns the exit status: 0 for both, 1 if
/// a daemon answers but its status is refused or cannot be read.
int print_status(const Config& config);

}  // namespace velun
