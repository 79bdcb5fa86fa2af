#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "daemon/lifecycle.h"
#include "tests/support/bystander.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

using std::chrono::milliseconds;

TEST(RecordedPid, is_one_decimal_number_up_to_the_first_other_character) {
  for (const std::string text : {"4711", "4711\n", "+4711", "0004711", " \t\n\v\f\r4711", "4711x",
                                 "4711 1\n2", "4711.9", "4711,000", "4711e3", "4711-"}) {
    EXPECT_EQ(recorded_pid(text), 4711) << testing::PrintToString(text);
  }
  EXPECT_EQ(recorded_pid(std::string("4711\0001", 6)), 4711);
  EXPECT_EQ(recorded_pid("1"), 1);
  EXPECT_EQ(recorded_pid("2147483647"), 2147483647);
}

TEST(RecordedPid, is_none_without_a_positive_number_that_fits_a_pid) {
  for (const std::string text :
       {"", " \t\r\n\n", "0\n", "-0", "-4711", "+ 4711", "++4711", "0x1267", "x4711", ".4711",
        "\357\273\2774711", "2147483648", "4294972007", "123456789012345678901234567890",
        "-123456789012345678901234567890"}) {
    EXPECT_EQ(recorded_pid(text), std::nullopt) << testing::PrintToString(text);
  }
  EXPECT_EQ(recorded_pid(std::string("\0004711", 5)), std::nullopt);
}

// Rules of `stop`. The matrix does not test most of them, or tests them only as root.
class Stop : public Lifecycle {
 protected:
  Stop() { sandbox.configure(); }

  std::string stop(const RunOptions& options = {}) {
    return seen(sandbox.velun({"stop"}, options));
  }
};

using Restart = Stop;

// velun does not check that the recorded process sent the answer.
TEST_F(Stop, signals_a_recorded_live_process_even_if_another_program_answers) {
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
  EXPECT_FALSE(fs::exists(sandbox.pid_file()));
  const int status = wait_for(recorded.pid(), std::chrono::seconds(10));
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_F(Stop, looks_fifty_times_after_one_sigterm_and_sends_nothing_else) {
  const ScriptedProgram daemon(sandbox.root() / "daemon", "log-term\nforever");
  const std::string pid = std::to_string(launch_recorded(daemon));
  const LoopbackServer control = answering_port();
  RunOptions traced;
  traced.program = "/usr/bin/strace";
  // The leak check at the exit of a sanitizer build cannot run under a tracer.
  sandbox.environment["ASAN_OPTIONS"] += ":detect_leaks=0";
  const Outcome run = sandbox.velun(
      {"-qq", "-a1", "-otrace", "-esignal=none", "-etrace=kill,tkill,tgkill", VELUN_BINARY, "stop"},
      traced);
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

TEST_F(Stop, says_not_running_without_a_pid_file_and_creates_nothing) {
  EXPECT_EQ(stop(), success("not running\n"));
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

TEST_F(Stop, reads_and_removes_the_pid_file_of_the_configured_state_directory) {
  const Bystander bystander;
  const fs::path elsewhere = sandbox.root() / "elsewhere";
  sandbox.configure("state_dir: " + elsewhere.string() + "\n");
  sandbox.write_pid_file(bystander.pid());
  write_file(elsewhere / "velun-cli.pid", "stale");
  EXPECT_EQ(stop(), success("not running\n"));
  EXPECT_FALSE(fs::exists(elsewhere / "velun-cli.pid"));
  EXPECT_EQ(read_file(sandbox.pid_file()), bystander.pid_text() + "\n");
}

// The matrix tests this too, but only as root.
TEST_F(Stop, treats_a_process_of_another_user_as_gone) {
  const Bystander bystander;
  const pid_t others = geteuid() == 0 ? bystander.pid() : 1;
  if (geteuid() != 0 && kill(others, 0) == 0) {
    GTEST_SKIP() << "every process may be signalled here";
  }
  sandbox.write_pid_file(others);
  {
    const LoopbackServer control = answering_port();
    EXPECT_EQ(stop(without_powers()), failure(foreign_text()));
    EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(others) + "\n");
  }
  EXPECT_EQ(stop(without_powers()), success("not running\n"));
  EXPECT_FALSE(fs::exists(sandbox.pid_file()));
  EXPECT_TRUE(bystander.alive());
}

TEST_F(Stop, does_not_report_a_pid_file_that_it_cannot_remove) {
  sandbox.write_pid_file("stale");
  fs::permissions(sandbox.state_dir(), fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(stop(without_powers()), success("not running\n"));
  EXPECT_EQ(read_file(sandbox.pid_file()), "stale");
}

TEST_F(Restart, replaces_the_running_daemon) {
  sandbox.configure("mode: protect\n");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const pid_t old = launch_recorded(daemon);
  const Outcome run = sandbox.velun({"restart"});
  ASSERT_EQ(daemon.runs().size(), 2U);
  const pid_t fresh = daemon.runs()[1].pid;
  EXPECT_EQ(seen(run), success("stopped\n" + running_text(fresh, "protect")));
  EXPECT_FALSE(is_running(old));
  EXPECT_TRUE(is_running(fresh));
  EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(fresh) + "\n");
}

TEST_F(Restart, starts_nothing_when_the_stop_fails) {
  const ScriptedProgram daemon = install_daemon("forever");
  const Bystander bystander;
  sandbox.write_pid_file(bystander.pid());
  EXPECT_EQ(seen(sandbox.velun({"restart"})), failure(silent_text(bystander.pid())));
  EXPECT_EQ(daemon.runs().size(), 0U);
}

}  // namespace
}  // namespace velun::test
