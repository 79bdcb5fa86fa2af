#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "config/config_file.h"
#include "tests/support/environment_variable.h"
#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// Saves are made through `mode off` where a valid file is there, which changes one key and, with no
// daemon there, does nothing else; and through `setup`, which takes every offer, elsewhere.
class SaveConfig : public ::testing::Test {
 protected:
  ino_t inode_of(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_ino;
  }

  // What `setup` prints when every offer is taken and the file is at `path`.
  static std::string setup_output(const std::string& path) {
    return "Velun CLI setup — Enter keeps the value in brackets.\n\n"
           "Mode (off / watch / protect) [watch]: "
           "Detection: path to a model bundle, a self-hosted engine URL, or `none` [none]: "
           "wrote " +
           path + "\nnext: `velun start`, then `velun help ports` to route your tools.\n";
  }

  Sandbox sandbox;
  const std::string file = sandbox.config_file();
  const std::string defaults =
      "# Velun CLI configuration. `velun help config` documents every key.\n"
      "mode: watch\nanthropic_port: 8900\nopenai_port: 8901\ncontrol_port: 8902\nnames: true\n";
};

TEST_F(SaveConfig, writes_the_rendering_and_says_where) {
  sandbox.configure("names: no # keep\nstate_dir: ' x'\n");
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"})), success("wrote " + file + "\n"));
  EXPECT_EQ(read_file(file),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: off\nanthropic_port: " +
                std::to_string(sandbox.anthropic_port()) +
                "\nopenai_port: " + std::to_string(sandbox.openai_port()) + "\ncontrol_port: " +
                std::to_string(sandbox.control_port()) + "\nstate_dir: \" x\"\nnames: false\n");
}

TEST_F(SaveConfig, leaves_nothing_of_a_longer_file_behind) {
  sandbox.configure("# " + std::string(5000, 'c') + "\n\n\n");
  EXPECT_EQ(sandbox.velun({"mode", "off"}).status, 0);
  EXPECT_EQ(read_file(file), sandbox.rendering("off"));
}

TEST_F(SaveConfig, drops_unknown_keys_and_comments) {
  write_file(file, "# mine\ncolor: red\nnames: false\n");
  EXPECT_EQ(sandbox.velun({"setup"}).status, 0);
  EXPECT_EQ(read_file(file),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: watch\nanthropic_port: 8900\nopenai_port: 8901\ncontrol_port: 8902\n"
            "names: false\n");
}

TEST_F(SaveConfig, creates_all_missing_directories) {
  const std::string path = sandbox.root() / "a/b c/d/velun.yaml";
  sandbox.environment["VELUN_CLI_CONFIG"] = path;
  const Outcome run = sandbox.velun({"setup"});
  EXPECT_EQ(run.out, setup_output(path));
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(read_file(path), defaults);
}

TEST_F(SaveConfig, creates_nothing_but_the_file_in_its_directory) {
  sandbox.configure();
  EXPECT_EQ(sandbox.velun({"mode", "off"}).status, 0);
  EXPECT_EQ(names_in(sandbox.config_file().parent_path()), std::vector<std::string>{"velun.yaml"});
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>{".config"});
}

TEST_F(SaveConfig, rewrites_a_file_in_place_and_keeps_its_permissions) {
  sandbox.configure();
  fs::create_hard_link(file, sandbox.root() / "twin");
  fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_exec);
  const ino_t before = inode_of(file);
  EXPECT_EQ(sandbox.velun({"mode", "off"}).status, 0);
  EXPECT_EQ(inode_of(file), before);
  EXPECT_EQ(mode_of(file), 0601);
  EXPECT_EQ(read_file(sandbox.root() / "twin"), sandbox.rendering("off"));
}

TEST_F(SaveConfig, writes_through_a_symbolic_link_and_keeps_it) {
  sandbox.configure();
  fs::rename(file, sandbox.root() / "real.yaml");
  fs::create_symlink(sandbox.root() / "real.yaml", file);
  EXPECT_EQ(sandbox.velun({"mode", "off"}).out, "wrote " + file + "\n");
  EXPECT_EQ(fs::read_symlink(file), sandbox.root() / "real.yaml");
  EXPECT_FALSE(fs::is_symlink(sandbox.root() / "real.yaml"));
  EXPECT_EQ(read_file(sandbox.root() / "real.yaml"), sandbox.rendering("off"));
}

TEST_F(SaveConfig, accepts_a_symbolic_link_as_the_directory) {
  fs::create_directories(sandbox.root() / "real");
  fs::create_directories(sandbox.home() / ".config");
  fs::create_symlink(sandbox.root() / "real", sandbox.home() / ".config/velun");
  EXPECT_EQ(sandbox.velun({"setup"}).status, 0);
  EXPECT_EQ(read_file(sandbox.root() / "real/velun.yaml"), defaults);
}

TEST_F(SaveConfig, leaves_the_permissions_of_what_it_creates_to_the_file_creation_mask) {
  struct Row {
    mode_t mask;
    int file_bits;
    int directory_bits;
  };
  for (const Row& row : {Row{0, 0666, 0777}, Row{022, 0644, 0755}, Row{077, 0600, 0700}}) {
    const fs::path directory = sandbox.root() / ("mask" + std::to_string(row.mask));
    sandbox.environment["VELUN_CLI_CONFIG"] = directory / "velun.yaml";
    RunOptions options;
    options.in_child = [&row] { umask(row.mask); };
    EXPECT_EQ(sandbox.velun({"setup"}, options).status, 0);
    EXPECT_EQ(mode_of(directory / "velun.yaml"), row.file_bits);
    EXPECT_EQ(mode_of(directory), row.directory_bits);
  }
}

TEST_F(SaveConfig, writes_into_the_working_directory_when_the_path_has_no_directory_part) {
  sandbox.environment["VELUN_CLI_CONFIG"] = "bare.yaml";
  EXPECT_EQ(seen(sandbox.velun({"setup"})), success(setup_output("bare.yaml")));
  EXPECT_EQ(read_file(sandbox.root() / "bare.yaml"), defaults);
}

TEST_F(SaveConfig, creates_the_directories_of_a_relative_path_below_the_working_directory) {
  sandbox.environment["HOME"] = "";
  const Outcome run = sandbox.velun({"setup"});
  EXPECT_EQ(run.out, setup_output(".config/velun/velun.yaml"));
  EXPECT_EQ(read_file(sandbox.root() / ".config/velun/velun.yaml"), defaults);
}

TEST_F(SaveConfig, an_empty_path_is_said_to_be_written_and_nothing_is) {
  sandbox.environment["VELUN_CLI_CONFIG"] = "";
  EXPECT_EQ(seen(sandbox.velun({"setup"})), success(setup_output("")));
  EXPECT_EQ(names_in(sandbox.root()), (std::vector<std::string>{"err", "home", "in", "out"}));
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>{});
}

TEST_F(SaveConfig, a_path_that_is_a_directory_is_said_to_be_written_all_the_same) {
  sandbox.environment["VELUN_CLI_CONFIG"] = sandbox.home();
  EXPECT_EQ(seen(sandbox.velun({"setup"})), success(setup_output(sandbox.home())));
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>{});
}

TEST_F(SaveConfig, a_file_that_cannot_be_opened_is_said_to_be_written_all_the_same) {
  sandbox.configure("mode: watch\n");
  const std::string before = read_file(file);
  fs::permissions(file, fs::perms::owner_read);
  RunOptions options;
  options.as_nobody = true;
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"}, options)), success("wrote " + file + "\n"));
  EXPECT_EQ(read_file(file), before);
}

TEST_F(SaveConfig, a_write_that_fails_is_said_to_be_written_all_the_same) {
  write_file(sandbox.root() / "short.yaml", "");
  sandbox.environment["VELUN_CLI_CONFIG"] = "short.yaml";
  RunOptions options;
  options.in_child = [] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{117, 117};
    setrlimit(RLIMIT_FSIZE, &limit);
  };
  const Outcome run = sandbox.velun({"mode", "off"}, options);
  EXPECT_EQ(run.out, "wrote short.yaml\n");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(read_file(sandbox.root() / "short.yaml"),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: off\nanthropic_port: 8900\nopenai_port: 8901\n");
}

TEST_F(SaveConfig, a_directory_that_cannot_be_created_ends_the_process_with_nothing_written) {
  write_file(sandbox.root() / "file", "keep");
  sandbox.environment["VELUN_CLI_CONFIG"] = sandbox.root() / "file/below/velun.yaml";
  const Outcome run = sandbox.velun({"setup"});
  EXPECT_EQ(run.signal, SIGABRT);
  EXPECT_EQ(run.out,
            "Velun CLI setup — Enter keeps the value in brackets.\n\n"
            "Mode (off / watch / protect) [watch]: "
            "Detection: path to a model bundle, a self-hosted engine URL, or `none` [none]: ");
  EXPECT_NE(run.err.find("filesystem_error"), std::string::npos) << run.err;
  EXPECT_EQ(read_file(sandbox.root() / "file"), "keep");
}

TEST_F(SaveConfig, a_directory_that_may_not_be_created_ends_the_process) {
  fs::create_directories(sandbox.root() / "closed");
  fs::permissions(sandbox.root() / "closed", fs::perms::owner_read | fs::perms::owner_exec);
  sandbox.environment["VELUN_CLI_CONFIG"] = sandbox.root() / "closed/below/velun.yaml";
  RunOptions options;
  options.as_nobody = true;
  EXPECT_EQ(sandbox.velun({"setup"}, options).signal, SIGABRT);
  EXPECT_EQ(names_in(sandbox.root() / "closed"), std::vector<std::string>{});
}

TEST_F(SaveConfig, a_file_in_the_place_of_the_directory_raises_a_file_system_error) {
  const ScopedEnvironment environment;
  write_file(sandbox.root() / "file", "keep");
  environment.set("VELUN_CLI_CONFIG", sandbox.root() / "file/velun.yaml");
  EXPECT_THROW(save_config(Config()), fs::filesystem_error);
  EXPECT_EQ(read_file(sandbox.root() / "file"), "keep");
}

TEST_F(SaveConfig, is_reported_even_when_the_command_ends_the_process_later) {
  sandbox.configure("mode: off\n");
  write_file(sandbox.root() / "file", "");
  sandbox.environment["VELUN_STATE_DIR"] = sandbox.root() / "file/below";
  const Outcome run = sandbox.velun({"mode", "watch"});
  EXPECT_EQ(run.signal, SIGABRT);
  EXPECT_EQ(run.out, "wrote " + file + "\n");
  EXPECT_EQ(read_file(file), sandbox.rendering("watch"));
}

TEST_F(SaveConfig, the_path_is_reported_as_it_stands_without_quotes) {
  for (const char* path : {"my \"own\"\\ \xff.yaml", "home/.././/other.yaml"}) {
    sandbox.environment["VELUN_CLI_CONFIG"] = path;
    EXPECT_EQ(sandbox.velun({"setup"}).out, setup_output(path));
    EXPECT_EQ(read_file(sandbox.root() / path), defaults);
  }
}

}  // namespace
}  // namespace velun::test
