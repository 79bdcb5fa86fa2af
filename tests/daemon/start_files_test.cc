#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include "tests/support/bystander.h"
#include "tests/support/last_words.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// The pid file and the state directory that `start` leaves.
class StartFiles : public Lifecycle {
 protected:
  std::string newest_pid_line(const ScriptedProgram& daemon) {
    const std::vector<RecordedRun> runs = daemon.runs();
    return runs.empty() ? "no run" : std::to_string(runs.back().pid) + "\n";
  }
};

TEST_F(StartFiles, pid_file_of_a_live_process_is_replaced_and_the_process_left_alone) {
  sandbox.configure();
  const Bystander bystander;
  sandbox.write_pid_file(bystander.pid_text() + " and more\nthan one line\n");
  const ScriptedProgram daemon = install_daemon("exit 0");
  EXPECT_EQ(sandbox.velun({"start"}).status, 1);
  EXPECT_EQ(read_file(sandbox.pid_file()), newest_pid_line(daemon));
  EXPECT_TRUE(bystander.alive());
}

TEST_F(StartFiles, pid_file_is_there_before_the_control_port_is_asked_again) {
  sandbox.configure();
  const ScriptedProgram daemon = install_daemon("forever");
  std::string seen;
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    if (daemon.runs().empty()) {
      return answer(503, "");
    }
    seen = read_file(sandbox.pid_file());
    return answer(200, "ok");
  });
  EXPECT_EQ(sandbox.velun({"start"}).status, 0);
  EXPECT_EQ(seen, newest_pid_line(daemon));
}

TEST_F(StartFiles, pid_file_that_cannot_be_written_goes_unreported) {
  sandbox.configure();
  fs::create_directories(sandbox.pid_file() / "in the way");
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const Outcome run = sandbox.velun({"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success(running_text(daemon.runs()[0].pid, "watch")));
  EXPECT_EQ(names_in(sandbox.pid_file()), std::vector<std::string>{"in the way"});
}

TEST_F(StartFiles, state_directory_is_created_with_its_parents) {
  const fs::path deep = sandbox.root() / "a/b/c";
  sandbox.configure("state_dir: " + deep.string() + "\n");
  const ScriptedProgram daemon = install_daemon("exit 0");
  EXPECT_EQ(sandbox.velun({"start"}).status, 1);
  EXPECT_EQ(names_in(deep), std::vector<std::string>{"velun-cli.pid"});
  EXPECT_EQ(read_file(deep / "velun-cli.pid"), newest_pid_line(daemon));
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

TEST_F(StartFiles, existing_state_directory_keeps_what_is_in_it) {
  sandbox.configure();
  write_file(sandbox.state_dir() / "control.token", "secret\n");
  install_daemon("exit 0");
  EXPECT_EQ(sandbox.velun({"start"}).status, 1);
  EXPECT_EQ(read_file(sandbox.state_dir() / "control.token"), "secret\n");
}

TEST_F(StartFiles, state_directory_that_cannot_be_created_ends_the_process_abnormally) {
  write_file(sandbox.root() / "file", "not a directory");
  sandbox.configure();
  const ScriptedProgram daemon = install_daemon("forever");
  for (const std::string directory : {"", "file", "file/state"}) {
    sandbox.environment["VELUN_STATE_DIR"] = directory;
    const Outcome run = sandbox.velun({"start"});
    EXPECT_EQ(run.signal, SIGABRT) << directory;
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(cannot("create directories")), std::string::npos) << run.err;
  }
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_EQ(read_file(sandbox.root() / "file"), "not a directory");
}

TEST_F(StartFiles, are_as_open_as_the_file_creation_mask_leaves_them) {
  sandbox.configure();
  install_daemon("exit 0");
  for (const mode_t mask : {0U, 022U, 077U}) {
    const fs::path directory = sandbox.root() / ("mask" + std::to_string(mask)) / "state";
    sandbox.environment["VELUN_STATE_DIR"] = directory;
    RunOptions options;
    options.in_child = [mask] { umask(mask); };
    sandbox.velun({"start"}, options);
    EXPECT_EQ(mode_of(directory), 0777 & ~mask);
    EXPECT_EQ(mode_of(directory / "velun-cli.pid"), 0666 & ~mask);
  }
}

}  // namespace
}  // namespace velun::test
