#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <cstring>

#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// How the child is started, and what velun does when it ends.
class StartChild : public Lifecycle {
 protected:
  StartChild() { sandbox.configure(); }

  std::string exited() const {
    return exited_text((sandbox.root() / "programs/daemon").string() + " " +
                       spaced(sandbox.daemon_flags()));
  }
};

TEST_F(StartChild, that_ends_in_any_way_before_answering_is_a_failure) {
  for (const char* steps : {"exit 0", "exit 42", "kill 9", "sleep 700\nexit 0"}) {
    install_daemon(steps);
    const Outcome run = sandbox.velun({"start"});
    EXPECT_EQ(seen(run), failure(exited())) << steps;
    EXPECT_LT(run.took, std::chrono::milliseconds(4000)) << steps;
  }
}

TEST_F(StartChild, has_a_session_and_a_process_group_of_its_own) {
  const ScriptedProgram daemon = install_daemon("exit 3");
  sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(daemon.runs()[0].session, daemon.runs()[0].pid);
  EXPECT_EQ(daemon.runs()[0].group, daemon.runs()[0].pid);
}

// What a program inherits, as text.
std::string surroundings(const RecordedRun& run) {
  std::string text = "in " + run.directory + "\n" + run.environment + "\n";
  for (const char* field : {"Umask", "SigBlk", "SigIgn"}) {
    text += std::string(field) + " " + run.status.at(field) + "\n";
  }
  for (const auto& [descriptor, target] : run.descriptors) {
    text += std::to_string(descriptor) + " " + target + "\n";
  }
  return text;
}

// Changes all that a child inherits; `pipe_action` is the action of SIGPIPE.
RunOptions unusual_start(const fs::path& directory, sighandler_t pipe_action) {
  RunOptions options;
  options.directory = directory;
  options.in_child = [pipe_action] {
    umask(027);
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, pipe_action);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
  };
  return options;
}

TEST_F(StartChild, inherits_all_but_the_session_and_the_group_of_velun) {
  const ScriptedProgram daemon = install_daemon("exit 3");
  const ScriptedProgram by_hand(sandbox.root() / "by hand", "exit 3");
  sandbox.environment.insert({{"A=B", "=C\n \xff"}, {"EMPTY", ""}, {"LC_ALL", "no such locale"}});
  for (const std::size_t round : {0U, 1U}) {
    RunOptions options = unusual_start(sandbox.home(), round == 0 ? SIG_DFL : SIG_IGN);
    sandbox.velun({"start"}, options);
    options.program = by_hand.path();
    sandbox.velun({}, options);
    EXPECT_EQ(surroundings(daemon.runs().at(round)), surroundings(by_hand.runs().at(round)));
  }
}

TEST_F(StartChild, that_cannot_be_forked_is_reported_and_leaves_no_pid_file) {
  const ScriptedProgram daemon = install_daemon("forever");
  // The leak check at the exit of a sanitizer build forks a process as well.
  sandbox.environment["ASAN_OPTIONS"] += ":detect_leaks=0";
  RunOptions options = without_powers();
  options.in_child = [] {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NPROC, &none);
  };
  EXPECT_EQ(seen(sandbox.velun({"start"}, options)), failure("fork failed\n"));
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_TRUE(fs::is_directory(sandbox.state_dir()));
  EXPECT_FALSE(fs::exists(sandbox.pid_file()));
}

TEST_F(StartChild, without_a_program_format_runs_in_a_shell_or_says_that_the_exec_failed) {
  const fs::path program = sandbox.root() / "programs/daemon";
  sandbox.environment["VELUND"] = program;
  // execvp runs a file of no known format as a shell script, as shells do.
  for (const std::string script : {"", "exit 3\n", "kill -9 $$\n", "#!/does/not/exist\n"}) {
    write_file(program, script);
    fs::permissions(program, fs::perms::owner_all);
    const std::string reason = script[0] == '#' ? exec_failed_text(program) : "";
    EXPECT_EQ(seen(sandbox.velun({"start"})), failure(reason + exited())) << script;
  }
}

// Sends signals to velun while it waits for the port, which answers only if `ready` is set.
class StartSignal : public StartChild {
 protected:
  /// Starts velun. Returns when the daemon runs and velun has probed after its first pause.
  pid_t start() {
    RunOptions options;
    options.in_child = [] {
      for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        signal(number, SIG_DFL);
      }
    };
    const std::size_t asked = control.requests().size();
    const std::size_t ran = daemon.runs().size();
    const pid_t velun = sandbox.start_velun({"start"}, options);
    EXPECT_TRUE(eventually(
        [&] { return control.requests().size() > asked + 1 && daemon.runs().size() > ran; }));
    return velun;
  }

  ScriptedProgram daemon = install_daemon("forever");
  std::atomic<bool> ready = false;
  LoopbackServer control{sandbox.control_port(), [this](const std::string&) {
                           return ready ? answer(200, "ok") : answer(503, "");
                         }};
};

TEST_F(StartSignal, that_ends_velun_leaves_the_daemon_running_and_on_record) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGKILL}) {
    SCOPED_TRACE(strsignal(number));
    const pid_t velun = start();
    kill(velun, number);
    const int status = wait_for(velun, std::chrono::seconds(10));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number);
    const pid_t pid = daemon.runs().back().pid;
    EXPECT_EQ(read_file(sandbox.output_file()), "");
    EXPECT_TRUE(is_running(pid));
    EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(pid) + "\n");
    ready = true;
    EXPECT_EQ(seen(sandbox.velun({"stop"})), success("stopped\n"));
    EXPECT_FALSE(is_running(pid));
    ready = false;
  }
}

TEST_F(StartSignal, that_does_not_end_velun_changes_nothing) {
  const pid_t velun = start();
  for (const int number : {SIGSTOP, SIGCONT, SIGWINCH, SIGURG, SIGCHLD, SIGSTOP, SIGCONT}) {
    kill(velun, number);
  }
  EXPECT_TRUE(is_running(velun));
  ready = true;
  EXPECT_EQ(wait_for(velun, std::chrono::seconds(10)), 0);
  EXPECT_EQ(read_file(sandbox.output_file()), running_text(daemon.runs().at(0).pid, "watch"));
}

}  // namespace
}  // namespace velun::test
