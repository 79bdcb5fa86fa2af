// The report of `velun status`: whether the daemon answers and what it says of itself.
#pragma once

#include <optional>
#include <string>

#include "config/config.h"

namespace velun {

/// The report for a /v1/status answer `body`, or nothing when the body is no JSON object or a
/// member that the report knows has a type that is not converted to the expected one.
/// `control_port` makes the dashboard line.
std::optional<std::string> status_report(const std::string& body, int control_port);

/// Prints the report, or that the daemon is not running. Returns the exit status: 0 for both, 1
/// when a daemon answers but its status cannot be had or read.
int print_status(const Config& config);

}  // namespace velun
