#include "config/locations.h"

#include <gtest/gtest.h>

#include "tests/support/dialogue.h"
#include "tests/support/environment_variable.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class ConfigPath : public ::testing::Test {
 protected:
  ScopedEnvironment environment;
};

TEST_F(ConfigPath, is_its_variable_as_it_stands_before_all_others) {
  environment.set("VELUN_CLI_CONFIG", "./a//b/../my \"file\".yaml");
  environment.set("XDG_CONFIG_HOME", "/xdg");
  environment.set("HOME", "/home/ada");
  EXPECT_EQ(config_path().native(), "./a//b/../my \"file\".yaml");
}

TEST_F(ConfigPath, is_empty_when_its_variable_is_set_but_empty) {
  environment.set("VELUN_CLI_CONFIG", "");
  environment.set("XDG_CONFIG_HOME", "/xdg");
  environment.set("HOME", "/home/ada");
  EXPECT_EQ(config_path().native(), "");
}

TEST_F(ConfigPath, is_below_xdg_config_home_before_home) {
  environment.set("XDG_CONFIG_HOME", "/xdg");
  environment.set("HOME", "/home/ada");
  EXPECT_EQ(config_path().native(), "/xdg/velun/velun.yaml");
}

TEST_F(ConfigPath, is_below_home_when_xdg_config_home_is_set_but_empty) {
  environment.set("XDG_CONFIG_HOME", "");
  environment.set("HOME", "/home/ada");
  EXPECT_EQ(config_path().native(), "/home/ada/.config/velun/velun.yaml");
}

TEST_F(ConfigPath, is_below_home_without_other_variables) {
  environment.set("HOME", "/home/ada");
  EXPECT_EQ(config_path().native(), "/home/ada/.config/velun/velun.yaml");
}

TEST_F(ConfigPath, is_relative_when_home_is_set_but_empty) {
  environment.set("HOME", "");
  EXPECT_EQ(config_path().native(), ".config/velun/velun.yaml");
}

TEST_F(ConfigPath, is_below_tmp_without_a_home) {
  EXPECT_EQ(config_path().native(), "/tmp/.config/velun/velun.yaml");
}

TEST_F(ConfigPath, is_looked_up_anew_on_every_call) {
  environment.set("HOME", "/home/ada");
  ASSERT_EQ(config_path().native(), "/home/ada/.config/velun/velun.yaml");
  environment.set("HOME", "/home/grace");
  EXPECT_EQ(config_path().native(), "/home/grace/.config/velun/velun.yaml");
}

TEST_F(ConfigPath, is_not_moved_by_the_variables_of_the_state_directory) {
  environment.set("HOME", "/home/ada");
  environment.set("XDG_DATA_HOME", "/data");
  environment.set("VELUN_STATE_DIR", "/state");
  EXPECT_EQ(config_path().native(), "/home/ada/.config/velun/velun.yaml");
}

class StateDir : public ::testing::Test {
 protected:
  ScopedEnvironment environment;
  Config config;
};

TEST_F(StateDir, is_its_variable_as_it_stands_before_all_others) {
  environment.set("VELUN_STATE_DIR", "../state/");
  environment.set("XDG_DATA_HOME", "/data");
  environment.set("HOME", "/home/ada");
  EXPECT_EQ(default_state_dir().native(), "../state/");
}

TEST_F(StateDir, is_empty_when_its_variable_is_set_but_empty) {
  environment.set("VELUN_STATE_DIR", "");
  environment.set("XDG_DATA_HOME", "/data");
  environment.set("HOME", "/home/ada");
  EXPECT_EQ(default_state_dir().native(), "");
  EXPECT_EQ(pid_file_of(config).native(), "velun-cli.pid");
  EXPECT_EQ(models_dir_of(config).native(), "models");
}

TEST_F(StateDir, is_below_xdg_data_home_before_home) {
  environment.set("XDG_DATA_HOME", "/data");
  environment.set("HOME", "/home/ada");
  EXPECT_EQ(default_state_dir().native(), "/data/velun");
}

TEST_F(StateDir, is_below_home_when_xdg_data_home_is_set_but_empty) {
  environment.set("XDG_DATA_HOME", "");
  environment.set("HOME", "/home/ada");
  EXPECT_EQ(default_state_dir().native(), "/home/ada/.local/share/velun");
}

TEST_F(StateDir, is_relative_when_home_is_set_but_empty) {
  environment.set("HOME", "");
  EXPECT_EQ(default_state_dir().native(), ".local/share/velun");
}

TEST_F(StateDir, is_below_tmp_without_a_home) {
  EXPECT_EQ(default_state_dir().native(), "/tmp/.local/share/velun");
}

TEST_F(StateDir, is_not_moved_by_the_variables_of_the_config_file) {
  environment.set("HOME", "/home/ada");
  environment.set("XDG_CONFIG_HOME", "/xdg");
  environment.set("VELUN_CLI_CONFIG", "/etc/velun.yaml");
  EXPECT_EQ(default_state_dir().native(), "/home/ada/.local/share/velun");
}

TEST_F(StateDir, comes_from_the_environment_when_the_record_names_none) {
  environment.set("VELUN_STATE_DIR", "/state");
  EXPECT_EQ(state_dir_of(config).native(), "/state");
  EXPECT_EQ(models_dir_of(config).native(), "/state/models");
  EXPECT_EQ(pid_file_of(config).native(), "/state/velun-cli.pid");
}

TEST_F(StateDir, of_the_record_wins_and_moves_all_files_in_it) {
  environment.set("VELUN_STATE_DIR", "/state");
  config.state_dir = "/srv/velun";
  EXPECT_EQ(state_dir_of(config).native(), "/srv/velun");
  EXPECT_EQ(models_dir_of(config).native(), "/srv/velun/models");
  EXPECT_EQ(pid_file_of(config).native(), "/srv/velun/velun-cli.pid");
}

class InTheStateDir : public ::testing::Test {
 protected:
  InTheStateDir() { config.state_dir = sandbox.root() / "state"; }

  std::string token_of(const std::string& file) {
    write_file(sandbox.root() / "state/control.token", file);
    return read_control_token(config);
  }

  Sandbox sandbox;
  Config config;
};

TEST_F(InTheStateDir, the_token_is_the_first_line_of_its_file_untouched) {
  EXPECT_EQ(token_of("s3cret\n"), "s3cret");
  EXPECT_EQ(token_of("s3cret"), "s3cret");
  EXPECT_EQ(token_of("first\nsecond\n"), "first");
  EXPECT_EQ(token_of("s3cret\r\n"), "s3cret\r");
  EXPECT_EQ(token_of("s3cret  \t\n"), "s3cret  \t");
  EXPECT_EQ(token_of("  s3cret\n"), "  s3cret");
  EXPECT_EQ(token_of(std::string("a\0b\xff\n", 5)), std::string("a\0b\xff", 4));
}

TEST_F(InTheStateDir, the_token_is_empty_when_its_file_starts_with_no_text) {
  EXPECT_EQ(token_of(""), "");
  EXPECT_EQ(token_of("\nsecond\n"), "");
}

TEST_F(InTheStateDir, the_token_is_empty_without_a_file_that_can_be_read) {
  EXPECT_EQ(read_control_token(config), "");
  fs::create_directories(sandbox.root() / "state/control.token");
  EXPECT_EQ(read_control_token(config), "");
}

TEST_F(InTheStateDir, the_token_moves_with_the_directory) {
  const ScopedEnvironment environment;
  environment.set("VELUN_STATE_DIR", sandbox.root() / "other");
  write_file(sandbox.root() / "other/control.token", "other\n");
  EXPECT_EQ(token_of("own\n"), "own");
  EXPECT_EQ(read_control_token(Config()), "other");
}

TEST_F(InTheStateDir, asking_for_a_location_creates_nothing) {
  const ScopedEnvironment environment;
  environment.set("HOME", sandbox.home());
  config_path();
  default_state_dir();
  state_dir_of(config);
  models_dir_of(config);
  pid_file_of(config);
  read_control_token(config);
  EXPECT_EQ(names_in(sandbox.root()), std::vector<std::string>{"home"});
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>{});
}

// Every command that uses the config file's path or shows it.
class ConfigFileInUse : public SetupDialogue {
 protected:
  void expect_path_everywhere(const std::string& path) {
    const auto expect = [&](const std::string& word, const std::string& outcome) {
      EXPECT_EQ(seen(sandbox.velun({word, "off"})), outcome) << word;
    };
    const fs::path place = sandbox.root() / path;
    expect("config", success("file: " + path + "\n\n" + sandbox.rendering("watch")));
    expect("mode", success("wrote " + path + "\n"));
    EXPECT_EQ(read_file(place), sandbox.rendering("off"));
    write_file(place, "names\n");
    expect("status", failure(path + " has problems:\n  line 1: expected `key: value`\n"));
    fs::remove(place);
    expect("status", failure("no configuration at " + path + " — run `velun setup` first\n"));
    expect("setup", success(dialogue(path)));
    EXPECT_EQ(read_file(place), written("watch"));
  }
};

TEST_F(ConfigFileInUse, below_a_home_of_any_bytes_is_shown_byte_for_byte) {
  sandbox.configure();
  const fs::path home = sandbox.root() / "my \"own\"\\ \xff\xc3\n home";
  fs::rename(sandbox.home(), home);
  sandbox.environment["HOME"] = home;
  expect_path_everywhere(home / ".config/velun/velun.yaml");
}

TEST_F(ConfigFileInUse, from_the_environment_is_shown_as_it_stands) {
  sandbox.configure();
  const std::string path = "home/../home//.config/./velun/velun.yaml";
  sandbox.environment["VELUN_CLI_CONFIG"] = path;
  expect_path_everywhere(path);
}

}  // namespace
}  // namespace velun::test
