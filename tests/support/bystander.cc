#include "tests/support/bystander.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/children.h"

namespace velun::test {

Bystander::Bystander() : pid_(fork()) {
  if (pid_ == 0) {
    sleep(120);
    _exit(0);
  }
}

Bystander::~Bystander() {
  if (alive()) {
    kill(pid_, SIGKILL);
    wait_for(pid_, std::chrono::seconds(10));
  }
}

bool Bystander::alive() const {
  return is_running(pid_);
}

pid_t pid_of_a_dead_process() {
  const pid_t pid = fork();
  if (pid == 0) {
    _exit(0);
  }
  wait_for(pid, std::chrono::seconds(10));
  return pid;
}

}  // namespace velun::test
