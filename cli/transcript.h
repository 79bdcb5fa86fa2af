// The text of `velun log`: the daemon's recent requests, one line each.
#pragma once

#include <optional>
#include <string>

namespace velun {

/// One line per request of a /v1/transcript answer, or one that says there are none; nothing when
/// `body` is not JSON. Throws the JSON library's type error on an answer of an unexpected shape.
std::optional<std::string> log_report(const std::string& body);

}  // namespace velun
