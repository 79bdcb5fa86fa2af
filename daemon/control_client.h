// The client of the daemon's control API: plain HTTP/1.1 GET requests to 127.0.0.1, one connection
// each. It prints nothing and reads no file; callers pass the token and report failures.
#pragma once

#include <chrono>
#include <string>

namespace velun {

/// The exact bytes of a request for `path`: request line, Host, and Authorization if `token` is not
/// empty. The token is copied unchanged, blanks and a carriage return included, so the daemon sees
/// exactly what the token file holds.
std::string control_request(int port, const std::string& path, const std::string& token);

/// How long one call may take: connect, write and read together.
inline constexpr std::chrono::milliseconds call_limit{2000};

/// Asks the daemon's control API for `path` on 127.0.0.1:`port`. Returns the body of a status-200
/// answer; the empty text for anything else: another status, no listener, a broken or too long
/// answer, or not a whole one within `limit`. An empty `token` sends no Authorization field. Never
/// throws, prints nothing.
std::string control_get(int port, const std::string& path, const std::string& token,
                        std::chrono::milliseconds limit = call_limit);

/// True when GET /healthz, without a token, is answered with status 200 and a non-empty body.
bool daemon_healthy(int port, std::chrono::milliseconds limit = call_limit);

}  // namespace velun
