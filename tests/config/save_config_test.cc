#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/dialogue.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// Saves are made through `mode off` where a valid file is there, which changes one key and, with no
// daemon there, does nothing else; and through `setup`, which takes every offer, elsewhere.
class SaveConfig : public SetupDialogue {
 protected:
  ino_t inode_of(const fs::path& path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_ino;
  }

  /// Takes every offer for a file at `path`, which must then hold the defaults.
  void expect_defaults_at(const std::string& path) {
    sandbox.environment["VELUN_CLI_CONFIG"] = path;
    EXPECT_EQ(seen(given("")), success(dialogue(path)));
    EXPECT_EQ(read_file(sandbox.root() / path), written("watch"));
  }

  const std::string target = sandbox.config_file();
  const fs::path directory = sandbox.config_file().parent_path();
};

TEST_F(SaveConfig, leaves_nothing_of_a_longer_file_behind_and_nothing_beside_it) {
  sandbox.configure("# " + std::string(5000, 'c') + "\n\n\n");
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"})), success(sandbox.wrote()));
  EXPECT_EQ(file(), sandbox.rendering("off"));
  EXPECT_EQ(names_in(sandbox.config_file().parent_path()), std::vector<std::string>{"velun.yaml"});
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>{".config"});
}

TEST_F(SaveConfig, writes_a_long_text_in_one_piece) {
  const std::string key = "model_dir: " + std::string(9000, 'm') + "\n";
  sandbox.configure(key);
  sandbox.environment["ASAN_OPTIONS"] = "detect_leaks=0";  // its check cannot be traced
  RunOptions traced;
  traced.program = "/usr/bin/strace";
  EXPECT_EQ(
      seen(sandbox.velun({"-o", "trace", "-e", "write", VELUN_BINARY, "mode", "off"}, traced)),
      success(sandbox.wrote()));
  const std::string size = std::to_string(sandbox.rendering("off", key).size());
  EXPECT_NE(read_file(sandbox.root() / "trace").find(", " + size + ") = " + size + "\n"),
            std::string::npos);
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
  const ino_t before = inode_of(target);
  EXPECT_EQ(sandbox.velun({"mode", "off"}).status, 0);
  EXPECT_EQ(inode_of(target), before);
  EXPECT_EQ(mode_of(target), 0601);
  EXPECT_EQ(read_file(sandbox.root() / "twin"), sandbox.rendering("off"));
}

TEST_F(SaveConfig, writes_through_a_symbolic_link_and_keeps_it) {
  sandbox.configure();
  fs::rename(target, sandbox.root() / "real.yaml");
  fs::create_symlink(sandbox.root() / "real.yaml", target);
  EXPECT_EQ(sandbox.velun({"mode", "off"}).out, sandbox.wrote());
  EXPECT_EQ(fs::read_symlink(target), sandbox.root() / "real.yaml");
  EXPECT_FALSE(fs::is_symlink(sandbox.root() / "real.yaml"));
  EXPECT_EQ(read_file(sandbox.root() / "real.yaml"), sandbox.rendering("off"));
}

TEST_F(SaveConfig, creates_what_a_dangling_link_leads_to) {
  fs::create_directories(directory);
  fs::create_symlink(sandbox.root() / "real.yaml", target);
  EXPECT_EQ(seen(given("")), success(dialogue(target)));
  EXPECT_EQ(fs::read_symlink(target), sandbox.root() / "real.yaml");
  EXPECT_EQ(read_file(sandbox.root() / "real.yaml"), written("watch"));
}

TEST_F(SaveConfig, accepts_a_symbolic_link_as_the_directory) {
  fs::create_directories(sandbox.root() / "real");
  fs::create_directories(sandbox.home() / ".config");
  fs::create_symlink(sandbox.root() / "real", sandbox.home() / ".config/velun");
  EXPECT_EQ(sandbox.velun({"setup"}).status, 0);
  EXPECT_EQ(read_file(sandbox.root() / "real/velun.yaml"), written("watch"));
}

TEST_F(SaveConfig, leaves_the_permissions_of_what_it_creates_to_the_file_creation_mask) {
  struct Row {
    mode_t mask;
    int file_bits;
    int directory_bits;
  };
  for (const Row& row : {Row{0, 0666, 0777}, Row{022, 0644, 0755}, Row{077, 0600, 0700}}) {
    const fs::path below = sandbox.root() / ("mask" + std::to_string(row.mask));
    sandbox.environment["VELUN_CLI_CONFIG"] = below / "velun.yaml";
    RunOptions options;
    options.in_child = [&row] { umask(row.mask); };
    EXPECT_EQ(sandbox.velun({"setup"}, options).status, 0);
    EXPECT_EQ(mode_of(below / "velun.yaml"), row.file_bits);
    EXPECT_EQ(mode_of(below), row.directory_bits);
  }
}

TEST_F(SaveConfig, a_path_that_is_empty_or_a_directory_is_said_to_be_written_all_the_same) {
  for (const std::string path : {"", "home"}) {
    sandbox.environment["VELUN_CLI_CONFIG"] = path;
    EXPECT_EQ(seen(given("")), success(dialogue(path)));
  }
  EXPECT_EQ(names_in(sandbox.root()), (std::vector<std::string>{"err", "home", "in", "out"}));
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>{});
}

TEST_F(SaveConfig, a_file_that_cannot_be_opened_is_said_to_be_written_all_the_same) {
  sandbox.configure("mode: watch\n");
  const std::string before = file();
  fs::permissions(target, fs::perms::owner_read);
  RunOptions options;
  options.as_nobody = true;
  EXPECT_EQ(seen(sandbox.velun({"mode", "off"}, options)), success(sandbox.wrote()));
  EXPECT_EQ(file(), before);
}

// Whoever reads the line of the save finds the file: velun is held up in writing that line by a
// pipe that takes nothing more.
TEST_F(SaveConfig, is_complete_on_disk_before_it_is_reported) {
  sandbox.configure();
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  std::string filling(static_cast<std::size_t>(fcntl(ends[1], F_SETPIPE_SZ, 4096)), 'x');
  const auto size = static_cast<ssize_t>(filling.size());
  ASSERT_EQ(write(ends[1], filling.data(), filling.size()), size);
  RunOptions options;
  options.in_child = [&] { dup2(ends[1], STDOUT_FILENO); };
  const pid_t velun = sandbox.start_velun({"mode", "off"}, options);
  close(ends[1]);
  EXPECT_TRUE(eventually([&] { return file() == sandbox.rendering("off"); })) << file();
  EXPECT_TRUE(is_running(velun));
  ASSERT_EQ(read(ends[0], filling.data(), filling.size()), size);
  ASSERT_EQ(wait_for(velun, std::chrono::seconds(10)), 0);
  EXPECT_EQ(read_file("/proc/self/fd/" + std::to_string(ends[0])), sandbox.wrote());
  close(ends[0]);
}

// The limit is for all files of the process; the line of the save has room for a short path only.
TEST_F(SaveConfig, a_write_that_fails_is_said_to_be_written_all_the_same) {
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

// The limit ends velun by a signal between the moment that empties the file and the first byte.
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

TEST_F(SaveConfig, a_directory_that_cannot_be_created_ends_the_process_after_all_that_was_said) {
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
