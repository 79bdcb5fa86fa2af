// A real terminal for one run of velun, with a hand at the keyboard and an eye on the screen. The
// screen is what a person sees: typed lines stand behind their questions, every line ends in \r\n.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>

namespace velun::test {

class Terminal {
 public:
  Terminal() : keyboard_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_EQ(grantpt(keyboard_), 0);
    EXPECT_EQ(unlockpt(keyboard_), 0);
    if (const char* name = ptsname(keyboard_)) {
      device_ = name;
    }
  }
  ~Terminal() { close(keyboard_); }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// For `RunOptions::in_child`: makes this the terminal of the child and all three of its streams.
  std::function<void()> as_streams() const {
    return [device = device_] {
      setsid();
      const int stream = open(device.c_str(), O_RDWR);
      if (stream < 0 || dup2(stream, 0) != 0 || dup2(stream, 1) != 1 || dup2(stream, 2) != 2) {
        _exit(125);
      }
      close(stream);
    };
  }

  void type(const std::string& keys) const {
    EXPECT_EQ(write(keyboard_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  /// Reads until the screen ends with `text`; false when that does not happen in ten seconds.
  bool shows(const std::string& text) {
    return read_until([&] { return screen_.ends_with(text); });
  }

  /// Reads until no process has the terminal open any more and returns the whole screen.
  std::string screen_at_the_end() {
    EXPECT_TRUE(read_until([&] { return ended_; })) << "the terminal is still in use";
    return screen_;
  }

  const std::string& screen() const { return screen_; }

 private:
  bool read_until(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
      if (ended_ || std::chrono::steady_clock::now() >= deadline) {
        return false;
      }
      pollfd wanted{keyboard_, POLLIN, 0};
      if (poll(&wanted, 1, 100) > 0) {
        read_some();
      }
    }
    return true;
  }

  void read_some() {
    char buffer[4096];
    const ssize_t count = read(keyboard_, buffer, sizeof buffer);
    if (count > 0) {
      screen_.append(buffer, static_cast<std::size_t>(count));
    } else {
      ended_ = true;
    }
  }

  int keyboard_;
  std::string device_;
  std::string screen_;
  bool ended_ = false;
};

}  // namespace velun::test
