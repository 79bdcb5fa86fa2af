#include "tests/support/children.h"

#include <fcntl.h>
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
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace velun::test {
namespace {

// Wait statuses of children that ended while another one was waited for.
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

// The field of /proc/PID/stat after the command name, which may itself hold blanks.
char state_of(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t name_end = line.rfind(')');
  char state = '-';
  if (name_end != std::string::npos) {
    std::istringstream(line.substr(name_end + 1)) >> state;
  }
  return state;
}

// Asking every process for its parent instead would take longer the more of them there are.
std::vector<pid_t> children() {
  std::vector<pid_t> pids;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(thread.path() / "children");
    for (pid_t pid = 0; file >> pid;) {
      pids.push_back(pid);
    }
  }
  return pids;
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
  // What the runner of the tests has open is none of the program's business. An old kernel cannot,
  // and then nothing is lost but that.
  syscall(SYS_close_range, 3U, ~0U, CLOSE_RANGE_CLOEXEC);
  signal(SIGPIPE, SIG_DFL);
  // A program gone wrong must not fill the disk.
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

void become_reaper() {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  signal(SIGPIPE, SIG_IGN);
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

pid_t spawn(const Launch& launch) {
  const pid_t pid = fork();
  if (pid < 0) {
    std::perror("fork");
    std::abort();
  }
  if (pid == 0) {
    become(launch);
  }
  // One of the same number may have ended long ago, and nobody asked how.
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
  return kill(pid, 0) == 0 && state_of(pid) != 'Z';
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
  // Ending one can orphan its own children to us, hence the rounds.
  for (int round = 0; round < 100; ++round) {
    const std::vector<pid_t> left = children();
    if (left.empty()) {
      return;
    }
    for (const pid_t pid : left) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
  }
}

}  // namespace velun::test
