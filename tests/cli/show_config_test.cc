#include <gtest/gtest.h>

#include "tests/support/dialogue.h"
#include "tests/support/loopback_server.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

const std::string head = "# Velun CLI configuration. `velun help config` documents every key.\n";

class ShowConfig : public ::testing::Test {
 protected:
  Sandbox sandbox;
  const std::string file = sandbox.config_file();
};

TEST_F(ShowConfig, a_file_that_sets_only_the_mode_shows_the_defaults_of_all_other_keys) {
  write_file(file, "mode: protect\n");
  EXPECT_EQ(seen(sandbox.velun({"config"})),
            success("file: " + file + "\n\n" + written("protect")));
}

TEST_F(ShowConfig, shows_the_effective_values_in_the_form_of_a_save) {
  write_file(file,
             "# mine\r\nintercept_apps: ['claude-desktop',  \"chatgpt\",]\r\n"
             "names: off # floor\r\n\r\nopenai_port: 009102\r\n"
             "endpoint_url: https://engine.example:8443\r\nmode: monitor\r\n"
             "state_dir: '/srv/my state'\r\n");
  EXPECT_EQ(seen(sandbox.velun({"config"})),
            success("file: " + file + "\n\n" + head +
                    "mode: watch\nendpoint_url: \"https://engine.example:8443\"\n"
                    "anthropic_port: 8900\nopenai_port: 9102\ncontrol_port: 8902\n"
                    "state_dir: /srv/my state\nnames: false\n"
                    "intercept_apps: [claude-desktop, chatgpt]\nintercept_port: 8903\n"));
}

// Each key with another value than its default, in the form and order of a save.
TEST_F(ShowConfig, shows_every_documented_key_exactly_as_a_save_writes_it) {
  const std::string model = "model_dir: \"/m: #1\"\n";
  const std::string engine = "endpoint_url: httpd\n";
  const std::string ports =
      "anthropic_port: 1\nopenai_port: 2\ncontrol_port: " + std::to_string(sandbox.control_port()) +
      "\n";
  const std::string rest =
      "state_dir: /s\nnames: false\nintercept_apps: [a b, c]\nintercept_port: 3\n";
  for (const std::string& detection : {model, engine}) {
    const std::string text = head + "mode: off\n" + detection + ports + rest;
    write_file(file, text);
    EXPECT_EQ(seen(sandbox.velun({"config"})), success("file: " + file + "\n\n" + text));
    EXPECT_EQ(seen(sandbox.velun({"mode", "off"})), success(sandbox.wrote()));
    EXPECT_EQ(read_file(file), text);
  }
}

TEST_F(ShowConfig, writes_nothing_and_asks_no_daemon) {
  sandbox.configure("# mine\n");
  const std::string before = read_file(file);
  fs::permissions(file, fs::perms::owner_read);
  const auto saved = fs::last_write_time(file);
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(200, "ok"); });
  EXPECT_EQ(sandbox.velun({"config"}).status, 0);
  EXPECT_EQ(control.requests(), std::vector<std::string>{});
  EXPECT_EQ(read_file(file), before);
  EXPECT_EQ(fs::last_write_time(file), saved);
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>{".config"});
}

}  // namespace
}  // namespace velun::test
