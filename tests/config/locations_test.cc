#include "config/locations.h"

#include <gtest/gtest.h>

#include "tests/support/dialogue.h"
#include "tests/support/environment_variable.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// The variables of the environment, and the path that follows from them.
struct Row {
  std::vector<std::pair<std::string, std::string>> variables;
  std::string path;
};

void expect_paths(fs::path (*path_of)(), const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    const ScopedEnvironment environment;
    for (const auto& [name, value] : row.variables) {
      environment.set(name, value);
    }
    EXPECT_EQ(path_of().native(), row.path);
  }
}

TEST(ConfigPath, is_chosen_by_the_first_variable_that_counts) {
  expect_paths(
      config_path,
      {{{{"VELUN_CLI_CONFIG", "./a//b/../my \"file\".yaml"},
         {"XDG_CONFIG_HOME", "/xdg"},
         {"HOME", "/home/ada"}},
        "./a//b/../my \"file\".yaml"},
       {{{"VELUN_CLI_CONFIG", ""}, {"XDG_CONFIG_HOME", "/xdg"}, {"HOME", "/home/ada"}}, ""},
       {{{"XDG_CONFIG_HOME", "/xdg/"}, {"HOME", "/home/ada"}}, "/xdg/velun/velun.yaml"},
       {{{"XDG_CONFIG_HOME", ""}, {"HOME", "/home/ada"}}, "/home/ada/.config/velun/velun.yaml"},
       {{{"HOME", "/home/ada"}, {"XDG_DATA_HOME", "/data"}, {"VELUN_STATE_DIR", "/state"}},
        "/home/ada/.config/velun/velun.yaml"},
       {{{"HOME", ""}}, ".config/velun/velun.yaml"},
       {{}, "/tmp/.config/velun/velun.yaml"}});
}

TEST(StateDir, is_chosen_by_the_first_variable_that_counts) {
  expect_paths(
      default_state_dir,
      {{{{"VELUN_STATE_DIR", "../state/"}, {"XDG_DATA_HOME", "/data"}, {"HOME", "/home/ada"}},
        "../state/"},
       {{{"VELUN_STATE_DIR", ""}, {"XDG_DATA_HOME", "/data"}, {"HOME", "/home/ada"}}, ""},
       {{{"XDG_DATA_HOME", "/data/"}, {"HOME", "/home/ada"}}, "/data/velun"},
       {{{"XDG_DATA_HOME", ""}, {"HOME", "/home/ada"}}, "/home/ada/.local/share/velun"},
       {{{"HOME", "/home/ada"}, {"XDG_CONFIG_HOME", "/xdg"}, {"VELUN_CLI_CONFIG", "/etc/v.yaml"}},
        "/home/ada/.local/share/velun"},
       {{{"HOME", ""}}, ".local/share/velun"},
       {{}, "/tmp/.local/share/velun"}});
}

// A row is the directory in the record, that in the environment, and the directory of the files.
TEST(StateDir, of_the_record_precedes_the_environment_and_holds_all_files) {
  const std::string rows[][3] = {
      {"", "/state", "/state/"}, {"/srv/velun", "/state", "/srv/velun/"}, {"", "", ""}};
  for (const auto& [recorded, variable, place] : rows) {
    const ScopedEnvironment environment;
    environment.set("VELUN_STATE_DIR", variable);
    Config config;
    config.state_dir = recorded;
    EXPECT_EQ(state_dir_of(config).native(), recorded.empty() ? variable : recorded);
    EXPECT_EQ(models_dir_of(config).native(), place + "models");
    EXPECT_EQ(pid_file_of(config).native(), place + "velun-cli.pid");
  }
}

class InTheStateDir : public ::testing::Test {
 protected:
  InTheStateDir() { config.state_dir = sandbox.root() / "state"; }

  Sandbox sandbox;
  const fs::path token_file = sandbox.root() / "state/control.token";
  Config config;
};

TEST_F(InTheStateDir, the_token_is_the_first_line_of_its_file_untouched) {
  const std::pair<std::string, std::string> rows[] = {
      {"s3cret\n", "s3cret"},
      {"s3cret", "s3cret"},
      {"first\nsecond\n", "first"},
      {"s3cret\r\n", "s3cret\r"},
      {" s3cret  \t\n", " s3cret  \t"},
      {std::string("a\0b\xff\n", 5), std::string("a\0b\xff", 4)},
      {"", ""},
      {"\nsecond\n", ""}};
  for (const auto& [content, token] : rows) {
    write_file(token_file, content);
    EXPECT_EQ(read_control_token(config), token);
  }
}

TEST_F(InTheStateDir, the_token_is_empty_without_a_file_that_can_be_read) {
  EXPECT_EQ(read_control_token(config), "");
  EXPECT_EQ(names_in(sandbox.root()), std::vector<std::string>{"home"});
  fs::create_directories(token_file);
  EXPECT_EQ(read_control_token(config), "");
}

TEST_F(InTheStateDir, the_token_is_read_even_if_the_environment_names_another_directory) {
  const ScopedEnvironment environment;
  environment.set("VELUN_STATE_DIR", sandbox.root() / "other");
  write_file(sandbox.root() / "other/control.token", "other\n");
  write_file(token_file, "own\n");
  EXPECT_EQ(read_control_token(config), "own");
  EXPECT_EQ(read_control_token(Config()), "other");
}

TEST(ConfigPath, is_shown_byte_for_byte_as_the_environment_names_it) {
  Sandbox sandbox;
  fs::create_directory(sandbox.root() / "my \"own\"\\ \xff\xc3\n home");
  const std::string path = "home/../my \"own\"\\ \xff\xc3\n home//./velun.yaml";
  sandbox.environment["VELUN_CLI_CONFIG"] = path;
  const auto expect = [&](const std::string& word, const std::string& outcome) {
    EXPECT_EQ(seen(sandbox.velun({word, "off"})), outcome) << word;
  };
  const fs::path place = sandbox.root() / path;
  write_file(place, sandbox.port_lines());
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

}  // namespace
}  // namespace velun::test
