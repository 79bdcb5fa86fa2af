// Reserves free ports on 127.0.0.1. A reserved port is bound, but nothing listens on it:
// connections are refused, and a server of the test can still take it.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace velun::test {

/// A socket bound to `port` on 127.0.0.1 with SO_REUSEADDR, close-on-exec; 0 picks a free one.
inline int bound_socket(int port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    std::perror("bind");
    std::abort();
  }
  return descriptor;
}

/// The port that a socket is bound to.
inline int port_of(int socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

/// One reserved port. A server that takes it must set SO_REUSEADDR.
class ReservedPort {
 public:
  ReservedPort() = default;
  ~ReservedPort() { close(socket_); }
  ReservedPort(const ReservedPort&) = delete;
  ReservedPort& operator=(const ReservedPort&) = delete;

  int number() const { return port_of(socket_); }

 private:
  int socket_ = bound_socket(0);
};

}  // namespace velun::test
