#include "tests/matrix/side_by_side.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>

#include "tests/support/children.h"

namespace velun::test {
namespace {

using Clock = std::chrono::steady_clock;
using File = std::FILE*;

// Of all of them most wait for seconds, of the others hardly one.
constexpr std::size_t at_once_of_all = 64;
constexpr std::size_t at_once_otherwise = 16;
constexpr std::size_t shown = 10;  // failures beyond are only counted
constexpr std::chrono::seconds limit{120};

// One combination under way.
struct Run {
  std::size_t number;
  File output;
  Clock::time_point begun = Clock::now();
};

[[noreturn]] void become_run(const std::function<void(std::size_t)>& play, const Run& run) {
  dup2(fileno(run.output), STDOUT_FILENO);
  dup2(fileno(run.output), STDERR_FILENO);
  become_reaper();
  play(run.number);
  std::fflush(stdout);
  _exit(testing::Test::HasFailure() ? 1 : 0);
}

std::string text_of(File output) {
  std::string text;
  std::rewind(output);
  for (int c = std::getc(output); c != EOF; c = std::getc(output)) {
    text += static_cast<char>(c);
  }
  std::fclose(output);
  return text;
}

class Runs {
 public:
  explicit Runs(const std::function<std::string(std::size_t)>& name) : name_(name) {}

  std::size_t size() const { return runs_.size(); }
  std::size_t failed() const { return failed_; }
  const std::string& report() const { return report_; }

  void start(std::size_t number, const std::function<void(std::size_t)>& play) {
    const Run run{number, std::tmpfile()};
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
      become_run(play, run);
    }
    runs_.emplace(pid, run);
  }

  // What a run that is ended too late leaves comes down to this process and is collected as well.
  void collect() {
    int status = 0;
    for (pid_t pid = waitpid(-1, &status, WNOHANG); pid > 0; pid = waitpid(-1, &status, WNOHANG)) {
      if (const auto run = runs_.find(pid); run != runs_.end()) {
        judge(run->second, status);
        runs_.erase(run);
      }
    }
    for (const auto& [pid, run] : runs_) {
      if (Clock::now() - run.begun > limit) {
        kill(pid, SIGKILL);
      }
    }
  }

 private:
  void judge(const Run& run, int status) {
    const std::string text = text_of(run.output);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
      return;
    }
    if (++failed_ <= shown) {
      report_ +=
          name_(run.number) + "\n" + text +
          (WIFSIGNALED(status) ? "ended by signal " + std::to_string(WTERMSIG(status)) : "") + "\n";
    }
  }

  const std::function<std::string(std::size_t)>& name_;
  std::map<pid_t, Run> runs_;
  std::size_t failed_ = 0;
  // Kept to the end: a failure of this test now would be one of every run to come.
  std::string report_;
};

}  // namespace

bool wants_whole_matrix() {
  return std::getenv("VELUN_WHOLE_MATRIX") != nullptr;
}

bool runs_apart() {
  return std::getenv("VELUN_MATRIX_APART") != nullptr;
}

void side_by_side(const std::string& title, std::size_t count,
                  const std::function<void(std::size_t)>& play,
                  const std::function<std::string(std::size_t)>& name) {
  const auto begin = Clock::now();
  const std::size_t at_once = wants_whole_matrix() ? at_once_of_all : at_once_otherwise;
  Runs runs(name);
  for (std::size_t next = 0; next < count || runs.size() > 0;) {
    while (next < count && runs.size() < at_once) {
      runs.start(next++, play);
    }
    runs.collect();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  const std::chrono::duration<double> took = Clock::now() - begin;
  std::printf("%s: %zu combinations, %zu failed, %.1f s\n", title.c_str(), count, runs.failed(),
              took.count());
  EXPECT_EQ(runs.failed(), 0U) << "of " << count << " combinations:\n\n" << runs.report();
}

}  // namespace velun::test
