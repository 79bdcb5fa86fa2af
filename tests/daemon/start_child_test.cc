#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>

#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// What the forked child is and does, and how velun takes its end.
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

TEST_F(StartChild, that_exits_is_collected_by_velun_itself) {
  const ScriptedProgram daemon = install_daemon("exit 3");
  EXPECT_EQ(sandbox.velun({"start"}).status, 1);
  ASSERT_EQ(daemon.runs().size(), 1U);
  // A zombie would have come down to this process.
  EXPECT_EQ(wait_for(daemon.runs()[0].pid, std::chrono::milliseconds(200)), -1);
  EXPECT_FALSE(is_running(daemon.runs()[0].pid));
}

TEST_F(StartChild, whose_exec_failed_is_on_record_and_ends_with_127) {
  sandbox.environment["VELUND"] = "/does/not/exist";
  // The second probe holds velun up, so that it can be ended before it collects the child.
  std::atomic<int> probes = 0;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    return ++probes == 1 ? answer(503, "") : Reply{"", Ending::hang};
  });
  const pid_t velun = sandbox.start_velun({"start"});
  ASSERT_TRUE(eventually([&] { return probes == 2; }));
  kill(velun, SIGKILL);
  ASSERT_NE(wait_for(velun, std::chrono::seconds(10)), -1);
  // Only this process's own child or one that it adopted can be waited for.
  const pid_t pid = std::stoi(read_file(sandbox.pid_file()));
  EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(pid) + "\n");
  const int status = wait_for(pid, std::chrono::seconds(10));
  ASSERT_TRUE(status != -1 && WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 127);
  EXPECT_EQ(read_file(sandbox.output_file()), "could not start /does/not/exist: exec failed\n");
}

TEST_F(StartChild, has_a_session_and_a_process_group_of_its_own) {
  const ScriptedProgram daemon = install_daemon("exit 3");
  sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(daemon.runs()[0].session, daemon.runs()[0].pid);
  EXPECT_EQ(daemon.runs()[0].group, daemon.runs()[0].pid);
}

// All else that a program finds itself with when it begins.
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

// A start with nothing as it usually is; `pipe_action` is what SIGPIPE does.
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

TEST_F(StartChild, finds_all_else_as_velun_found_it) {
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

TEST_F(StartChild, runs_also_when_velun_cannot_print) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  EXPECT_EQ(seen(sandbox.velun({"mode", "watch"}, with_full_output())), success(""));
  EXPECT_EQ(daemon.runs().size(), 1U);
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

}  // namespace
}  // namespace velun::test
