#include <gtest/gtest.h>

#include "daemon/command_line.h"
#include "tests/support/lifecycle.h"

namespace velun::test {
namespace {

using Words = std::vector<std::string>;

TEST(DaemonArgv, of_a_default_configuration_names_no_state_directory) {
  EXPECT_EQ(daemon_argv(Config()),
            (Words{"--anthropic-port", "8900", "--openai-port", "8901", "--control-port", "8902",
                   "--quiet", "--detector", "local", "--names"}));
}

TEST(DaemonArgv, has_every_flag_in_its_place) {
  Config config;
  config.mode = "protect";
  config.model_dir = "/model";
  config.anthropic_port = 1;
  config.openai_port = 20;
  config.control_port = 65535;
  config.state_dir = "/state";
  config.intercept_apps = {"claude-desktop", "chatgpt"};
  config.intercept_port = 300;
  EXPECT_EQ(daemon_argv(config),
            (Words{"--anthropic-port", "1", "--openai-port", "20", "--control-port", "65535",
                   "--state-dir", "/state", "--quiet", "--protect", "--detector", "local",
                   "--names", "--model", "/model", "--intercept", "claude-desktop,chatgpt",
                   "--intercept-port", "300"}));
}

TEST(DaemonArgv, protects_in_mode_protect_only) {
  for (const char* mode : {"off", "watch", "monitor", "Protect", "protect ", ""}) {
    Config config;
    config.mode = mode;
    EXPECT_EQ(daemon_argv(config), daemon_argv(Config())) << mode;
  }
}

TEST(DaemonArgv, keeps_empty_words_in_their_places) {
  Config config;
  config.intercept_apps = {"", "chatgpt", ""};
  const Words argv = daemon_argv(config);
  ASSERT_EQ(argv.size(), 14U);
  EXPECT_EQ(Words(argv.begin() + 10, argv.end()),
            (Words{"--intercept", ",chatgpt,", "--intercept-port", "8903"}));
}

// The whole vector that the daemon really receives, argument zero included.
class StartArguments : public Lifecycle {
 protected:
  std::string state() const { return sandbox.state_dir().string(); }

  void expect_argv(const std::string& lines, const Words& behind_the_ports) {
    sandbox.configure(lines);
    const ScriptedProgram daemon = install_daemon("exit 3");
    Words expected = {daemon.path(),
                      "--anthropic-port",
                      std::to_string(sandbox.anthropic_port()),
                      "--openai-port",
                      std::to_string(sandbox.openai_port()),
                      "--control-port",
                      std::to_string(sandbox.control_port())};
    expected.insert(expected.end(), behind_the_ports.begin(), behind_the_ports.end());
    EXPECT_EQ(seen(sandbox.velun({"start"})), failure(exited_text(spaced(expected))));
    ASSERT_EQ(daemon.runs().size(), 1U);
    EXPECT_EQ(daemon.runs()[0].argv, expected);
  }
};

TEST_F(StartArguments, of_the_plainest_configuration) {
  expect_argv("", {"--state-dir", state(), "--quiet", "--detector", "local", "--names"});
}

TEST_F(StartArguments, add_protect_behind_quiet_in_mode_protect) {
  expect_argv("mode: protect\n",
              {"--state-dir", state(), "--quiet", "--protect", "--detector", "local", "--names"});
}

TEST_F(StartArguments, are_those_of_watch_for_the_old_word_monitor) {
  expect_argv("mode: monitor\n",
              {"--state-dir", state(), "--quiet", "--detector", "local", "--names"});
}

TEST_F(StartArguments, leave_names_out_when_it_is_false) {
  expect_argv("names: false\n", {"--state-dir", state(), "--quiet", "--detector", "local"});
}

TEST_F(StartArguments, hand_an_endpoint_on_as_written) {
  expect_argv("endpoint_url: 'http://engine.local:9/a b?c=\"d\"#e'\n",
              {"--state-dir", state(), "--quiet", "--detector", "local", "--names",
               "--model-endpoint", "http://engine.local:9/a b?c=\"d\"#e"});
}

TEST_F(StartArguments, hand_a_model_directory_on_as_written) {
  const std::string written = sandbox.root().string() + "//a model\\\xff é/";
  std::filesystem::create_directory(written);
  expect_argv("model_dir: " + written + "\n", {"--state-dir", state(), "--quiet", "--detector",
                                               "local", "--names", "--model", written});
}

// The config file refuses the two together, so only the function can be asked.
TEST(DaemonArgv, prefers_an_endpoint_to_a_model_directory) {
  Config config;
  config.endpoint_url = "http://engine";
  config.model_dir = "/model";
  EXPECT_EQ(daemon_argv(config), (Words{"--anthropic-port", "8900", "--openai-port", "8901",
                                        "--control-port", "8902", "--quiet", "--detector", "local",
                                        "--names", "--model-endpoint", "http://engine"}));
}

TEST_F(StartArguments, name_one_application_and_the_usual_interception_port) {
  expect_argv("intercept_apps: [chatgpt]\n",
              {"--state-dir", state(), "--quiet", "--detector", "local", "--names", "--intercept",
               "chatgpt", "--intercept-port", "8903"});
}

TEST_F(StartArguments, join_applications_with_one_comma_in_the_order_of_the_list) {
  expect_argv("intercept_apps: [claude-desktop,  chatgpt , \"an app\"]\nintercept_port: 4242\n",
              {"--state-dir", state(), "--quiet", "--detector", "local", "--names", "--intercept",
               "claude-desktop,chatgpt,an app", "--intercept-port", "4242"});
}

TEST_F(StartArguments, leave_the_interception_port_out_without_applications) {
  expect_argv("intercept_apps: []\nintercept_port: 4242\n",
              {"--state-dir", state(), "--quiet", "--detector", "local", "--names"});
}

TEST_F(StartArguments, hand_the_state_directory_on_as_written) {
  const std::string written = sandbox.root().string() + "//state of mine/";
  expect_argv("state_dir: " + written + "\n",
              {"--state-dir", written, "--quiet", "--detector", "local", "--names"});
}

TEST_F(StartArguments, name_the_state_directory_that_the_environment_gives) {
  const std::string named = sandbox.root().string() + "/from the environment/";
  sandbox.environment["VELUN_STATE_DIR"] = named;
  expect_argv("", {"--state-dir", named, "--quiet", "--detector", "local", "--names"});
}

TEST_F(StartArguments, name_the_state_directory_below_the_data_directory) {
  sandbox.environment["XDG_DATA_HOME"] = sandbox.root() / "data";
  expect_argv("", {"--state-dir", (sandbox.root() / "data/velun").string(), "--quiet", "--detector",
                   "local", "--names"});
}

TEST_F(StartArguments, name_a_relative_state_directory_as_it_is) {
  sandbox.environment["HOME"] = "";
  sandbox.environment["VELUN_CLI_CONFIG"] = sandbox.config_file();
  expect_argv("",
              {"--state-dir", ".local/share/velun", "--quiet", "--detector", "local", "--names"});
  EXPECT_TRUE(std::filesystem::exists(sandbox.root() / ".local/share/velun/velun-cli.pid"));
}

TEST_F(StartArguments, are_shown_without_quotes_or_escapes) {
  sandbox.configure("intercept_apps: [\"it's $HOME\"]\n");
  sandbox.environment["VELUND"] = "/does/not exist";
  EXPECT_EQ(
      seen(sandbox.velun({"start"})),
      failure("could not start /does/not exist: exec failed\n"
              "velund exited during startup — run it by hand to see why:\n"
              "  /does/not exist --anthropic-port " +
              std::to_string(sandbox.anthropic_port()) + " --openai-port " +
              std::to_string(sandbox.openai_port()) + " --control-port " +
              std::to_string(sandbox.control_port()) + " --state-dir " + state() +
              " --quiet --detector local --names --intercept it's $HOME --intercept-port 8903\n"));
}

}  // namespace
}  // namespace velun::test
