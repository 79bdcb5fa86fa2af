// The exit statuses. Every command handler returns one of the first three.
#pragma once

namespace velun {

inline constexpr int status_success = 0;        ///< done, or nothing to do
inline constexpr int status_failure = 1;        ///< the operation failed
inline constexpr int status_usage = 2;          ///< the command line was wrong
inline constexpr int status_exec_failed = 127;  ///< a child whose program could not be executed

}  // namespace velun
