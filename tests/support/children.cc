#include "tests/support/children.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace velun::test {
namespace {

// The wait statuses of children that ended while the test waited for another one.
std::map<pid_t, int>& ended() {
  static std::map<pid_t, int> statuses;
  return statuses;
}

void reap() {
  int status = 0;
  for (pid_t pid = waitpid(-1, &status, WNOHANG); pid > 0; pid = waitpid(-1, &status, WNOHANG)) {
    ended()[pid] = status;
  }
}

void place(int descriptor, int target) {
  if (descriptor < 0) {
    close(target);
  } else {
    dup2(descriptor, target);
  }
}

std::vector<char*> pointers(std::vector<std::string>& words) {
  std::vector<char*> result;
  for (std::string& word : words) {
    result.push_back(word.data());
  }
  result.push_back(nullptr);
  return result;
}

[[noreturn]] void become(const Launch& launch) {
  std::vector<std::string> argv = launch.argv;
  std::vector<std::string> environment;
  for (const auto& [name, value] : launch.environment) {
    environment.push_back(name + "=" + value);
  }
  place(launch.in, 0);
  place(launch.out, 1);
  place(launch.err, 2);
  // Closes the files of the test runner. An old kernel cannot do that, which is harmless.
  syscall(SYS_close_range, 3U, ~0U, CLOSE_RANGE_CLOEXEC);
  signal(SIGPIPE, SIG_DFL);
  // A faulty program must not fill the disk.
  const rlimit largest_file{256U << 20, 256U << 20};
  setrlimit(RLIMIT_FSIZE, &largest_file);
  if (!launch.directory.empty() && chdir(launch.directory.c_str()) != 0) {
    _exit(126);
  }
  if (launch.in_child) {
    launch.in_child();
  }
  execve(launch.program.c_str(), pointers(argv).data(), pointers(environment).data());
  _exit(126);
}

}  // namespace

pid_t spawn(const Launch& launch) {
  const pid_t pid = fork();
  if (pid < 0) {
    std::perror("fork");
    std::abort();
  }
  if (pid == 0) {
    become(launch);
  }
  // An earlier process of the same number may have ended unobserved.
  ended().erase(pid);
  return pid;
}

int wait_for(pid_t pid, std::chrono::milliseconds limit) {
  const auto gone = [pid] { return ended().contains(pid); };
  if (!eventually(gone, limit)) {
    return -1;
  }
  const int status = ended()[pid];
  ended().erase(pid);
  return status;
}

bool is_running(pid_t pid) {
  reap();
  return kill(pid, 0) == 0;
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  do {
    reap();
    if (condition()) {
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  } while (std::chrono::steady_clock::now() < deadline);
  return false;
}

void end_all_children() {
  // The children of a killed process become children of this one, so this takes several rounds.
  do {
    std::ifstream children("/proc/thread-self/children");
    for (pid_t pid = 0; children >> pid;) {
      kill(pid, SIGKILL);
    }
  } while (waitpid(-1, nullptr, 0) > 0);
}

}  // namespace velun::test

int main(int argc, char* argv[]) {
  testing::InitGoogleTest(&argc, argv);
  // Orphaned descendants are handed to this process.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  // Without this, a peer that closes a socket could end the tests.
  signal(SIGPIPE, SIG_IGN);
  const rlimit no_core_file{0, 0};
  setrlimit(RLIMIT_CORE, &no_core_file);
  return RUN_ALL_TESTS();
}
