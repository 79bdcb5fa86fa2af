// A process that plays a part around velun: a daemon, a listener, a bystander. It notes every
// signal that reaches it.
#pragma once

#include <sys/types.h>

#include <string>

#include "tests/support/loopback_server.h"

namespace velun::test {

/// As which other user parts are played and velun is run without root's powers.
constexpr uid_t nobody = 65534;

struct Part {
  pid_t group = 0;      ///< the process group it joins; 0: it leads one of its own
  uid_t user = 0;       ///< 0: the user of the test
  bool zombie = false;  ///< has a dead child that it does not collect
  int port = 0;         ///< where it listens, if anywhere
  Reply reply = {};     ///< what it answers there
  int lasts_ms = 0;     ///< how long it goes on after a signal; -1: as if there had been none
};

class Player {
 public:
  /// Returns once the part is played.
  explicit Player(const Part& part);
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  /// The process, or its zombie if it has one; 0 when the part cannot be played.
  pid_t pid() const { return pid_; }

  /// Dismisses the process. Returns the number of every signal that has reached it, then "there",
  /// or "ended" when one of them has ended it; neither when it was killed.
  std::string fate() const;

 private:
  int socket_ = -1;
  pid_t pid_ = 0;
};

}  // namespace velun::test
