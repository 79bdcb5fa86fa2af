// A process of a test: a daemon, a listener or a bystander. It records every signal that it gets.
#pragma once

#include <sys/types.h>

#include <string>

#include "tests/support/loopback_server.h"

namespace velun::test {

/// The user that runs some players, and velun without root's powers.
constexpr uid_t nobody = 65534;

struct Part {
  pid_t group = 0;      ///< the process group that it joins; 0: a group of its own
  uid_t user = 0;       ///< the user that runs it; 0: that of the test
  bool zombie = false;  ///< has an ended child that it does not reap
  int port = 0;         ///< the port on which it listens; 0: none
  Reply reply = {};     ///< its answer to each request
  int lasts_ms = 0;     ///< the time from a signal to its end; -1: it does not end
};

class Player {
 public:
  /// Returns when the process is ready.
  explicit Player(const Part& part);
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  /// The pid of the process, or of its zombie if it has one; 0 if it could not start.
  pid_t pid() const { return pid_; }

  /// Ends the process. Returns the number of every signal that it got, then "there", or "ended" if
  /// a signal ended it before. Neither word follows if it was killed.
  std::string fate() const;

 private:
  int socket_ = -1;
  pid_t pid_ = 0;
};

}  // namespace velun::test
