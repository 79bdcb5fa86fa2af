// A process that is not velun's. Every command must leave it alive.
#pragma once

#include <signal.h>
#include <unistd.h>

#include <string>

#include "tests/support/children.h"

namespace velun::test {

class Bystander {
 public:
  Bystander() : pid_(fork()) {
    if (pid_ == 0) {
      sleep(120);
      _exit(0);
    }
  }
  ~Bystander() {
    if (alive()) {
      kill(pid_, SIGKILL);
    }
  }
  Bystander(const Bystander&) = delete;
  Bystander& operator=(const Bystander&) = delete;

  pid_t pid() const { return pid_; }
  std::string pid_text() const { return std::to_string(pid_); }
  /// False once any signal has ended it.
  bool alive() const { return is_running(pid_); }

 private:
  pid_t pid_;
};

}  // namespace velun::test
