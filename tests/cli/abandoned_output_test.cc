#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// A reader of velun's output that has left: the work is done to its end all the same.
class AbandonedOutput : public Lifecycle {
 protected:
  AbandonedOutput() { sandbox.configure(); }

  static RunOptions nobody_reads(int stream) {
    RunOptions options;
    options.in_child = [stream] {
      int ends[2];
      if (pipe2(ends, O_CLOEXEC) != 0 || dup2(ends[1], stream) != stream) {
        _exit(126);
      }
    };
    return options;
  }

  /// Installs a program at `path` that writes down which signals it was started to ignore.
  void install_witness(const fs::path& path) const {
    write_file(path,
               "#!/bin/sh\ngrep SigIgn /proc/self/status >'" + ignored_file().string() + "'\n");
    fs::permissions(path, fs::perms::owner_all);
  }

  /// Whether the witness ignored SIGPIPE when velun was started with that disposition.
  bool witness_ignores_sigpipe(const std::vector<std::string>& words, sighandler_t disposition) {
    RunOptions options;
    options.in_child = [disposition] { signal(SIGPIPE, disposition); };
    sandbox.velun(words, options);
    const std::string line = read_file(ignored_file());
    const unsigned long mask = std::stoul(line.substr(line.find('\t')), nullptr, 16);
    return (mask >> (SIGPIPE - 1) & 1) != 0;
  }

  fs::path ignored_file() const { return sandbox.root() / "ignored"; }
};

TEST_F(AbandonedOutput, does_not_keep_restart_from_starting_the_daemon_that_it_stopped) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  launch_recorded(daemon);
  EXPECT_EQ(seen(sandbox.velun({"restart"}, nobody_reads(STDOUT_FILENO))), success(""));
  ASSERT_EQ(daemon.runs().size(), 2U);
  EXPECT_TRUE(is_running(daemon.runs()[1].pid));
}

TEST_F(AbandonedOutput, does_not_keep_mode_from_starting_the_daemon) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  EXPECT_EQ(seen(sandbox.velun({"mode", "protect"}, nobody_reads(STDOUT_FILENO))), success(""));
  EXPECT_EQ(read_file(sandbox.config_file()), sandbox.rendering("protect"));
  EXPECT_EQ(daemon.runs().size(), 1U);
}

TEST_F(AbandonedOutput, leaves_every_status_as_it_is) {
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    const RunOptions options = nobody_reads(stream);
    EXPECT_EQ(sandbox.velun({"help"}, options).status, 0);
    EXPECT_EQ(sandbox.velun({"help", "nonsense"}, options).status, 2);
    EXPECT_EQ(sandbox.velun({"config"}, options).status, 0);
    EXPECT_EQ(sandbox.velun({"status"}, options).status, 0);
    EXPECT_EQ(sandbox.velun({"stats"}, options).status, 0);
    EXPECT_EQ(sandbox.velun({"log"}, options).status, 0);
    EXPECT_EQ(sandbox.velun({"stop"}, options).status, 0);
    EXPECT_EQ(sandbox.velun({"model", "list"}, options).status, 0);
    EXPECT_EQ(sandbox.velun({"model", "use", "x"}, options).status, 1);
    EXPECT_EQ(sandbox.velun({"setup"}, options).status, 0);
    EXPECT_EQ(sandbox.velun({"nonsense"}, options).status, 2);
  }
}

TEST_F(AbandonedOutput, does_not_change_how_a_child_ends_whose_program_is_missing) {
  sandbox.environment["VELUND"] = "/does/not/exist";
  RunOptions traced = nobody_reads(STDERR_FILENO);
  traced.program = "/usr/bin/strace";
  sandbox.velun({"-f", "-qq", "-o", "trace", "-e", "trace=exit_group", VELUN_BINARY, "start"},
                traced);
  const std::string trace = read_file(sandbox.root() / "trace");
  EXPECT_NE(trace.find("exit_group(127)"), std::string::npos) << trace;
}

TEST_F(AbandonedOutput, is_ignored_by_the_daemon_only_when_velun_was_started_that_way) {
  install_witness(sandbox.root() / "programs/daemon");
  sandbox.environment["VELUND"] = sandbox.root() / "programs/daemon";
  EXPECT_FALSE(witness_ignores_sigpipe({"start"}, SIG_DFL));
  EXPECT_TRUE(witness_ignores_sigpipe({"start"}, SIG_IGN));
}

TEST_F(AbandonedOutput, is_ignored_by_curl_only_when_velun_was_started_that_way) {
  install_witness(sandbox.root() / "programs/curl");
  sandbox.environment["PATH"] = (sandbox.root() / "programs").string() + ":/usr/bin:/bin";
  sandbox.environment["VELUN_MODEL_MIRROR"] = "http://127.0.0.1:" + port_text();
  EXPECT_FALSE(witness_ignores_sigpipe({"model", "fetch"}, SIG_DFL));
  EXPECT_TRUE(witness_ignores_sigpipe({"model", "fetch"}, SIG_IGN));
}

}  // namespace
}  // namespace velun::test
