#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/bystander.h"
#include "tests/support/dialogue.h"
#include "tests/support/loopback_server.h"
#include "tests/support/scripted_program.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class SetupFile : public SetupDialogue {};

TEST_F(SetupFile, a_kept_model_named_none_is_cleared) {
  give_file("mode: protect\nmodel_dir: none\n");
  expect_dialogue("\n\n", transcript("protect", "none", protect_warning), written("protect"));
}

TEST_F(SetupFile, the_keys_that_are_not_asked_about_are_written_back) {
  give_file(
      "# mine\nintercept_port: 9004\nintercept_apps: [claude-desktop, chatgpt]\nnames: no\n"
      "state_dir: '/srv/a b #1'\ncontrol_port: 9003\nopenai_port: 9002\nanthropic_port: 9001\n"
      "mode: watch\n");
  expect_dialogue("off\n/data/m\n", transcript("watch", "none"),
                  "# Velun CLI configuration. `velun help config` documents every key.\n"
                  "mode: off\nmodel_dir: /data/m\n"
                  "anthropic_port: 9001\nopenai_port: 9002\ncontrol_port: 9003\n"
                  "state_dir: \"/srv/a b #1\"\nnames: false\n"
                  "intercept_apps: [claude-desktop, chatgpt]\nintercept_port: 9004\n");
}

TEST_F(SetupFile, the_good_keys_of_a_faulty_file_are_offered_and_the_rest_is_reported) {
  give_file("mode: protect\nmodel_dir: /data/m\ncontrol_port: 0\nopenai_port: 9002\ncolour: red\n");
  EXPECT_EQ(seen(given("\n\n")),
            ended(0, transcript("protect", "/data/m"),
                  sandbox.config_file().string() +
                      " has problems:\n"
                      "  line 5: unknown key `colour`\n"
                      "  line 3: control_port must be a port between 1 and 65535\n"));
  EXPECT_EQ(file(),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: protect\nmodel_dir: /data/m\nanthropic_port: 8900\nopenai_port: 9002\n"
            "control_port: 8902\nnames: true\n");
}

TEST_F(SetupFile, of_a_model_and_an_engine_both_configured_the_model_is_offered_and_kept_alone) {
  give_file("model_dir: /data/m\nendpoint_url: http://engine\n");
  EXPECT_EQ(seen(given("\n\n")),
            ended(0, transcript("watch", "/data/m"),
                  sandbox.config_file().string() +
                      " has problems:\n  model_dir and endpoint_url exclude each other — the "
                      "daemon runs one detection engine per launch\n"));
  EXPECT_EQ(file(), written("watch", "model_dir: /data/m\n"));
}

TEST_F(SetupFile, an_unreadable_file_offers_the_defaults_without_a_report) {
  give_file("mode: protect\n");
  fs::permissions(sandbox.config_file(), fs::perms::owner_write);
  RunOptions options;
  options.program = sandbox.root() / "velun";
  fs::copy_file(VELUN_BINARY, options.program);
  options.as_nobody = true;
  EXPECT_EQ(seen(sandbox.velun({"setup"}, options)), success(transcript("watch", "none")));
  fs::permissions(sandbox.config_file(), fs::perms::owner_all);
  EXPECT_EQ(file(), written("watch"));
}

TEST_F(SetupFile, the_daemon_is_left_alone) {
  sandbox.configure("mode: protect\nmodel_dir: /data/m\n");
  const ScriptedProgram daemon(sandbox.root() / "daemon", "forever");
  sandbox.environment["VELUND"] = daemon.path();
  const Bystander recorded;
  sandbox.write_pid_file(recorded.pid());
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(200, "ok"); });
  EXPECT_EQ(given("off\nnone\n").status, 0);
  EXPECT_EQ(control.requests(), std::vector<std::string>());
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_TRUE(recorded.alive());
  EXPECT_EQ(read_file(sandbox.pid_file()), recorded.pid_text() + "\n");
  EXPECT_EQ(file(), sandbox.rendering("off"));
}

}  // namespace
}  // namespace velun::test
