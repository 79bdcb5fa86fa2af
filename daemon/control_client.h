// The only way velun talks to the daemon: plain HTTP/1.1 GET requests to its control API on
// 127.0.0.1, one connection each. Nothing is printed here; callers word every failure themselves.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "config/config.h"

namespace velun {

/// The exact bytes of a request for `path`: request line, Host, and Authorization when `token` is
/// not empty. The token goes in untouched, stray blanks and a carriage return included, so that the
/// daemon judges precisely what its token file holds.
std::string control_request(int port, const std::string& path, const std::string& token);

/// How long one call may take: connect, write and read together.
inline constexpr std::chrono::milliseconds call_limit{2000};

/// Asks the daemon's control API for `path` on 127.0.0.1:`port`.
/// Returns the body of a status-200 answer; the empty text for anything else: another status, no
/// listener, a broken or over-long answer, or none within `limit`. Never throws.
std::string control_get(int port, const std::string& path, const std::string& token,
                        std::chrono::milliseconds limit = call_limit);

/// True when GET /healthz, without a token, is answered with status 200 and a non-empty body.
bool daemon_healthy(int port, std::chrono::milliseconds limit = call_limit);

/// What the daemon says at a `path` that wants the token: nothing when no daemon is healthy, which
/// is asked first and without it; the empty text when a healthy one refuses or `control_get` fails
/// otherwise. The body is the daemon's: whoever takes it apart must not copy its parts, for in an
/// answer that is nested a hundred thousand levels deep a copy would exhaust the stack.
std::optional<std::string> ask_daemon(const Config& config, const std::string& path);

}  // namespace velun
