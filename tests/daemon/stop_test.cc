#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include "tests/support/bystander.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

using std::chrono::milliseconds;

// What `stop` does for each meeting of pid file, process and control port.
class Stop : public Lifecycle {
 protected:
  Stop() { sandbox.configure(); }

  std::string stop(const RunOptions& options = {}) {
    return seen(sandbox.velun({"stop"}, options));
  }

  // Leaves a line for every signal sent in the file "trace".
  Outcome stop_and_trace() {
    RunOptions traced;
    traced.program = "/usr/bin/strace";
    // The leak check at the exit of a sanitizer build cannot run under a tracer.
    sandbox.environment["ASAN_OPTIONS"] += ":detect_leaks=0";
    return sandbox.velun({"-qq", "-a1", "-otrace", "-esignal=none", "-etrace=kill,tkill,tgkill",
                          VELUN_BINARY, "stop"},
                         traced);
  }

  bool pid_file_exists() const { return fs::exists(sandbox.pid_file()); }
};

// velun does not check that the recorded process sent the answer.
TEST_F(Stop, ends_a_recorded_live_process_with_sigterm_whoever_it_is_that_answers) {
  const Bystander recorded;
  sandbox.write_pid_file(recorded.pid());
  write_file(sandbox.state_dir() / "control.token", "secret\n");
  const LoopbackServer control = answering_port();
  const Outcome run = sandbox.velun({"stop"});
  EXPECT_EQ(seen(run), success("stopped\n"));
  EXPECT_EQ(control.requests(),
            std::vector<std::string>{"GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:" + port_text() +
                                     "\r\n\r\n"});
  EXPECT_GE(run.took, milliseconds(100));
  EXPECT_FALSE(pid_file_exists());
  const int status = wait_for(recorded.pid(), std::chrono::seconds(10));
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_F(Stop, succeeds_also_when_it_cannot_print) {
  const ScriptedProgram daemon(sandbox.root() / "daemon", "forever");
  const pid_t pid = launch_recorded(daemon);
  const LoopbackServer control = answering_port();
  EXPECT_EQ(stop(with_full_output()), success(""));
  EXPECT_FALSE(is_running(pid));
  EXPECT_FALSE(pid_file_exists());
}

TEST_F(Stop, waits_for_a_daemon_that_ends_late) {
  const ScriptedProgram daemon(sandbox.root() / "daemon", "log-term\nuntil-term\nsleep 1500");
  const pid_t pid = launch_recorded(daemon);
  const LoopbackServer control = answering_port();
  const Outcome run = sandbox.velun({"stop"});
  EXPECT_EQ(seen(run), success("stopped\n"));
  EXPECT_GE(run.took, milliseconds(1500));
  EXPECT_FALSE(pid_file_exists());
  EXPECT_FALSE(is_running(pid));
}

TEST_F(Stop, looks_fifty_times_after_one_sigterm_and_sends_nothing_else) {
  const ScriptedProgram daemon(sandbox.root() / "daemon", "log-term\nforever");
  const std::string pid = std::to_string(launch_recorded(daemon));
  const LoopbackServer control = answering_port();
  const Outcome run = stop_and_trace();
  EXPECT_EQ(seen(run), failure("still running after 5 s — `kill -9 " + pid + "` if you mean it\n"));
  EXPECT_GE(run.took, milliseconds(5000));
  EXPECT_LT(run.took, milliseconds(15000));
  std::string trace = "kill(" + pid + ", 0) = 0\nkill(" + pid + ", SIGTERM) = 0\n";
  for (int look = 0; look < 50; ++look) {
    trace += "kill(" + pid + ", 0) = 0\n";
  }
  EXPECT_EQ(read_file(sandbox.root() / "trace"), trace);
  EXPECT_TRUE(is_running(std::stoi(pid)));
  EXPECT_EQ(read_file(sandbox.pid_file()), pid + "\n");
}

TEST_F(Stop, leaves_a_live_process_alone_when_no_daemon_answers) {
  const ScriptedProgram daemon(sandbox.root() / "daemon", "log-term\nforever");
  const pid_t pid = launch_recorded(daemon);
  const std::string number = std::to_string(pid);
  EXPECT_EQ(stop(), failure("the recorded pid " + number +
                            " is alive but no daemon answers on port " + port_text() +
                            " — not killing it; if it is a stuck daemon, `kill " + number + "`\n"));
  EXPECT_EQ(daemon.terms(), 0U);
  EXPECT_TRUE(is_running(pid));
  EXPECT_EQ(read_file(sandbox.pid_file()), number + "\n");
}

TEST_F(Stop, leaves_a_daemon_alone_that_was_started_by_hand) {
  const ScriptedProgram daemon(sandbox.root() / "daemon", "log-term\nforever");
  const pid_t pid = launch_by_hand(daemon);
  const LoopbackServer control = answering_port();
  EXPECT_EQ(stop(), failure(foreign_text()));
  EXPECT_EQ(daemon.terms(), 0U);
  EXPECT_TRUE(is_running(pid));
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

TEST_F(Stop, says_not_running_without_a_pid_file_and_creates_nothing) {
  EXPECT_EQ(stop(), success("not running\n"));
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

}  // namespace
}  // namespace velun::test
