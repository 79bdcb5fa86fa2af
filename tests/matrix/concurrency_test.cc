// Many velun at once on one home. Nothing guards them against each other, so that a command may
// fail because of another one; but each ends in time and in a known way, none hits a process that
// is not the daemon, and whoever reads the config file finds a whole one, or an empty one that
// gives the defaults. Two saves at once could mix their texts: flock lets them take turns, as the
// manual page says.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <thread>

#include "tests/matrix/scene.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;

constexpr std::size_t at_once = 24;
constexpr std::size_t shown = 10;
// A restart may wait for the end of one daemon and for the answer of the next, on a busy machine,
// and a save for several of them.
constexpr std::chrono::seconds limit{100};

struct Command {
  Words words;
  std::string input;
  bool may_fail;
  bool saves = false;
};

const std::vector<Command> commands = {
    {{"help"}, "", false},
    {{"config"}, "", false},
    {{"setup"}, "protect\nnone\n", false, true},
    {{"setup"}, "watch\n\n", false, true},
    {{"model"}, "", false},
    {{"status"}, "", true},
    {{"stats"}, "", true},
    {{"log"}, "", true},
    {{"start"}, "", true},
    {{"stop"}, "", true},
    {{"restart"}, "", true},
    {{"mode", "off"}, "", true, true},
    {{"mode", "watch"}, "", true, true},
    {{"mode", "protect"}, "", true, true},
    {{"model", "fetch"}, "", true},
    {{"model", "use", "velun-pii-m-v1.3"}, "", true, true},
};

int seconds() {
  const char* text = std::getenv("VELUN_CONCURRENCY_SECONDS");
  return text != nullptr ? std::atoi(text) : 3;
}

// One velun under way.
struct Running {
  const Command* command;
  std::string name;
  Clock::time_point begun = Clock::now();
};

class Concurrency : public ::testing::Test {
 protected:
  Concurrency() {
    Environment& environment = scene.sandbox.environment;
    scene.install_actor("curl", false);
    environment["PATH"] = programs();
    environment["VELUN_MODEL_MIRROR"] = "http://127.0.0.1:1";
    environment["VELUN_HF_TOKEN"] = "hf_secret";
    environment["ACTOR"] = scene.part("curl", "mirror=done hub=22");
    environment["VELUND"] = programs() / "daemon";
    // The defaults, which an empty file gives, have ports that are not the test's to use.
    write_file(programs() / "daemon", "#!/bin/sh\ncase \" $* \" in\n  *' --control-port " +
                                          std::to_string(scene.sandbox.control_port()) +
                                          " '*) exec " VELUN_STANDIN " \"$@\" ;;\nesac\nexit 1\n");
    fs::permissions(programs() / "daemon", fs::perms(0755));
    for (const std::string& model : {std::string(), "model_dir: " + bundle() + "\n"}) {
      for (const char* mode : {"off", "watch", "protect"}) {
        whole_.insert(scene.sandbox.rendering(mode, model));
        with_default_ports_.insert(rendering_of_defaults(mode, model));
      }
    }
    restore_file();
    for (const char* name : {"neighbour", "bystander", "another"}) {
      scene.play(name, "leads life=" + std::to_string(seconds() + 2 * limit.count()));
    }
    in_child_ = scene.beside("neighbour").in_child;
  }

  fs::path programs() const { return scene.sandbox.root() / "programs"; }
  std::string bundle() const { return scene.sandbox.models_dir() / "velun-pii-m-v1.3"; }

  static std::string rendering_of_defaults(const std::string& mode, const std::string& model) {
    return "# Velun CLI configuration. `velun help config` documents every key.\nmode: " + mode +
           "\n" + model +
           "anthropic_port: 8900\nopenai_port: 8901\ncontrol_port: 8902\nnames: true\n";
  }

  void run_for(std::chrono::seconds duration) {
    const auto end = Clock::now() + duration;
    while (Clock::now() < end || !runs_.empty()) {
      while (Clock::now() < end && runs_.size() < at_once) {
        start(commands[random_() % commands.size()]);
      }
      collect();
      look_at_file();
    }
  }

  void report() const {
    std::printf("%zu runs;", number_);
    for (const auto& [how, count] : ends_) {
      std::printf(" %s: %zu", how.c_str(), count);
    }
    std::printf("\n");
    std::string text;
    for (std::size_t i = 0; i < complaints_.size() && i < shown; ++i) {
      text += complaints_[i] + "\n";
    }
    EXPECT_EQ(complaints_.size(), 0U) << text;
  }

  Scene scene;

 private:
  fs::path file(const std::string& name) const { return scene.sandbox.root() / "runs" / name; }

  void start(const Command& command) {
    const std::string name = std::to_string(++number_);
    write_file(file(name + ".in"), command.input);
    Launch launch;
    launch.program = VELUN_BINARY;
    launch.argv = {"velun"};
    if (command.saves) {
      launch.program = "/usr/bin/flock";
      launch.argv = {"flock", "-o", scene.sandbox.config_file().parent_path(), VELUN_BINARY};
    }
    launch.argv.insert(launch.argv.end(), command.words.begin(), command.words.end());
    launch.environment = scene.sandbox.environment;
    launch.directory = scene.sandbox.root();
    launch.in_child = in_child_;
    constexpr int writing = O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC;
    launch.in = open(file(name + ".in").c_str(), O_RDONLY | O_CLOEXEC);
    launch.out = open(file(name + ".out").c_str(), writing, 0644);
    launch.err = open(file(name + ".err").c_str(), writing, 0644);
    runs_.emplace(spawn(launch), Running{&command, name});
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
        complain(run->second, "hangs");
        kill(run->first, SIGKILL);
      } else {
        judge(run->second, status);
      }
      run = runs_.erase(run);
    }
  }

  void judge(const Running& run, int status) {
    Outcome outcome{.out = read_file(file(run.name + ".out")),
                    .err = read_file(file(run.name + ".err"))};
    (WIFEXITED(status) ? outcome.status : outcome.signal) =
        WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
    outcome = in_short(outcome);
    ++ends_[WIFEXITED(status) ? "status " + std::to_string(outcome.status) : outcome.err];
    // Two fetches use one name for an unfinished file, and one renames it under the other.
    const bool lost_a_file = outcome.signal == SIGABRT && run.command->words[0] == "model" &&
                             outcome.err.ends_with("terminated: cannot rename");
    const bool fine = outcome.status == 0 || (outcome.status == 1 && run.command->may_fail);
    if (!lost_a_file && !fine) {
      complain(run, seen(outcome));
    } else if (outcome.err.find("has problems") != std::string::npos) {
      complain(run, outcome.err);
    } else if (run.command->words[0] == "config") {
      expect_whole(run, outcome.out);
    }
    for (const char* kind : {".in", ".out", ".err"}) {
      fs::remove(file(run.name + kind));
    }
  }

  void expect_whole(const Running& run, const std::string& out) {
    const std::string head = "file: " + scene.sandbox.config_file().string() + "\n";
    const std::string text = out.substr(std::min(out.find("# Velun"), out.size()));
    if (!out.starts_with(head) || (!whole_.contains(text) && !with_default_ports_.contains(text))) {
      complain(run, out);
    }
  }

  void look_at_file() {
    const std::string text = read_file(scene.sandbox.config_file());
    if (!text.empty() && !whole_.contains(text)) {
      complaints_.push_back("the config file is\n" + text);
      restore_file();
    }
  }

  // In one step, so that nobody else finds half a file.
  void restore_file() const {
    const fs::path draft = scene.sandbox.root() / "draft";
    write_file(draft, scene.sandbox.rendering("watch"));
    fs::create_directories(scene.sandbox.config_file().parent_path());
    fs::rename(draft, scene.sandbox.config_file());
  }

  void complain(const Running& run, const std::string& what) {
    std::string words = "velun";
    for (const std::string& word : run.command->words) {
      words += " " + word;
    }
    complaints_.push_back(words + "\n" + what);
  }

  std::function<void()> in_child_;
  std::mt19937 random_{20240229};
  std::map<pid_t, Running> runs_;
  std::size_t number_ = 0;
  std::map<std::string, std::size_t> ends_;
  std::vector<std::string> complaints_;
  std::set<std::string> whole_;
  std::set<std::string> with_default_ports_;
};

TEST_F(Concurrency, of_all_commands_on_one_home_neither_hangs_nor_crashes_nor_hits_others) {
  run_for(std::chrono::seconds(seconds()));
  report();
  EXPECT_EQ(scene.signals(),
            untouched("another") + untouched("bystander") + untouched("neighbour"));
  end_all_children();
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "something is left running";
}

}  // namespace
}  // namespace velun::test
