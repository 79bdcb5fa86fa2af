#include "config/config_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <sstream>

#include "tests/support/config_text.h"
#include "tests/support/environment_variable.h"
#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class LoadConfig : public ::testing::Test {
 protected:
  // The outcome of a command that needs a configuration and does nothing but show it.
  Outcome show(const std::string& path) {
    sandbox.environment["VELUN_CLI_CONFIG"] = path;
    return sandbox.velun({"config"});
  }

  static void expect_missing(const Outcome& run, const std::string& path) {
    EXPECT_EQ(seen(run), failure("no configuration at " + path + " — run `velun setup` first\n"));
  }

  Sandbox sandbox;
};

TEST_F(LoadConfig, empty_xdg_variables_are_ignored) {
  sandbox.environment["XDG_CONFIG_HOME"] = "";
  expect_missing(sandbox.velun({"config"}), sandbox.home() / ".config/velun/velun.yaml");
}

TEST_F(LoadConfig, an_empty_home_gives_a_path_in_the_working_directory) {
  sandbox.environment["HOME"] = "";
  expect_missing(sandbox.velun({"config"}), ".config/velun/velun.yaml");
}

TEST_F(LoadConfig, the_path_is_written_byte_for_byte_without_quotes) {
  const std::string path = sandbox.root() / "my \"own\"\\ \xff.yaml";
  expect_missing(show(path), path);
  write_file(path, "x\n");
  EXPECT_EQ(sandbox.velun({"config"}).err,
            path + " has problems:\n  line 1: expected `key: value`\n");
}

TEST_F(LoadConfig, a_directory_is_no_configuration) {
  expect_missing(show(sandbox.root()), sandbox.root());
}

TEST_F(LoadConfig, a_file_without_permission_is_no_configuration) {
  sandbox.configure();
  fs::permissions(sandbox.config_file(), fs::perms::none);
  RunOptions options;
  options.as_nobody = true;
  expect_missing(sandbox.velun({"config"}, options), sandbox.config_file());
}

TEST_F(LoadConfig, a_file_whose_reading_fails_is_no_configuration) {
  expect_missing(show("/proc/self/mem"), "/proc/self/mem");
}

TEST_F(LoadConfig, a_path_that_cannot_exist_is_no_configuration) {
  const std::string too_long = sandbox.root() / std::string(300, 'n');
  expect_missing(show(too_long), too_long);
  write_file(sandbox.root() / "file", "");
  expect_missing(show(sandbox.root() / "file/velun.yaml"), sandbox.root() / "file/velun.yaml");
}

TEST_F(LoadConfig, an_empty_file_is_valid) {
  EXPECT_EQ(show("/dev/null").status, 0);
  write_file(sandbox.root() / "empty.yaml", "");
  const Outcome run = show(sandbox.root() / "empty.yaml");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.status, 0);
}

TEST_F(LoadConfig, all_problems_are_reported_at_once_in_their_order) {
  write_file(sandbox.config_file(),
             "zzqxw: 1\nmodel_dir: /m\nendpoint_url: https://e\nmode: Watch\nmode: off\n"
             "anthropic_port: 0\n  names: no\nintercept_apps: [a\nnmes: no\n");
  const Outcome run = sandbox.velun({"config"});
  EXPECT_EQ(run.err,
            sandbox.config_file().string() +
                " has problems:\n"
                "  line 5: duplicate key `mode`\n"
                "  line 7: indentation is not part of this file's format (flat keys only)\n"
                "  line 8: unterminated list\n"
                "  line 6: anthropic_port must be a port between 1 and 65535\n"
                "  line 4: mode must be off, watch or protect (got `Watch`)\n"
                "  line 9: unknown key `nmes` — did you mean `names`?\n"
                "  line 1: unknown key `zzqxw`\n"
                "  model_dir and endpoint_url exclude each other — the daemon runs one detection "
                "engine per launch\n");
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.status, 1);
}

TEST_F(LoadConfig, a_long_file_is_read_whole) {
  std::string text;
  for (int line = 1; line <= 2000; ++line) {
    text += "# a comment\n";
  }
  for (const std::size_t size : {4095U, 4096U, 4097U, 8192U, 24000U}) {
    const std::string head = text.substr(0, size - 1) + "\n";
    write_file(sandbox.config_file(), head + "color: red");
    const auto lines = 1 + std::count(head.begin(), head.end(), '\n');
    EXPECT_EQ(sandbox.velun({"config"}).err, sandbox.config_file().string() +
                                                 " has problems:\n  line " + std::to_string(lines) +
                                                 ": unknown key `color`\n");
  }
}

TEST_F(LoadConfig, a_missing_file_leaves_the_record_alone) {
  const ScopedEnvironment environment;
  environment.set("VELUN_CLI_CONFIG", sandbox.root() / "missing.yaml");
  Config config;
  config.mode = "off";
  config.intercept_port = 7;
  const Config before = config;
  EXPECT_FALSE(load_config(config, MissingFile::silent));
  EXPECT_EQ(config, before);
}

TEST_F(LoadConfig, a_valid_file_replaces_every_field_of_the_record) {
  const ScopedEnvironment environment;
  environment.set("VELUN_CLI_CONFIG", sandbox.config_file());
  write_file(sandbox.config_file(), "control_port: 9103\n");
  Config config;
  config.mode = "off";
  config.model_dir = config.endpoint_url = config.state_dir = "http";
  config.anthropic_port = config.openai_port = config.control_port = config.intercept_port = 7;
  config.names = false;
  config.intercept_apps = {"a"};
  EXPECT_TRUE(load_config(config, MissingFile::reported));
  Config expected;
  expected.control_port = 9103;
  EXPECT_EQ(fields_of(config), fields_of(expected));
}

TEST_F(LoadConfig, a_bad_port_keeps_its_default_and_the_other_keys_apply) {
  const ScopedEnvironment environment;
  environment.set("VELUN_CLI_CONFIG", sandbox.config_file());
  write_file(sandbox.config_file(), "control_port: 0\nopenai_port: 9102\n");
  Config config;
  config.control_port = 7;
  config.mode = "off";
  std::ostringstream report;
  std::streambuf* standard_error = std::cerr.rdbuf(report.rdbuf());
  EXPECT_FALSE(load_config(config, MissingFile::silent));
  std::cerr.rdbuf(standard_error);
  EXPECT_EQ(report.str(), sandbox.config_file().string() +
                              " has problems:\n  line 1: control_port must be a port between 1 and "
                              "65535\n");
  Config expected;
  expected.openai_port = 9102;
  EXPECT_EQ(fields_of(config), fields_of(expected));
}

class LoadConfigInSetup : public ::testing::Test {
 protected:
  Sandbox sandbox;
  const std::string title = "Velun CLI setup — Enter keeps the value in brackets.\n\n";
  const std::string detection =
      "Detection: path to a model bundle, a self-hosted engine URL, or `none`";
  const std::string closing =
      "wrote " + sandbox.config_file().string() +
      "\nnext: `velun start`, then `velun help ports` to route your tools.\n";
};

TEST_F(LoadConfigInSetup, a_missing_file_is_not_reported_and_leaves_the_defaults) {
  const Outcome run = sandbox.velun({"setup"});
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out,
            title + "Mode (off / watch / protect) [watch]: " + detection + " [none]: " + closing);
  EXPECT_EQ(run.status, 0);
}

TEST_F(LoadConfigInSetup, problems_are_reported_and_the_good_keys_are_offered_and_kept) {
  write_file(sandbox.config_file(),
             "mode: protect\nmodel_dir: /data/m\ncontrol_port: 0\nopenai_port: 9102\n bad: 1\n");
  const Outcome run = sandbox.velun({"setup"});
  EXPECT_EQ(run.err,
            sandbox.config_file().string() +
                " has problems:\n"
                "  line 5: indentation is not part of this file's format (flat keys only)\n"
                "  line 3: control_port must be a port between 1 and 65535\n");
  EXPECT_EQ(run.out, title + "Mode (off / watch / protect) [protect]: " + detection +
                         " [/data/m]: " + closing);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(read_file(sandbox.config_file()),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: protect\nmodel_dir: /data/m\nanthropic_port: 8900\nopenai_port: 9102\n"
            "control_port: 8902\nnames: true\n");
}

TEST_F(LoadConfigInSetup, a_bad_mode_is_offered_as_its_default) {
  write_file(sandbox.config_file(), "mode: Protect\nendpoint_url: https://e\n");
  const Outcome run = sandbox.velun({"setup"});
  EXPECT_EQ(run.out, title + "Mode (off / watch / protect) [watch]: " + detection +
                         " [https://e]: " + closing);
}

TEST_F(LoadConfigInSetup, of_two_values_that_exclude_each_other_the_model_is_offered) {
  write_file(sandbox.config_file(), "model_dir: /data/m\nendpoint_url: https://e\n");
  const Outcome run = sandbox.velun({"setup"});
  EXPECT_EQ(run.err, sandbox.config_file().string() +
                         " has problems:\n  model_dir and endpoint_url exclude each other — the "
                         "daemon runs one detection engine per launch\n");
  EXPECT_EQ(run.out, title + "Mode (off / watch / protect) [watch]: " + detection +
                         " [/data/m]: " + closing);
}

}  // namespace
}  // namespace velun::test
