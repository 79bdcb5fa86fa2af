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
};

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

TEST_F(Restart, of_nothing_says_so_and_starts) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const Outcome run = sandbox.velun({"restart"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success("not running\n" + running_text(daemon.runs()[0].pid, "watch")));
}

TEST_F(Restart, starts_nothing_when_the_stop_fails) {
  const ScriptedProgram daemon = install_daemon("forever");
  const Bystander bystander;
  sandbox.write_pid_file(bystander.pid());
  EXPECT_EQ(seen(sandbox.velun({"restart"})), failure(silent_text(bystander.pid())));
  EXPECT_EQ(daemon.runs().size(), 0U);
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

}  // namespace
}  // namespace velun::test
