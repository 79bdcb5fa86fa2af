#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

#include "tests/support/lifecycle.h"

namespace velun::test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// How `start` waits for the control port.
class StartWait : public Lifecycle {
 protected:
  StartWait() { sandbox.configure(); }
};

TEST_F(StartWait, pauses_a_tenth_of_a_second_before_every_try) {
  const ScriptedProgram daemon = install_daemon("forever");
  std::mutex mutex;
  std::vector<Clock::time_point> asked;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    const std::lock_guard lock(mutex);
    asked.push_back(Clock::now());
    return asked.size() < 5 ? answer(503, "") : answer(200, "ok");
  });
  EXPECT_EQ(sandbox.velun({"start"}).status, 0);
  ASSERT_EQ(asked.size(), 5U);
  for (std::size_t i = 1; i < asked.size(); ++i) {
    EXPECT_GE(asked[i] - asked[i - 1], milliseconds(100)) << "try " << i;
  }
}

TEST_F(StartWait, gives_a_mute_listener_half_a_second_and_asks_again) {
  const ScriptedProgram daemon = install_daemon("forever");
  std::atomic<int> probes = 0;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    const int probe = ++probes;
    return probe == 1 ? answer(503, "") : probe <= 5 ? Reply{"", Ending::hang} : answer(200, "ok");
  });
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
  EXPECT_EQ(probes, 6);
  EXPECT_GE(run.took, milliseconds(4 * 600));
  EXPECT_LT(run.took, milliseconds(4 * 2000)) << "the usual limit of a call";
}

TEST_F(StartWait, accepts_an_answer_at_the_last_try) {
  const ScriptedProgram daemon = install_daemon("forever");
  std::atomic<int> probes = 0;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    return ++probes <= 50 ? answer(503, "not yet") : answer(200, "ok");
  });
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
}

TEST_F(StartWait, believes_an_answer_though_the_child_has_forked_and_ended) {
  const ScriptedProgram daemon = install_daemon("fork\nforever");
  std::atomic<int> probes = 0;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    return ++probes == 1 ? answer(503, "") : answer(200, "ok");
  });
  const Outcome run = sandbox.velun({"start"});
  ASSERT_TRUE(eventually([&] { return daemon.runs().size() == 2; }));
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
  EXPECT_EQ(wait_for(daemon.runs()[0].pid, std::chrono::seconds(10)), 0);
  // What goes on running was never recorded.
  EXPECT_EQ(seen(sandbox.velun({"stop"})), failure(foreign_text()));
  EXPECT_TRUE(is_running(daemon.runs()[1].pid));
}

TEST_F(StartWait, gives_up_after_fifty_tries_and_leaves_the_child_running) {
  const ScriptedProgram daemon = install_daemon("log-term\nforever");
  write_file(sandbox.state_dir() / "control.token", "secret\n");
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(503, "not yet"); });
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  const std::string pid = std::to_string(daemon.runs()[0].pid);
  EXPECT_EQ(seen(run),
            failure("started (pid " + pid + ") but the control port did not answer in 5 s\n"));
  EXPECT_GE(run.took, milliseconds(5000));
  EXPECT_LT(run.took, milliseconds(15000));
  // The first one is the question whether a daemon runs already.
  EXPECT_EQ(control.requests(),
            std::vector<std::string>(
                51, "GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:" + port_text() + "\r\n\r\n"));
  EXPECT_TRUE(is_running(daemon.runs()[0].pid));
  EXPECT_EQ(daemon.terms(), 0U);
  EXPECT_EQ(read_file(sandbox.pid_file()), pid + "\n");
}

}  // namespace
}  // namespace velun::test
