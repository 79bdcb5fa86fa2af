#include "system/child.h"

#include <signal.h>
#include <unistd.h>

#include <iostream>

namespace velun {
namespace {

// Asked for once, before anything changes it.
const struct sigaction& inherited_sigpipe() {
  static const struct sigaction inherited = [] {
    struct sigaction current {};
    sigaction(SIGPIPE, nullptr, &current);
    return current;
  }();
  return inherited;
}

}  // namespace

void ignore_abandoned_output() {
  inherited_sigpipe();
  signal(SIGPIPE, SIG_IGN);
}

pid_t fork_child() {
  // A child that writes to standard error would write out, once more, what it found unwritten here.
  std::cout << std::flush;
  const pid_t pid = fork();
  if (pid == 0) {
    sigaction(SIGPIPE, &inherited_sigpipe(), nullptr);
  }
  return pid;
}

void execute(std::vector<std::string>& words) {
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
}

}  // namespace velun
