// A process that has nothing to do with velun and must survive whatever velun does.
#pragma once

#include <sys/types.h>

#include <string>

namespace velun::test {

class Bystander {
 public:
  Bystander();
  ~Bystander();
  Bystander(const Bystander&) = delete;
  Bystander& operator=(const Bystander&) = delete;

  pid_t pid() const { return pid_; }
  std::string pid_text() const { return std::to_string(pid_); }
  /// False once any signal has ended it.
  bool alive() const;

 private:
  pid_t pid_;
};

/// The id of a process that existed and is gone, and no other process has yet.
pid_t pid_of_a_dead_process();

}  // namespace velun::test
