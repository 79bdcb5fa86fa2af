#include "config/config_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "tests/support/config_text.h"
#include "tests/support/dialogue.h"
#include "tests/support/environment_variable.h"
#include "tests/support/failing_call.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class LoadConfig : public ::testing::Test {
 protected:
  static void expect_missing(const Outcome& run, const std::string& path) {
    EXPECT_EQ(seen(run), failure("no configuration at " + path + " — run `velun setup` first\n"));
  }

  // The number of bytes in a pipe that are not yet read.
  static int bytes_in(int pipe) {
    int count = -1;
    EXPECT_EQ(ioctl(pipe, FIONREAD, &count), 0);
    return count;
  }

  Sandbox sandbox;
};

using LoadConfigWithFaults = WithFaults<LoadConfig>;

TEST_F(LoadConfig, a_path_that_cannot_be_opened_or_read_is_no_configuration) {
  write_file(sandbox.root() / "file", "");
  for (const std::string& path :
       {std::string(), sandbox.root().string(), std::string("/proc/self/mem"),
        (sandbox.root() / std::string(300, 'n')).string(),
        (sandbox.root() / "file/velun.yaml").string()}) {
    sandbox.environment["VELUN_CLI_CONFIG"] = path;
    expect_missing(sandbox.velun({"config"}), path);
  }
}

TEST_F(LoadConfig, a_file_without_permission_is_no_configuration) {
  sandbox.configure();
  fs::permissions(sandbox.config_file(), fs::perms::none);
  RunOptions options;
  options.as_nobody = true;
  expect_missing(sandbox.velun({"config"}, options), sandbox.config_file());
}

TEST_F(LoadConfigWithFaults, a_file_that_cannot_be_read_to_its_end_is_no_configuration) {
  // A regular file is read by one call, a pipe by several.
  const std::string pipe = sandbox.root() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int writer = open(pipe.c_str(), O_RDWR);
  sandbox.environment["VELUN_CLI_CONFIG"] = pipe;
  const std::string comment = "# " + std::string(10000, 'c') + "\n";
  for (const char* fault : {"read:error=EIO:when=2", "read:error=EIO:when=3"}) {
    EXPECT_EQ(write(writer, comment.data(), comment.size()), std::ssize(comment));
    expect_missing(with_fault(sandbox, {"config"}, fault, pipe), pipe);
  }
  close(writer);
}

TEST_F(LoadConfigWithFaults, a_file_that_grows_after_it_was_opened_is_read_whole) {
  sandbox.configure();
  const std::string path = sandbox.config_file();
  write_file(path, "mode: off\n");
  // The call that asks for the size returns only after the file has grown.
  std::thread editor([&path] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    write_file(path, "mode: off\nmodel_dir: /m\n");
  });
  const Outcome run = with_fault(sandbox, {"config"}, "newfstatat,fstat:delay_exit=2000000", path);
  editor.join();
  EXPECT_EQ(seen(run), success("file: " + path + "\n\n" + written("off", "model_dir: /m\n")));
}

// The null device belongs to root, and every user may write to it.
TEST_F(LoadConfig, a_file_of_another_user_that_all_may_write_is_valid_even_if_empty) {
  sandbox.environment["VELUN_CLI_CONFIG"] = "/dev/null";
  RunOptions options;
  options.as_nobody = true;
  EXPECT_EQ(seen(sandbox.velun({"config"}, options)),
            success("file: /dev/null\n\n" + written("watch")));
}

TEST_F(LoadConfig, the_problems_of_the_reader_and_the_validator_are_reported_together) {
  write_file(sandbox.config_file(), "names: 2\nmodel_dir: /m\nendpoint_url: https://e\nx\n");
  EXPECT_EQ(
      seen(sandbox.velun({"config"})),
      failure(sandbox.config_file().string() +
              " has problems:\n"
              "  line 4: expected `key: value`\n"
              "  line 1: names must be true or false\n"
              "  model_dir and endpoint_url exclude each other — the daemon runs one detection "
              "engine per launch\n"));
}

TEST_F(LoadConfig, a_long_file_is_read_whole) {
  std::string text;
  while (text.size() < 10'000'000) {
    text += "# a comment\n";
  }
  for (const std::size_t size : {4095U, 4096U, 4097U, 8192U, 24'000U, 10'000'000U}) {
    const std::string head = text.substr(0, size - 1) + "\n";
    write_file(sandbox.config_file(), head + "color: red");
    const auto lines = 1 + std::count(head.begin(), head.end(), '\n');
    EXPECT_EQ(seen(sandbox.velun({"config"})),
              failure(sandbox.config_file().string() + " has problems:\n  line " +
                      std::to_string(lines) + ": unknown key `color`\n"));
  }
}

TEST_F(LoadConfig, a_pipe_is_read_to_its_end) {
  const std::string pipe = sandbox.root() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  sandbox.environment["VELUN_CLI_CONFIG"] = pipe;
  const pid_t velun = sandbox.start_velun({"config"});
  int writer = -1;
  // The pipe cannot be opened before velun opens it.
  ASSERT_TRUE(
      eventually([&] { return (writer = open(pipe.c_str(), O_WRONLY | O_NONBLOCK)) >= 0; }));
  for (const std::string piece : {"m", "ode: off\nmodel_dir: /m", "\n"}) {
    EXPECT_EQ(write(writer, piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
    EXPECT_TRUE(eventually([&] { return bytes_in(writer) == 0; }));
  }
  close(writer);
  EXPECT_EQ(wait_for(velun, std::chrono::seconds(10)), 0);
  EXPECT_EQ(read_file(sandbox.output_file()),
            "file: " + pipe + "\n\n" + written("off", "model_dir: /m\n"));
}

TEST_F(LoadConfig, bytes_of_any_kind_are_shown_as_they_are) {
  const std::string bytes("/a\0b \xff\xc3 \x01", 9);
  sandbox.configure("state_dir: " + bytes + "\n");
  EXPECT_EQ(seen(sandbox.velun({"config"})),
            success("file: " + sandbox.config_file().string() + "\n\n" +
                    sandbox.rendering("watch", "", "state_dir: " + bytes + "\n")));
  sandbox.configure(bytes + ": x\n");
  EXPECT_EQ(seen(sandbox.velun({"config"})),
            failure(sandbox.config_file().string() + " has problems:\n  line 4: unknown key `" +
                    bytes + "`\n"));
}

TEST_F(LoadConfig, a_missing_file_leaves_the_record_alone) {
  const ScopedEnvironment environment;
  environment.set("VELUN_CLI_CONFIG", sandbox.root() / "missing.yaml");
  Config config;
  config.mode = "off";
  config.intercept_port = 7;
  const Config before = config;
  EXPECT_FALSE(load_config(config, false));
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
  EXPECT_TRUE(load_config(config, true));
  Config expected;
  expected.control_port = 9103;
  EXPECT_EQ(fields_of(config), fields_of(expected));
}

}  // namespace
}  // namespace velun::test
