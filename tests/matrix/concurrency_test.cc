// Runs many commands at once in one home. Nothing locks them against each other: a command may read
// half a config file, or another command may stop its daemon, so it may fail. But each command
// ends in time and in a known way, prints its whole report or none, and signals no process but the
// daemon. Saves take turns by flock, as the manual page says, so the file loads afterwards.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <regex>

#include "tests/matrix/player.h"
#include "tests/support/last_words.h"
#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t at_once = 24;
// On a busy machine, a restart may wait for one daemon to end and for the next to answer, and a
// save may wait for several restarts.
constexpr std::chrono::seconds limit{100};

struct Command {
  std::vector<std::string> words;
  bool saves;
  bool may_fail;
  std::string input;
  std::string report;  // all of standard output when it succeeds
};

std::vector<Command> commands() {
  const std::string dashboard = "dashboard: http://127\\.0\\.0\\.1:\\d+/\n";
  const std::string start = "(running \\(pid \\d+, mode \\w+\\)\n" + dashboard +
                            "|already running on control port \\d+\n|mode is off — .*\n)";
  const std::string stop = "(stopped|not running)\n";
  const std::string setup = "[^]*\n(.*: )?wrote .*\nnext: .*\n";
  const std::string mode = "wrote .*\n(" + stop + ")?";
  return {
      {{"help"}, false, false, "", "[^]+\n"},
      {{"config"}, false, false, "", "file: .*\n\n# Velun .*\nmode: \\w+\n[^]*names: true\n"},
      {{"setup"}, true, false, "protect\nnone\n", setup},
      {{"setup"}, true, false, "watch\n\n", setup},
      {{"model"}, false, false, "", "[^]+\n"},
      {{"status"}, false, true, "", "not running \\(.*\\)\n|mode: +\\w+\n[^]*\n" + dashboard},
      {{"stats"}, false, true, "", "not running\n|requests: +0\n.*\n.*\ncost .*: +\\$0\n"},
      {{"log"}, false, true, "", "not running\n|no .*\n"},
      {{"start"}, false, true, "", start},
      {{"stop"}, false, true, "", stop},
      {{"restart"}, false, true, "", stop + start},
      {{"mode", "off"}, true, true, "", mode},
      {{"mode", "watch"}, true, true, "", mode + start},
      {{"mode", "protect"}, true, true, "", mode + start},
      {{"model", "fetch"}, false, true, "", "fetching .*\n[^]*\ndone\\. .*\n"},
      {{"model", "use", "velun-pii-m-v1.3"}, true, true, "", "wrote .*\n[^]*"},
  };
}

// A velun that has not ended.
struct Running {
  const Command* command;
  fs::path directory;  // holds its standard streams
  Clock::time_point begun = Clock::now();
};

class Concurrency : public ::testing::Test {
 protected:
  Concurrency() {
    sandbox.configure();
    const fs::path programs = sandbox.root() / "programs";
    install(programs / "curl",
            "while [ $# -gt 1 ]; do\n  [ \"$1\" = -o ] && echo '[]' >\"$2\"\n  shift\ndone\n");
    // An empty config file gives the default ports, which the test must not use.
    install(programs / "daemon", "case $* in\n  *'--control-port " +
                                     std::to_string(sandbox.control_port()) + " '*) exec '" +
                                     VELUN_STANDIN + "' \"$@\" ;;\nesac\nexit 1\n");
    sandbox.environment["PATH"] = programs;
    sandbox.environment["VELUND"] = programs / "daemon";
    sandbox.environment["VELUN_MODEL_MIRROR"] = "http://127.0.0.1:1";
  }

  static void install(const fs::path& program, const std::string& script) {
    write_file(program, "#!/bin/sh\n" + script);
    fs::permissions(program, fs::perms(0755));
  }

  void run_for(std::chrono::seconds duration) {
    const auto end = Clock::now() + duration;
    const auto goes_on = [end] { return Clock::now() < end && !HasFailure(); };
    while (goes_on() || !runs_.empty()) {
      while (goes_on() && runs_.size() < at_once) {
        start(commands_[random_() % commands_.size()]);
      }
      collect();
    }
  }

  Sandbox sandbox;
  Player neighbour{Part()};
  Player bystander{Part()};

 private:
  void start(const Command& command) {
    const fs::path directory = sandbox.root() / "runs" / std::to_string(++number_);
    write_file(directory / "in", command.input);
    Launch launch;
    launch.program = VELUN_BINARY;
    launch.argv = {"velun"};
    if (command.saves) {
      launch.program = "/usr/bin/flock";
      launch.argv = {"flock", "-o", sandbox.config_file().parent_path(), VELUN_BINARY};
    }
    launch.argv.insert(launch.argv.end(), command.words.begin(), command.words.end());
    launch.environment = sandbox.environment;
    launch.directory = sandbox.root();
    launch.in_child = [group = neighbour.pid()] { setpgid(0, group); };
    constexpr int writing = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    launch.in = open((directory / "in").c_str(), O_RDONLY | O_CLOEXEC);
    launch.out = open((directory / "out").c_str(), writing, 0644);
    launch.err = open((directory / "err").c_str(), writing, 0644);
    runs_.emplace(spawn(launch), Running{&command, directory});
    for (const int stream : {launch.in, launch.out, launch.err}) {
      close(stream);
    }
  }

  void collect() {
    for (auto run = runs_.begin(); run != runs_.end();) {
      const int status = wait_for(run->first, std::chrono::milliseconds(0));
      if (status == -1 && Clock::now() - run->second.begun < limit) {
        ++run;
        continue;
      }
      if (status == -1) {
        kill(run->first, SIGKILL);
      }
      judge(run->second, status);
      run = runs_.erase(run);
    }
  }

  void judge(const Running& run, int status) {
    const Command& command = *run.command;
    const std::string out = read_file(run.directory / "out");
    const std::string err = read_file(run.directory / "err");
    fs::remove_all(run.directory);
    const bool reads_half_a_file = err.find("has problems") != std::string::npos;
    bool fine = false;
    if (status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0) {
      fine = std::regex_match(out, std::regex(command.report)) && !reads_half_a_file;
    } else if (status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 1) {
      fine = reads_half_a_file ? !command.saves : command.may_fail && !err.empty();
    } else if (status != -1 && WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) {
      // Two fetches use the same name for an unfinished file. One renames it before the other can.
      fine = command.words.back() == "fetch" && err.find(cannot("rename")) != std::string::npos;
    }
    EXPECT_TRUE(fine) << testing::PrintToString(command.words) << "\nended with the wait status "
                      << status << " (-1: not at all)\n"
                      << out << "standard error:\n"
                      << err;
  }

  const std::vector<Command> commands_ = commands();
  std::mt19937 random_{20240229};
  std::map<pid_t, Running> runs_;
  std::size_t number_ = 0;
};

TEST_F(Concurrency, ends_no_command_unexpectedly_signals_no_bystander_and_leaves_a_whole_file) {
  const char* seconds = std::getenv("VELUN_CONCURRENCY_SECONDS");
  run_for(std::chrono::seconds(seconds != nullptr ? std::atoi(seconds) : 3));
  EXPECT_EQ(neighbour.fate(), "there");
  EXPECT_EQ(bystander.fate(), "there");
  const Outcome run = sandbox.velun({"config"});
  std::vector<std::string> whole;
  for (const std::string& model :
       {std::string(),
        "model_dir: " + (sandbox.models_dir() / "velun-pii-m-v1.3").string() + "\n"}) {
    for (const char* mode : {"off", "watch", "protect"}) {
      whole.push_back(success("file: " + sandbox.config_file().string() + "\n\n" +
                              sandbox.rendering(mode, model)));
    }
  }
  EXPECT_NE(std::find(whole.begin(), whole.end(), seen(run)), whole.end()) << seen(run);
}

}  // namespace
}  // namespace velun::test
