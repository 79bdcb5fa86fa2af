// A listener on 127.0.0.1 below the level of HTTP: the test decides what happens to the one
// connection that it accepts.
#pragma once

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>

#include "tests/support/ports.h"

namespace velun::test {

class RawListener {
 public:
  /// Listens on a free port and calls `use` with the first connection, which is closed afterwards.
  explicit RawListener(std::function<void(int connection)> use) : socket_(bound_socket(0)) {
    listen(socket_, 8);
    acceptor_ = std::thread([this, use = std::move(use)] {
      const int connection = has_input(socket_) ? accept4(socket_, nullptr, nullptr, 0) : -1;
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
  void join() {
    if (acceptor_.joinable()) {
      acceptor_.join();
    }
  }

  /// True when the descriptor can be read within ten seconds.
  static bool has_input(int descriptor) {
    pollfd wanted{descriptor, POLLIN, 0};
    return poll(&wanted, 1, 10'000) > 0;
  }

  /// Everything the peer sends until it closes or falls silent for ten seconds.
  static std::string read_to_end(int connection) {
    std::string bytes;
    char buffer[65536];
    while (has_input(connection)) {
      const ssize_t count = recv(connection, buffer, sizeof buffer, 0);
      if (count <= 0) {
        break;
      }
      bytes.append(buffer, static_cast<std::size_t>(count));
    }
    return bytes;
  }

 private:
  int socket_;
  std::thread acceptor_;
};

}  // namespace velun::test
