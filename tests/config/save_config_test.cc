#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "tests/support/dialogue.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// If a valid file is there, the tests save with `mode off`: without a daemon it only changes one
// key. Otherwise they save with `setup`.
class SaveConfig : public SetupDialogue {
 protected:
  // Takes every offer for a file at `path`, which must then hold the defaults.
  void expect_defaults_at(const std::string& path) {
    sandbox.environment["VELUN_CLI_CONFIG"] = path;
    EXPECT_EQ(seen(given("")), success(dialogue(path)));
    EXPECT_EQ(read_file(sandbox.root() / path), written("watch"));
  }

  const std::string target = sandbox.config_file();
  const fs::path directory = sandbox.config_file().parent_path();
};

TEST_F(SaveConfig, replaces_a_longer_file_whole_and_creates_no_other) {
  sandbox.configure("# " + std::string(5000, 'c') + "\n\n\n");
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"})), success(sandbox.wrote()));
  EXPECT_EQ(file(), sandbox.rendering("off"));
  EXPECT_EQ(names_in(sandbox.config_file().parent_path()), std::vector<std::string>{"velun.yaml"});
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>{".config"});
}

TEST_F(SaveConfig, writes_a_long_text_in_one_piece_and_reports_it_after_that) {
  const std::string key = "model_dir: " + std::string(9000, 'm') + "\n";
  sandbox.configure(key);
  sandbox.environment["ASAN_OPTIONS"] = "detect_leaks=0";  // its check cannot be traced
  RunOptions traced;
  traced.program = "/usr/bin/strace";
  EXPECT_EQ(
      seen(sandbox.velun({"-o", "trace", "-e", "write", VELUN_BINARY, "mode", "off"}, traced)),
      success(sandbox.wrote()));
  const std::string trace = read_file(sandbox.root() / "trace");
  const std::string size = std::to_string(sandbox.rendering("off", key).size());
  const std::size_t saved = trace.find(", " + size + ") = " + size + "\n");
  const std::size_t reported = trace.find("write(1, \"wrote ");
  EXPECT_NE(reported, std::string::npos) << trace;
  EXPECT_LT(saved, reported) << trace;
  EXPECT_EQ(file(), sandbox.rendering("off", key));
}

TEST_F(SaveConfig, creates_all_missing_directories_and_needs_no_directory_part) {
  expect_defaults_at(sandbox.root() / "a/b c/d/velun.yaml");
  expect_defaults_at("relative/e/velun.yaml");
  expect_defaults_at("bare.yaml");
}

TEST_F(SaveConfig, rewrites_a_file_in_place_and_keeps_its_permissions) {
  sandbox.configure();
  fs::create_hard_link(target, sandbox.root() / "twin");
  fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write | fs::perms::others_exec);
  EXPECT_EQ(sandbox.velun({"mode", "off"}).status, 0);
  EXPECT_TRUE(fs::equivalent(target, sandbox.root() / "twin"));
  EXPECT_EQ(mode_of(target), 0601);
  EXPECT_EQ(read_file(sandbox.root() / "twin"), sandbox.rendering("off"));
}

TEST_F(SaveConfig, writes_through_a_symbolic_link_and_keeps_it) {
  sandbox.configure();
  fs::rename(target, sandbox.root() / "real.yaml");
  fs::create_symlink(sandbox.root() / "real.yaml", target);
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"})), success(sandbox.wrote()));
  EXPECT_EQ(fs::read_symlink(target), sandbox.root() / "real.yaml");
  EXPECT_FALSE(fs::is_symlink(sandbox.root() / "real.yaml"));
  EXPECT_EQ(read_file(sandbox.root() / "real.yaml"), sandbox.rendering("off"));
}

TEST_F(SaveConfig, creates_a_file_through_a_dangling_link_in_a_linked_directory) {
  fs::create_directories(sandbox.root() / "real");
  fs::create_directories(directory.parent_path());
  fs::create_symlink(sandbox.root() / "real", directory);
  fs::create_symlink(sandbox.root() / "file.yaml", target);
  EXPECT_EQ(seen(given("")), success(dialogue(target)));
  EXPECT_EQ(fs::read_symlink(sandbox.root() / "real/velun.yaml"), sandbox.root() / "file.yaml");
  EXPECT_EQ(read_file(sandbox.root() / "file.yaml"), written("watch"));
}

TEST_F(SaveConfig, leaves_the_permissions_of_what_it_creates_to_the_file_creation_mask) {
  for (const mode_t mask : {0U, 022U, 077U}) {
    const fs::path below = sandbox.root() / ("mask" + std::to_string(mask));
    sandbox.environment["VELUN_CLI_CONFIG"] = below / "velun.yaml";
    RunOptions options;
    options.in_child = [mask] { umask(mask); };
    EXPECT_EQ(sandbox.velun({"setup"}, options).status, 0);
    EXPECT_EQ(mode_of(below / "velun.yaml"), 0666 & ~mask);
    EXPECT_EQ(mode_of(below), 0777 & ~mask);
  }
}

TEST_F(SaveConfig, a_path_that_is_empty_or_a_directory_is_still_reported_as_written) {
  for (const std::string path : {"", "home"}) {
    sandbox.environment["VELUN_CLI_CONFIG"] = path;
    EXPECT_EQ(seen(given("")), success(dialogue(path)));
  }
  EXPECT_EQ(names_in(sandbox.root()), (std::vector<std::string>{"err", "home", "in", "out"}));
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>{});
}

TEST_F(SaveConfig, a_file_that_cannot_be_opened_is_still_reported_as_written) {
  sandbox.configure("mode: watch\n");
  const std::string before = file();
  fs::permissions(target, fs::perms::owner_read);
  RunOptions options;
  options.as_nobody = true;
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"}, options)), success(sandbox.wrote()));
  EXPECT_EQ(file(), before);
}

// The limit also holds for the file of standard output, so the path in the message is short.
TEST_F(SaveConfig, a_write_that_fails_is_still_reported_as_written) {
  sandbox.configure();
  fs::rename(target, sandbox.root() / "short.yaml");
  sandbox.environment["VELUN_CLI_CONFIG"] = "short.yaml";
  sandbox.set_counters_aside();
  RunOptions options;
  options.in_child = [] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{100, 100};
    setrlimit(RLIMIT_FSIZE, &limit);
  };
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"}, options)), success("wrote short.yaml\n"));
  EXPECT_EQ(read_file(sandbox.root() / "short.yaml"), sandbox.rendering("off").substr(0, 100));
}

// After the file is truncated, the limit ends velun by a signal at the first byte.
TEST_F(SaveConfig, that_is_killed_half_way_leaves_an_empty_file_which_loads_as_the_defaults) {
  sandbox.configure("mode: protect\n");
  RunOptions options;
  options.in_child = [] {
    const rlimit limit{0, 0};
    setrlimit(RLIMIT_FSIZE, &limit);
  };
  EXPECT_EQ(sandbox.velun({"mode", "off"}, options).signal, SIGXFSZ);
  EXPECT_EQ(file(), "");
  EXPECT_EQ(seen(sandbox.velun({"config"})),
            success("file: " + target + "\n\n" + written("watch")));
}

TEST_F(SaveConfig, a_directory_that_cannot_be_created_aborts_after_the_earlier_messages) {
  write_file(sandbox.root() / "file", "keep");
  for (const char* path : {"file/velun.yaml", "file/below/velun.yaml"}) {
    sandbox.environment["VELUN_CLI_CONFIG"] = path;
    const Outcome run = given("protect\nnone\n");
    EXPECT_EQ(run.signal, SIGABRT);
    EXPECT_EQ(run.out,
              greeting + mode_question("watch") + detection_question("none") + protect_warning);
    EXPECT_NE(run.err.find("filesystem_error"), std::string::npos) << run.err;
    EXPECT_EQ(read_file(sandbox.root() / "file"), "keep");
  }
}

}  // namespace
}  // namespace velun::test
