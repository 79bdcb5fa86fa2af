#include "system/child.h"

#include <signal.h>
#include <unistd.h>

namespace velun {
namespace {

// Ignores SIGPIPE at the first call. Always returns the disposition that velun was started with.
auto ignore_sigpipe() {
  static const auto inherited = signal(SIGPIPE, SIG_IGN);
  return inherited;
}

}  // namespace

void ignore_abandoned_output() {
  ignore_sigpipe();
}

void execute(std::vector<std::string>& words) {
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  argv.push_back(nullptr);
  signal(SIGPIPE, ignore_sigpipe());
  execvp(argv[0], argv.data());
  // The caller still has to report the failure. SIGPIPE on standard error must not end it before.
  signal(SIGPIPE, SIG_IGN);
}

}  // namespace velun
