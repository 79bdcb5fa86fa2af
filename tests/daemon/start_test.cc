#include <gtest/gtest.h>

#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// What `start` decides before it forks, and what it says and records when all goes well.
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

TEST_F(Start, does_nothing_in_mode_off_and_asks_nobody) {
  sandbox.configure("mode: off\nmodel_dir: /does/not/exist\n");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = answering_port();
  EXPECT_EQ(seen(sandbox.velun({"start"})),
            success("mode is off — nothing to start (see `velun mode`)\n"));
  EXPECT_EQ(control.requests().size(), 0U);
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

TEST_F(Start, leaves_a_daemon_alone_that_already_answers) {
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

// The rest is about the model directory.
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

  void expect_accepted(const fs::path& model_dir) {
    sandbox.configure("model_dir: " + model_dir.string() + "\n");
    const ScriptedProgram daemon = install_daemon("exit 3");
    EXPECT_EQ(
        seen(sandbox.velun({"start"})),
        failure(exited_text(daemon.path() + " " +
                            spaced(sandbox.daemon_flags({}, {"--model", model_dir.string()})))));
    EXPECT_EQ(daemon.runs().size(), 1U);
  }
};

TEST_F(StartModelDir, that_is_missing_is_refused_before_anything_is_created) {
  expect_refused((sandbox.root() / "no model").string());
}

TEST_F(StartModelDir, that_may_not_be_looked_at_counts_as_missing) {
  const fs::path closed = sandbox.root() / "closed";
  fs::create_directories(closed / "model");
  fs::permissions(closed, fs::perms::none);
  expect_refused((closed / "model").string(), without_powers());
}

TEST_F(StartModelDir, that_is_a_regular_file_is_accepted) {
  write_file(sandbox.root() / "model", "");
  expect_accepted(sandbox.root() / "model");
}

TEST_F(StartModelDir, that_is_relative_is_looked_up_from_the_working_directory) {
  fs::create_directory(sandbox.root() / "model");
  expect_accepted("model");
}

}  // namespace
}  // namespace velun::test
