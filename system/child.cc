#include "system/child.h"

#include <unistd.h>

#include <iostream>

namespace velun {
pid_t fork_child() {
  std::cout << std::flush;
  return fork();
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
