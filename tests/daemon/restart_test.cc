#include <gtest/gtest.h>

#include "tests/support/bystander.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// `restart`: a stop, and a start behind it only when the stop went well.
class Restart : public Lifecycle {
 protected:
  Restart() { sandbox.configure(); }

  void expect_refused(const std::string& err, const ScriptedProgram& daemon) {
    const std::size_t before = daemon.runs().size();
    EXPECT_EQ(seen(sandbox.velun({"restart"})), failure(err));
    EXPECT_EQ(daemon.runs().size(), before);
  }
};

TEST_F(Restart, replaces_the_running_daemon) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const pid_t old = launch_recorded(daemon);
  const Outcome run = sandbox.velun({"restart"});
  ASSERT_EQ(daemon.runs().size(), 2U);
  const pid_t fresh = daemon.runs()[1].pid;
  EXPECT_EQ(seen(run), success("stopped\n" + running_text(fresh, "watch")));
  EXPECT_FALSE(is_running(old));
  EXPECT_TRUE(is_running(fresh));
  EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(fresh) + "\n");
}

TEST_F(Restart, of_nothing_says_so_and_starts) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const Outcome run = sandbox.velun({"restart"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success("not running\n" + running_text(daemon.runs()[0].pid, "watch")));
}

TEST_F(Restart, hands_the_daemon_the_flags_of_the_configuration) {
  sandbox.configure("mode: protect\n");
  const ScriptedProgram daemon = install_daemon("exit 3");
  const Outcome run = sandbox.velun({"restart"});
  std::vector<std::string> expected = sandbox.daemon_flags({"--protect"});
  expected.insert(expected.begin(), daemon.path());
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(daemon.runs()[0].argv, expected);
  EXPECT_EQ(seen(run), ended(1, "not running\n", exited_text(spaced(expected))));
}

TEST_F(Restart, starts_nothing_while_a_foreign_daemon_answers) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = answering_port();
  expect_refused(foreign_text(), daemon);
  EXPECT_EQ(control.requests().size(), 1U);
}

TEST_F(Restart, starts_nothing_while_the_recorded_process_lives_and_nothing_answers) {
  const ScriptedProgram daemon = install_daemon("forever");
  const Bystander bystander;
  sandbox.write_pid_file(bystander.pid());
  expect_refused(silent_text(bystander.pid()), daemon);
  EXPECT_TRUE(bystander.alive());
  EXPECT_EQ(read_file(sandbox.pid_file()), bystander.pid_text() + "\n");
}

TEST_F(Restart, starts_nothing_while_the_old_daemon_ignores_sigterm) {
  const ScriptedProgram daemon = install_daemon("log-term\nforever");
  const LoopbackServer control = port_of_daemon(daemon);
  const pid_t old = launch_recorded(daemon);
  expect_refused(still_running_text(old), daemon);
  EXPECT_EQ(daemon.terms(), 1U);
  EXPECT_TRUE(is_running(old));
}

TEST_F(Restart, only_stops_in_mode_off) {
  sandbox.configure("mode: off\n");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const pid_t old = launch_recorded(daemon);
  EXPECT_EQ(seen(sandbox.velun({"restart"})),
            success("stopped\nmode is off — nothing to start (see `velun mode`)\n"));
  EXPECT_FALSE(is_running(old));
  EXPECT_FALSE(fs::exists(sandbox.pid_file()));
  EXPECT_EQ(daemon.runs().size(), 1U);
}

TEST_F(Restart, has_stopped_the_daemon_when_the_start_is_refused) {
  sandbox.configure("model_dir: /does/not/exist\n");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const pid_t old = launch_recorded(daemon);
  EXPECT_EQ(seen(sandbox.velun({"restart"})),
            ended(1, "stopped\n",
                  "model_dir does not exist: /does/not/exist\n"
                  "`velun help model` explains how to get a model.\n"));
  EXPECT_FALSE(is_running(old));
}

TEST_F(Restart, finds_a_daemon_that_came_up_behind_the_stop) {
  const ScriptedProgram daemon = install_daemon("forever");
  launch_recorded(daemon);
  const LoopbackServer control = answering_port();
  EXPECT_EQ(seen(sandbox.velun({"restart"})),
            success("stopped\nalready running on control port " + port_text() + "\n"));
  EXPECT_EQ(daemon.runs().size(), 1U);
  EXPECT_FALSE(fs::exists(sandbox.pid_file()));
}

}  // namespace
}  // namespace velun::test
