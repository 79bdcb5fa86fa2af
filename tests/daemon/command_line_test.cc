#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "daemon/command_line.h"
#include "tests/support/lifecycle.h"

namespace velun::test {
namespace {

using Words = std::vector<std::string>;

/// The words for a default configuration, `after_quiet` in their place and `last` at the end.
Words argv_with(const Words& after_quiet, const Words& last) {
  Words argv = {"--anthropic-port", "8900", "--openai-port", "8901",
                "--control-port",   "8902", "--quiet"};
  argv.insert(argv.end(), after_quiet.begin(), after_quiet.end());
  argv.insert(argv.end(), {"--detector", "local", "--names"});
  argv.insert(argv.end(), last.begin(), last.end());
  return argv;
}

TEST(DaemonArgv, of_a_default_configuration_names_no_state_directory) {
  EXPECT_EQ(daemon_argv(Config()), argv_with({}, {}));
}

TEST(DaemonArgv, protects_in_mode_protect_only) {
  for (const char* mode : {"off", "watch", "monitor", "Protect", "protect ", "", "protect"}) {
    Config config;
    config.mode = mode;
    const Words protect = mode == std::string("protect") ? Words{"--protect"} : Words{};
    EXPECT_EQ(daemon_argv(config), argv_with(protect, {})) << mode;
  }
}

TEST(DaemonArgv, leaves_names_out_when_it_is_false) {
  Config config;
  config.names = false;
  Words expected = argv_with({}, {});
  expected.pop_back();
  EXPECT_EQ(daemon_argv(config), expected);
}

TEST(DaemonArgv, joins_applications_with_one_comma_and_keeps_empty_words_in_their_places) {
  Config config;
  config.intercept_apps = {"chatgpt"};
  EXPECT_EQ(daemon_argv(config),
            argv_with({}, {"--intercept", "chatgpt", "--intercept-port", "8903"}));
  config.intercept_apps = {"", "claude-desktop", "an app", ""};
  config.intercept_port = 4242;
  EXPECT_EQ(daemon_argv(config),
            argv_with({}, {"--intercept", ",claude-desktop,an app,", "--intercept-port", "4242"}));
}

TEST(DaemonArgv, leaves_the_interception_port_out_without_applications) {
  Config config;
  config.intercept_port = 4242;
  EXPECT_EQ(daemon_argv(config), argv_with({}, {}));
}

// The config file refuses the two together, so only the function can be asked.
TEST(DaemonArgv, prefers_an_endpoint_to_a_model_directory) {
  Config config;
  config.endpoint_url = "http://engine";
  config.model_dir = "/model";
  EXPECT_EQ(daemon_argv(config), argv_with({}, {"--model-endpoint", "http://engine"}));
}

// The whole vector that the daemon really receives, argument zero included.
class StartArguments : public Lifecycle {
 protected:
  void expect_flags(const std::string& lines, const Words& flags) {
    sandbox.configure(lines);
    const ScriptedProgram daemon = install_daemon("exit 3");
    Words expected = {daemon.path()};
    expected.insert(expected.end(), flags.begin(), flags.end());
    EXPECT_EQ(seen(sandbox.velun({"start"})), failure(exited_text(spaced(expected))));
    ASSERT_FALSE(daemon.runs().empty());
    EXPECT_EQ(daemon.runs().back().argv, expected);
  }

  void expect_state_dir(const std::string& lines, const std::string& state_dir) {
    Words flags = sandbox.daemon_flags();
    *std::next(std::find(flags.begin(), flags.end(), "--state-dir")) = state_dir;
    expect_flags(lines, flags);
  }
};

TEST_F(StartArguments, hand_an_engine_on_as_written) {
  expect_flags(
      "endpoint_url: 'http://engine.local:9/a b?c=\"d\"#e'\n",
      sandbox.daemon_flags({}, {"--model-endpoint", "http://engine.local:9/a b?c=\"d\"#e"}));
  const std::string model = sandbox.root().string() + "//a model\\\xff é/";
  std::filesystem::create_directory(model);
  expect_flags("model_dir: " + model + "\n", sandbox.daemon_flags({}, {"--model", model}));
}

TEST_F(StartArguments, keep_their_order_when_there_are_all_of_them) {
  expect_flags(
      "intercept_apps: [chatgpt]\nmodel_dir: " + sandbox.root().string() + "\nmode: protect\n",
      sandbox.daemon_flags({"--protect"}, {"--model", sandbox.root(), "--intercept", "chatgpt",
                                           "--intercept-port", "8903"}));
}

TEST_F(StartArguments, hand_the_state_directory_on_as_written_wherever_it_is_named) {
  const std::string root = sandbox.root().string();
  sandbox.environment["XDG_DATA_HOME"] = root + "/data";
  expect_state_dir("", root + "/data/velun");
  expect_state_dir("state_dir: " + root + "//state of mine/\n", root + "//state of mine/");
}

TEST_F(StartArguments, name_a_relative_state_directory_as_it_is) {
  sandbox.environment["HOME"] = "";
  sandbox.environment["VELUN_CLI_CONFIG"] = sandbox.config_file();
  expect_state_dir("", ".local/share/velun");
  EXPECT_TRUE(std::filesystem::exists(sandbox.root() / ".local/share/velun/velun-cli.pid"));
}

TEST_F(StartArguments, go_through_no_shell) {
  const std::string text = "http $(touch a) `touch b`; touch c & touch d | touch e > f *";
  expect_flags("endpoint_url: '" + text + "'\n",
               sandbox.daemon_flags({}, {"--model-endpoint", text}));
  EXPECT_EQ(names_in(sandbox.root()), (Words{"err", "home", "in", "out", "programs"}));
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
              std::to_string(sandbox.control_port()) + " --state-dir " +
              sandbox.state_dir().string() +
              " --quiet --detector local --names --intercept it's $HOME --intercept-port 8903\n"));
}

}  // namespace
}  // namespace velun::test
