#include <gtest/gtest.h>
#include <signal.h>

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

  std::string gave_up_text(const ScriptedProgram& daemon) const {
    const std::vector<RecordedRun> runs = daemon.runs();
    return "started (pid " + (runs.empty() ? "none" : std::to_string(runs[0].pid)) +
           ") but the control port did not answer in 5 s\n";
  }
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

TEST_F(StartWait, asks_for_health_only) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  write_file(sandbox.state_dir() / "control.token", "secret\n");
  EXPECT_EQ(sandbox.velun({"start"}).status, 0);
  ASSERT_GE(control.requests().size(), 2U);
  for (const std::string& request : control.requests()) {
    EXPECT_EQ(request, "GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:" + port_text() + "\r\n\r\n");
  }
}

TEST_F(StartWait, accepts_a_control_port_that_answers_late) {
  const ScriptedProgram daemon = install_daemon("forever");
  std::atomic<int> probes = 0;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    return ++probes <= 20 ? answer(503, "not yet") : answer(200, "ok");
  });
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
  EXPECT_EQ(probes, 21);
  EXPECT_GE(run.took, milliseconds(2000));
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

TEST_F(StartWait, asks_before_it_looks_whether_the_child_has_ended) {
  const ScriptedProgram daemon = install_daemon("exit 3");
  std::atomic<int> probes = 0;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    return ++probes == 1 ? answer(503, "") : answer(200, "ok");
  });
  const Outcome run = sandbox.velun({"start"});
  ASSERT_TRUE(eventually([&] { return daemon.runs().size() == 1; }));
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
}

TEST_F(StartWait, gives_up_after_five_seconds_and_leaves_the_child_running) {
  const ScriptedProgram daemon = install_daemon("log-term\nforever");
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), failure(gave_up_text(daemon)));
  EXPECT_GE(run.took, milliseconds(5000));
  EXPECT_LT(run.took, milliseconds(15000));
  EXPECT_TRUE(is_running(daemon.runs()[0].pid));
  EXPECT_EQ(daemon.terms(), 0U);
  EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(daemon.runs()[0].pid) + "\n");
}

TEST_F(StartWait, tries_fifty_times_after_the_first_question) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(503, "not yet"); });
  const Outcome run = sandbox.velun({"start"});
  EXPECT_EQ(run.err, gave_up_text(daemon));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(control.requests().size(), 51U);
}

TEST_F(StartWait, does_not_take_an_empty_answer_for_a_daemon) {
  const ScriptedProgram daemon = install_daemon("sleep 500\nexit 3");
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(200, ""); });
  const Outcome run = sandbox.velun({"start"});
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, exited_text(daemon.path() + " " + spaced(sandbox.daemon_flags())));
}

}  // namespace
}  // namespace velun::test
