// A listener on 127.0.0.1 below the level of HTTP: the test decides what happens to the one
// connection that it accepts.
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

/// True when the descriptor can be read, or its peer has gone, before `patience` is over.
inline bool has_input(int descriptor, std::chrono::milliseconds patience) {
  pollfd wanted{descriptor, POLLIN, 0};
  return poll(&wanted, 1, static_cast<int>(patience.count())) > 0;
}

class RawListener {
 public:
  /// Listens on a free port and calls `use` with the first connection, which is closed afterwards.
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
  /// Waits until the connection has been dealt with.
  void join() { done_.wait(); }

  /// Everything the peer sends until it closes or falls silent for ten seconds.
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
