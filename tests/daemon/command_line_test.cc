#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "daemon/command_line.h"
#include "tests/support/environment_variable.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

using Words = std::vector<std::string>;

/// The arguments for a default configuration, with `after_quiet` behind "--quiet" and `last` at the
/// end.
Words argv_with(const Words& after_quiet, const Words& last) {
  Words argv = {"--anthropic-port", "8900", "--openai-port", "8901",
                "--control-port",   "8902", "--quiet"};
  argv.insert(argv.end(), after_quiet.begin(), after_quiet.end());
  argv.insert(argv.end(), {"--detector", "local", "--names"});
  argv.insert(argv.end(), last.begin(), last.end());
  return argv;
}

TEST(DaemonArgv, without_applications_has_no_interception_port) {
  Config config;
  EXPECT_EQ(daemon_argv(config), argv_with({}, {}));
  config.intercept_port = 4242;
  EXPECT_EQ(daemon_argv(config), argv_with({}, {}));
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

// A config file cannot have both, so no process can show this.
TEST(DaemonArgv, prefers_an_endpoint_to_a_model_directory) {
  Config config;
  config.endpoint_url = "http://engine";
  config.model_dir = "/model";
  EXPECT_EQ(daemon_argv(config), argv_with({}, {"--model-endpoint", "http://engine"}));
}

TEST(DaemonArgv, has_every_flag_in_its_place) {
  Config config;
  config.mode = "protect";
  config.state_dir = "/state";
  config.model_dir = "/model";
  config.intercept_apps = {"chatgpt"};
  EXPECT_EQ(
      daemon_argv(config),
      (Words{"--anthropic-port", "8900", "--openai-port", "8901", "--control-port", "8902",
             "--state-dir", "/state", "--quiet", "--protect", "--detector", "local", "--names",
             "--model", "/model", "--intercept", "chatgpt", "--intercept-port", "8903"}));
}

TEST(CommandText, has_one_blank_between_the_words_and_no_quotes_or_escapes) {
  EXPECT_EQ(command_text({"/a b/velund", "--intercept", "it's $HOME", "", "\\"}),
            "/a b/velund --intercept it's $HOME  \\");
  EXPECT_EQ(command_text({"velund"}), "velund");
}

// The arguments that the daemon receives, argument zero included.
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
  fs::create_directory(model);
  expect_flags("model_dir: " + model + "\n", sandbox.daemon_flags({}, {"--model", model}));
}

TEST_F(StartArguments, hand_the_state_directory_on_as_written_wherever_it_is_named) {
  const std::string root = sandbox.root().string();
  sandbox.environment["XDG_DATA_HOME"] = root + "/data";
  expect_state_dir("", root + "/data/velun");
  expect_state_dir("state_dir: " + root + "//state of mine/\n", root + "//state of mine/");
  sandbox.environment["XDG_DATA_HOME"] = sandbox.environment["HOME"] = "";
  sandbox.environment["VELUN_CLI_CONFIG"] = sandbox.config_file();
  expect_state_dir("", ".local/share/velun");
  EXPECT_TRUE(fs::exists(sandbox.root() / ".local/share/velun/velun-cli.pid"));
}

TEST_F(StartArguments, go_through_no_shell) {
  const std::string text = "http $(touch a) `touch b`; touch c & touch d | touch e > f *";
  expect_flags("endpoint_url: '" + text + "'\n",
               sandbox.daemon_flags({}, {"--model-endpoint", text}));
  EXPECT_EQ(names_in(sandbox.root()), (Words{"err", "home", "in", "out", "programs"}));
}

// The program that `start` executes. These daemons end at once, so a start ends after its first
// try.
class StartProgram : public Lifecycle {
 protected:
  StartProgram() { sandbox.configure(); }

  void expect_executed(const ScriptedProgram& daemon, const std::string& argument_zero,
                       const RunOptions& options = {}) {
    EXPECT_EQ(seen(sandbox.velun({"start"}, options)),
              failure(exited_text(argument_zero + " " + spaced(sandbox.daemon_flags()))));
    ASSERT_EQ(daemon.runs().size(), 1U);
    EXPECT_EQ(daemon.runs()[0].argv[0], argument_zero);
  }
};

TEST_F(StartProgram, is_taken_from_the_working_directory_if_a_file_there_has_the_tools_bare_name) {
  const ScriptedProgram other = install_daemon("exit 3");
  const ScriptedProgram beside(sandbox.root() / "bin/velund", "exit 3");
  const ScriptedProgram here(sandbox.root() / "here/velund", "exit 3");
  write_file(sandbox.root() / "here/velun", "not the tool");
  RunOptions options;
  options.program = copy_tool();
  options.argument_zero = "velun";
  options.directory = sandbox.root() / "here";
  expect_executed(here, here.path(), options);
  EXPECT_EQ(beside.runs().size() + other.runs().size(), 0U);
}

TEST_F(StartProgram, named_by_a_bare_word_is_found_on_the_search_path) {
  const ScriptedProgram daemon(sandbox.root() / "path/other-name", "exit 3");
  sandbox.environment["PATH"] = "/does/not/exist:" + (sandbox.root() / "path").string();
  sandbox.environment["VELUND"] = "other-name";
  expect_executed(daemon, "other-name");
}

class FindDaemonProgram : public ::testing::Test {
 protected:
  FindDaemonProgram() { write_file(tool, ""); }

  Sandbox sandbox;
  fs::path tool = sandbox.root() / "bin/velun";
  fs::path beside = sandbox.root() / "bin/velund";
  EnvironmentVariable named{"VELUND", "named"};
};

TEST_F(FindDaemonProgram, takes_a_file_that_may_not_be_executed_or_a_directory_beside_the_tool) {
  write_file(beside, "plain text");
  EXPECT_EQ(find_daemon_program(tool), beside);
  fs::remove(beside);
  fs::create_directory(beside);
  EXPECT_EQ(find_daemon_program(tool), beside);
}

TEST_F(FindDaemonProgram, takes_a_link_beside_the_tool_under_its_own_name_unless_it_dangles) {
  fs::create_symlink(sandbox.root() / "target", beside);
  EXPECT_EQ(find_daemon_program(tool), "named");
  write_file(sandbox.root() / "target", "");
  EXPECT_EQ(find_daemon_program(tool), beside);
}

TEST_F(FindDaemonProgram, looks_beside_the_tool_itself_and_not_beside_a_link_to_it) {
  const fs::path link = sandbox.root() / "links/velun";
  write_file(sandbox.root() / "links/velund", "");
  fs::create_symlink(tool, link);
  EXPECT_EQ(find_daemon_program(link), "named");
  write_file(beside, "");
  EXPECT_EQ(find_daemon_program(link), beside);
}

// The path is empty if the caller gives the tool no arguments at all.
TEST_F(FindDaemonProgram, falls_back_if_argument_zero_names_no_file) {
  for (const std::string& argument_zero :
       {std::string(), std::string("velun"), "/" + std::string(5000, 'v')}) {
    EXPECT_EQ(find_daemon_program(argument_zero), "named");
    const EnvironmentVariable empty("VELUND", "");
    EXPECT_EQ(find_daemon_program(argument_zero), "");
    const EnvironmentVariable none("VELUND", nullptr);
    EXPECT_EQ(find_daemon_program(argument_zero), "velund");
  }
}

}  // namespace
}  // namespace velun::test
