// The rhythm in which start and stop watch the daemon: a fixed number of tries, a pause before
// each, about five seconds in all.
#pragma once

#include <chrono>
#include <thread>

namespace velun {

inline constexpr int poll_tries = 50;

/// Sleeps 100 ms; a signal that interrupts the sleep does not shorten it.
inline void pause_before_try() {
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

}  // namespace velun
