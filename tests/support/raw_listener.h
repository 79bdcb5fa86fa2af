// A TCP listener on 127.0.0.1. The test handles the one connection that it accepts.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <string>

#include "tests/support/ports.h"

namespace velun::test {

/// True if the descriptor has input, or its peer has closed, within `patience`.
inline bool has_input(int descriptor, std::chrono::milliseconds patience) {
  pollfd wanted{descriptor, POLLIN, 0};
  return poll(&wanted, 1, static_cast<int>(patience.count())) > 0;
}

class RawListener {
 public:
  /// Listens on a free port. Calls `use` with the first connection and then closes it.
  explicit RawListener(const std::function<void(int connection)>& use) : socket_(bound_socket(0)) {
    listen(socket_, 8);
    done_ = std::async(std::launch::async, [this, use] {
      const int connection =
          has_input(socket_, patience) ? accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC) : -1;
      if (connection >= 0) {
        use(connection);
        close(connection);
      }
    });
  }
  ~RawListener() {
    join();
    close(socket_);
  }
  RawListener(const RawListener&) = delete;
  RawListener& operator=(const RawListener&) = delete;

  int port() const { return port_of(socket_); }
  /// Waits until the connection is closed.
  void join() { done_.wait(); }

  /// All that the peer sends until it closes or sends nothing for ten seconds.
  static std::string read_to_end(int connection) {
    std::string bytes;
    char buffer[65536];
    ssize_t count = 1;
    while (count > 0 && has_input(connection, patience)) {
      count = recv(connection, buffer, sizeof buffer, 0);
      bytes.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return bytes;
  }

 private:
  static constexpr std::chrono::seconds patience{10};

  int socket_;
  std::future<void> done_;
};

}  // namespace velun::test
