// Free ports on 127.0.0.1 that stay free: each is bound, but not listened on, for as long as its
// reservation lives, so that connecting to it is refused while a server of the test may still take
// it over.
#pragma once

namespace velun::test {

/// One reserved port. Servers that want it must set SO_REUSEADDR.
class ReservedPort {
 public:
  ReservedPort();
  ~ReservedPort();
  ReservedPort(const ReservedPort&) = delete;
  ReservedPort& operator=(const ReservedPort&) = delete;

  int number() const { return number_; }

 private:
  int socket_;
  int number_;
};

/// A socket bound to `port` on 127.0.0.1 with SO_REUSEADDR, close-on-exec; 0 picks a free one.
int bound_socket(int port);

/// The port that a socket is bound to.
int port_of(int socket);

}  // namespace velun::test
