#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <mutex>

#include "tests/support/bystander.h"
#include "tests/support/last_words.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

// The decisions of `start` before it forks, and a start that succeeds.
using Start = Lifecycle;

TEST_F(Start, records_the_child_and_reports_it_when_the_control_port_answers) {
  sandbox.configure("mode: protect\n");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  const RecordedRun started = daemon.runs()[0];
  EXPECT_EQ(seen(run), success("running (pid " + std::to_string(started.pid) +
                               ", mode protect)\ndashboard: http://127.0.0.1:" +
                               std::to_string(sandbox.control_port()) + "/\n"));
  EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(started.pid) + "\n");
  EXPECT_TRUE(is_running(started.pid));
}

TEST_F(Start, does_nothing_in_mode_off_and_sends_no_request) {
  sandbox.configure("mode: off\nmodel_dir: /does/not/exist\n");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = answering_port();
  EXPECT_EQ(seen(sandbox.velun({"start"})),
            success("mode is off — nothing to start (see `velun mode`)\n"));
  EXPECT_EQ(control.requests().size(), 0U);
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

TEST_F(Start, starts_no_second_daemon_if_one_already_answers) {
  sandbox.configure("model_dir: /does/not/exist\n");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = answering_port();
  EXPECT_EQ(seen(sandbox.velun({"start"})),
            success("already running on control port " + port_text() + "\n"));
  EXPECT_EQ(control.paths(), std::vector<std::string>{"/healthz"});
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

TEST_F(Start, leaves_the_pid_file_untouched_when_it_starts_nothing) {
  sandbox.write_pid_file("4711 as it was");
  for (const char* lines : {"mode: off\n", "model_dir: /does/not/exist\n"}) {
    sandbox.configure(lines);
    sandbox.velun({"start"});
    EXPECT_EQ(read_file(sandbox.pid_file()), "4711 as it was") << lines;
  }
  sandbox.configure();
  const LoopbackServer control = answering_port();
  sandbox.velun({"start"});
  EXPECT_EQ(read_file(sandbox.pid_file()), "4711 as it was");
}

class StartModelDir : public Lifecycle {
 protected:
  void expect_refused(const std::string& model_dir, const RunOptions& options = {}) {
    sandbox.configure("model_dir: " + model_dir + "\n");
    const ScriptedProgram daemon = install_daemon("exit 3");
    EXPECT_EQ(seen(sandbox.velun({"start"}, options)),
              failure("model_dir does not exist: " + model_dir +
                      "\n`velun help model` explains how to get a model.\n"));
    EXPECT_EQ(daemon.runs().size(), 0U);
    EXPECT_FALSE(fs::exists(sandbox.state_dir()));
  }
};

TEST_F(StartModelDir, that_is_missing_is_refused_before_anything_is_created) {
  expect_refused((sandbox.root() / "no model").string());
}

TEST_F(StartModelDir, that_cannot_be_accessed_counts_as_missing) {
  const fs::path closed = sandbox.root() / "closed";
  fs::create_directories(closed / "model");
  fs::permissions(closed, fs::perms::none);
  expect_refused((closed / "model").string(), without_powers());
}

TEST_F(StartModelDir, that_is_a_regular_file_or_relative_is_accepted_as_written) {
  write_file(sandbox.root() / "model", "");
  const ScriptedProgram daemon = install_daemon("exit 3");
  for (const std::string& model : {(sandbox.root() / "model").string(), std::string("model")}) {
    sandbox.configure("model_dir: " + model + "\n");
    EXPECT_EQ(seen(sandbox.velun({"start"})),
              failure(exited_text(daemon.path() + " " +
                                  spaced(sandbox.daemon_flags({}, {"--model", model})))));
  }
}

// The pid file and the state directory of `start`.
using StartFiles = Lifecycle;

TEST_F(StartFiles, pid_file_of_a_live_process_is_replaced_and_the_process_left_alone) {
  sandbox.configure();
  const Bystander bystander;
  sandbox.write_pid_file(bystander.pid_text() + " and more\nthan one line\n");
  const ScriptedProgram daemon = install_daemon("exit 0");
  EXPECT_EQ(sandbox.velun({"start"}).status, 1);
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(daemon.runs()[0].pid) + "\n");
  EXPECT_TRUE(bystander.alive());
}

TEST_F(StartFiles, pid_file_that_cannot_be_written_goes_unreported) {
  sandbox.configure();
  fs::create_directories(sandbox.pid_file() / "in the way");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
  EXPECT_EQ(names_in(sandbox.pid_file()), std::vector<std::string>{"in the way"});
}

TEST_F(StartFiles, pid_that_does_not_fit_on_the_disk_goes_unreported) {
  sandbox.configure();
  fs::create_directories(sandbox.state_dir());
  fs::create_symlink("/dev/full", sandbox.pid_file());
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
}

TEST_F(StartFiles, state_directory_that_cannot_be_created_ends_the_process_abnormally) {
  write_file(sandbox.root() / "file", "not a directory");
  sandbox.configure();
  const ScriptedProgram daemon = install_daemon("forever");
  for (const std::string directory : {"", "file", "file/state"}) {
    sandbox.environment["VELUN_STATE_DIR"] = directory;
    const Outcome run = sandbox.velun({"start"});
    EXPECT_EQ(run.signal, SIGABRT) << directory;
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(cannot("create directories")), std::string::npos) << run.err;
  }
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_EQ(read_file(sandbox.root() / "file"), "not a directory");
}

TEST_F(StartFiles, have_the_permissions_that_the_file_creation_mask_leaves) {
  sandbox.configure();
  install_daemon("exit 0");
  for (const mode_t mask : {0U, 022U, 077U}) {
    const fs::path directory = sandbox.root() / ("mask" + std::to_string(mask)) / "state";
    sandbox.environment["VELUN_STATE_DIR"] = directory;
    RunOptions options;
    options.in_child = [mask] { umask(mask); };
    sandbox.velun({"start"}, options);
    EXPECT_EQ(mode_of(directory), 0777 & ~mask);
    EXPECT_EQ(mode_of(directory / "velun-cli.pid"), 0666 & ~mask);
  }
}

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
  std::mutex mutex;
  std::vector<Clock::time_point> asked;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    const std::lock_guard lock(mutex);
    asked.push_back(Clock::now());
    return asked.size() == 1   ? answer(503, "")
           : asked.size() <= 5 ? Reply{"", Ending::hang}
                               : answer(200, "ok");
  });
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
  ASSERT_EQ(asked.size(), 6U);
  auto shortest = Clock::duration::max();
  for (std::size_t i = 2; i < asked.size(); ++i) {
    shortest = std::min(shortest, asked[i] - asked[i - 1]);
  }
  EXPECT_GE(shortest, milliseconds(590));
  EXPECT_LT(shortest, milliseconds(1000));
}

TEST_F(StartWait, accepts_an_answer_even_if_the_child_has_forked_and_ended) {
  const ScriptedProgram daemon = install_daemon("fork\nforever");
  std::atomic<int> probes = 0;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    return ++probes == 1 ? answer(503, "") : answer(200, "ok");
  });
  const Outcome run = sandbox.velun({"start"});
  ASSERT_TRUE(eventually([&] { return daemon.runs().size() == 2; }));
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
  EXPECT_EQ(wait_for(daemon.runs()[0].pid, std::chrono::seconds(10)), 0);
  // The process that runs on was never recorded.
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
  // The first request finds out whether a daemon runs already.
  EXPECT_EQ(control.requests(),
            std::vector<std::string>(
                51, "GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:" + port_text() + "\r\n\r\n"));
  EXPECT_TRUE(is_running(daemon.runs()[0].pid));
  EXPECT_EQ(daemon.terms(), 0U);
  EXPECT_EQ(read_file(sandbox.pid_file()), pid + "\n");
}

}  // namespace
}  // namespace velun::test
