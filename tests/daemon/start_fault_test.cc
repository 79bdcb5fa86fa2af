// What can go wrong around a start: the program, the answers, the pid file, signals, the output.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <cstring>

#include "tests/support/failing_call.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class StartFault : public Lifecycle {
 protected:
  StartFault() { sandbox.configure(); }

  /// A program that no ScriptedProgram can be: these bytes in a file that may be executed.
  std::string install_bytes(const std::string& bytes) {
    const fs::path program = sandbox.root() / "programs/daemon";
    write_file(program, bytes);
    fs::permissions(program, fs::perms::owner_all);
    return sandbox.environment["VELUND"] = program;
  }

  std::string exited(const std::string& program) const {
    return exited_text(program + " " + spaced(sandbox.daemon_flags()));
  }

  /// What a start says of this run of the daemon.
  std::string running(const RecordedRun& run) const { return running_text(run.pid, "watch"); }

  /// The pid on record.
  std::string record() const { return read_file(sandbox.pid_file()); }
};

TEST_F(StartFault, of_a_script_whose_interpreter_is_missing_is_a_failed_exec) {
  const std::string program = install_bytes("#!/does/not/exist\n");
  EXPECT_EQ(seen(sandbox.velun({"start"})), failure(exec_failed_text(program) + exited(program)));
}

// So does every shell: a file without a known format is a script of its own.
TEST_F(StartFault, of_a_file_without_a_format_runs_it_as_a_shell_script) {
  for (const char* script : {"", "exit 3\n", "kill -9 $$\n"}) {
    const std::string program = install_bytes(script);
    EXPECT_EQ(seen(sandbox.velun({"start"})), failure(exited(program))) << script;
  }
}

TEST_F(StartFault, writes_the_pid_through_a_link_even_a_dangling_one) {
  const ScriptedProgram daemon = install_daemon("exit 3");
  fs::create_directories(sandbox.state_dir());
  fs::create_symlink(sandbox.root() / "elsewhere", sandbox.pid_file());
  for (const std::size_t round : {0U, 1U}) {
    EXPECT_EQ(seen(sandbox.velun({"start"})), failure(exited(daemon.path())));
    EXPECT_EQ(read_file(sandbox.root() / "elsewhere"),
              std::to_string(daemon.runs().at(round).pid) + "\n");
    EXPECT_TRUE(fs::is_symlink(sandbox.pid_file()));
  }
}

using StartWithFaults = WithFaults<StartFault>;

TEST_F(StartWithFaults, on_a_full_disk_leaves_a_daemon_that_stop_does_not_touch) {
  const ScriptedProgram daemon = install_daemon("log-term\nforever");
  const LoopbackServer control = port_of_daemon(daemon);
  const Outcome run =
      with_fault(sandbox, {"start"}, "write:error=ENOSPC:when=1+", sandbox.pid_file());
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(seen(run), success(running(daemon.runs()[0])));
  EXPECT_EQ(record(), "");
  // A stop that took the empty record for its own process group would end the tests.
  RunOptions apart;
  apart.in_child = [] { setsid(); };
  EXPECT_EQ(seen(sandbox.velun({"stop"}, apart)), failure(foreign_text()));
  EXPECT_TRUE(is_running(daemon.runs()[0].pid));
  EXPECT_EQ(daemon.terms(), 0U);
}

// Nothing guards two commands at once: the last one that writes is on record.
TEST_F(StartFault, that_meets_another_one_records_either_daemon_whole) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control(sandbox.control_port(), [&](const std::string&) {
    return daemon.runs().size() == 2 ? answer(200, "ok") : answer(503, "");
  });
  const pid_t first = sandbox.start_velun({"start"});
  const pid_t second = sandbox.start_velun({"start"});
  EXPECT_EQ(wait_for(first, std::chrono::seconds(20)), 0);
  EXPECT_EQ(wait_for(second, std::chrono::seconds(20)), 0);
  const std::vector<RecordedRun> runs = daemon.runs();
  ASSERT_EQ(runs.size(), 2U);
  const std::string out = read_file(sandbox.output_file());
  EXPECT_TRUE(out == running(runs[0]) + running(runs[1]) ||
              out == running(runs[1]) + running(runs[0]))
      << out;
  EXPECT_TRUE(record() == std::to_string(runs[0].pid) + "\n" ||
              record() == std::to_string(runs[1].pid) + "\n")
      << record();
}

// In the middle of its pauses: the port answers only when the test says so.
class StartSignal : public StartFault {
 protected:
  /// Starts velun and returns once its daemon runs and it has asked behind its first pause.
  pid_t start() {
    RunOptions options;
    options.in_child = [] {
      for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        signal(number, SIG_DFL);
      }
    };
    const std::size_t asked = control.requests().size();
    const std::size_t ran = daemon.runs().size();
    const pid_t velun = sandbox.start_velun({"start"}, options);
    EXPECT_TRUE(eventually(
        [&] { return control.requests().size() > asked + 1 && daemon.runs().size() > ran; }));
    return velun;
  }

  ScriptedProgram daemon = install_daemon("forever");
  std::atomic<bool> ready = false;
  LoopbackServer control{sandbox.control_port(), [this](const std::string&) {
                           return ready ? answer(200, "ok") : answer(503, "");
                         }};
};

TEST_F(StartSignal, that_ends_velun_leaves_the_daemon_running_and_on_record) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGKILL}) {
    SCOPED_TRACE(strsignal(number));
    const pid_t velun = start();
    kill(velun, number);
    const int status = wait_for(velun, std::chrono::seconds(10));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == number);
    const pid_t pid = daemon.runs().back().pid;
    EXPECT_EQ(read_file(sandbox.output_file()), "");
    EXPECT_TRUE(is_running(pid));
    EXPECT_EQ(record(), std::to_string(pid) + "\n");
    ready = true;
    EXPECT_EQ(seen(sandbox.velun({"stop"})), success("stopped\n"));
    EXPECT_FALSE(is_running(pid));
    ready = false;
  }
}

TEST_F(StartSignal, that_ends_nobody_changes_nothing) {
  const pid_t velun = start();
  for (const int number : {SIGSTOP, SIGCONT, SIGWINCH, SIGURG, SIGCHLD, SIGSTOP, SIGCONT}) {
    kill(velun, number);
  }
  EXPECT_TRUE(is_running(velun));
  ready = true;
  EXPECT_EQ(wait_for(velun, std::chrono::seconds(10)), 0);
  EXPECT_EQ(read_file(sandbox.output_file()), running(daemon.runs().at(0)));
}

}  // namespace
}  // namespace velun::test
