#include <gtest/gtest.h>

#include "tests/support/bystander.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// `mode` writes the new mode to the file, then starts, restarts or stops the daemon.
class Mode : public Lifecycle {
 protected:
  Mode() { sandbox.configure(); }

  void expect_file(const std::string& mode) const {
    EXPECT_EQ(read_file(sandbox.config_file()), sandbox.rendering(mode));
  }

  void expect_start(const std::string& word, const std::vector<std::string>& flags) {
    sandbox.configure("mode: off\n");
    sandbox.write_pid_file("stale");
    const ScriptedProgram daemon = install_daemon("forever");
    const LoopbackServer control = port_of_daemon(daemon);
    const Outcome run = sandbox.velun({"mode", word});
    ASSERT_EQ(daemon.runs().size(), 1U);
    EXPECT_EQ(seen(run), success(sandbox.wrote() + running_text(daemon.runs()[0].pid, word)));
    EXPECT_EQ(spaced(daemon.runs()[0].argv),
              daemon.path() + " " + spaced(sandbox.daemon_flags(flags)));
    expect_file(word);
  }

  void expect_usage(const std::vector<std::string>& words) {
    const std::string before = read_file(sandbox.config_file());
    EXPECT_EQ(seen(sandbox.velun(words)), ended(2, "", "usage: velun mode off|watch|protect\n"))
        << spaced(words);
    EXPECT_EQ(read_file(sandbox.config_file()), before) << spaced(words);
  }
};

TEST_F(Mode, refuses_any_word_but_its_three_and_touches_nothing) {
  sandbox.write_pid_file("4711 as it was");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = answering_port();
  expect_usage({"mode"});
  for (const char* word : {"", "monitor", "Off", " off", "watch ", "protect\n", "of", "watching"}) {
    expect_usage({"mode", word});
  }
  EXPECT_EQ(control.requests().size(), 0U);
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_EQ(read_file(sandbox.pid_file()), "4711 as it was");
}

TEST_F(Mode, off_only_writes_the_file_if_no_daemon_answers_even_if_the_mode_was_off) {
  sandbox.configure("mode: off # as it was\n");
  const Bystander bystander;
  sandbox.write_pid_file(bystander.pid());
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(503, ""); });
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"})), success(sandbox.wrote()));
  expect_file("off");
  EXPECT_EQ(control.paths(), std::vector<std::string>{"/healthz"});
  EXPECT_EQ(read_file(sandbox.pid_file()), bystander.pid_text() + "\n");
  EXPECT_TRUE(bystander.alive());
}

TEST_F(Mode, off_stops_the_running_daemon) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const pid_t pid = launch_recorded(daemon);
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"})), success(sandbox.wrote() + "stopped\n"));
  expect_file("off");
  EXPECT_FALSE(is_running(pid));
  EXPECT_FALSE(fs::exists(sandbox.pid_file()));
  // mode asks once, and stop once more.
  EXPECT_EQ(control.paths(), (std::vector<std::string>{"/healthz", "/healthz"}));
}

TEST_F(Mode, watch_starts_a_stopped_daemon_despite_a_stale_pid_file) {
  expect_start("watch", {});
}

TEST_F(Mode, protect_starts_a_stopped_daemon_without_asking_for_a_model) {
  expect_start("protect", {"--protect"});
}

TEST_F(Mode, protect_restarts_a_running_daemon_with_the_program_beside_the_tool) {
  RunOptions options;
  options.program = copy_tool();
  const ScriptedProgram daemon(sandbox.root() / "bin/velund", "forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const pid_t old = launch_recorded(daemon);
  const Outcome run = sandbox.velun({"mode", "protect"}, options);
  ASSERT_EQ(daemon.runs().size(), 2U);
  EXPECT_EQ(seen(run),
            success(sandbox.wrote() + "stopped\n" + running_text(daemon.runs()[1].pid, "protect")));
  EXPECT_FALSE(is_running(old));
  EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(daemon.runs()[1].pid) + "\n");
  expect_file("protect");
}

TEST_F(Mode, given_again_rewrites_the_file_and_restarts_the_daemon) {
  sandbox.configure("mode: watch # as it was\n\n# a comment\nnames: yes\n");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  launch_recorded(daemon);
  const Outcome run = sandbox.velun({"mode", "watch"});
  ASSERT_EQ(daemon.runs().size(), 2U);
  EXPECT_EQ(seen(run),
            success(sandbox.wrote() + "stopped\n" + running_text(daemon.runs()[1].pid, "watch")));
  expect_file("watch");
}

TEST_F(Mode, asks_for_the_daemon_after_the_file_is_written) {
  std::string seen;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    seen = read_file(sandbox.config_file());
    return answer(503, "");
  });
  EXPECT_EQ(sandbox.velun({"mode", "off"}).status, 0);
  EXPECT_EQ(seen, sandbox.rendering("off"));
}

TEST_F(Mode, protect_stays_written_when_the_start_is_refused) {
  sandbox.configure("model_dir: /does/not/exist\n");
  EXPECT_EQ(seen(sandbox.velun({"mode", "protect"})),
            ended(1, sandbox.wrote(),
                  "model_dir does not exist: /does/not/exist\n"
                  "`velun help model` explains how to get a model.\n"));
  EXPECT_EQ(read_file(sandbox.config_file()),
            sandbox.rendering("protect", "model_dir: /does/not/exist\n"));
}

TEST_F(Mode, protect_fails_at_a_foreign_daemon_and_starts_nothing) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = answering_port();
  EXPECT_EQ(seen(sandbox.velun({"mode", "protect"})), ended(1, sandbox.wrote(), foreign_text()));
  EXPECT_EQ(daemon.runs().size(), 0U);
  expect_file("protect");
}

}  // namespace
}  // namespace velun::test
