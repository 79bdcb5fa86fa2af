// `velun stats` and `velun log`: two read-only answers of the running daemon as plain text.
#pragma once

#include <optional>
#include <string>

#include "config/config.h"

namespace velun {

/// The four counters of a /v1/stats answer, one labelled line each; nothing when `body` is not
/// JSON. Throws the JSON library's exception on an answer of an unexpected shape.
std::optional<std::string> stats_report(const std::string& body);

/// One line per request of a /v1/transcript answer, or one that says there are none; nothing when
/// `body` is not JSON. Throws the JSON library's exception on an answer of an unexpected shape.
std::optional<std::string> log_report(const std::string& body);

/// Print the reports. Return the exit status: 0, also if the daemon is not running; 1 if it answers
/// the probe but refuses the request, or if its answer is not JSON. On an answer of an unexpected
/// shape nothing is printed, and the library's exception ends the process.
int print_stats(const Config& config);
int print_log(const Config& config);

}  // namespace velun
