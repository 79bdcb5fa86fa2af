// The fixture of the tests of start, stop, restart and mode: a daemon whose steps a test chooses, a
// control port that answers at chosen moments, and velun's messages about both.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/children.h"
#include "tests/support/loopback_server.h"
#include "tests/support/sandbox.h"
#include "tests/support/scripted_program.h"

namespace velun::test {

/// The words with one blank in between, as velun shows a command line.
inline std::string spaced(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    text += word + " ";
  }
  text.pop_back();
  return text;
}

class Lifecycle : public ::testing::Test {
 protected:
  Sandbox sandbox;

  /// The daemon program of this test, named by `VELUND`.
  ScriptedProgram install_daemon(const std::string& steps) {
    ScriptedProgram daemon(sandbox.root() / "programs/daemon", steps);
    sandbox.environment["VELUND"] = daemon.path();
    return daemon;
  }

  /// Copies velun to sandbox/bin/velun, so a test can put a daemon beside it.
  std::filesystem::path copy_tool() const {
    const std::filesystem::path copy = sandbox.root() / "bin/velun";
    std::filesystem::create_directories(copy.parent_path());
    std::filesystem::copy_file(VELUN_BINARY, copy,
                               std::filesystem::copy_options::overwrite_existing);
    return copy;
  }

  /// Options for a run without root's powers.
  static RunOptions without_powers() {
    RunOptions options;
    options.as_nobody = true;
    return options;
  }

  /// Starts the program without velun and records its pid as velun would. Returns when the program
  /// has installed its signal handlers.
  pid_t launch_recorded(const ScriptedProgram& program) const {
    const std::size_t before = program.runs().size();
    Launch launch;
    launch.program = program.path();
    launch.argv = {program.path()};
    const pid_t pid = spawn(launch);
    EXPECT_TRUE(eventually([&] { return program.runs().size() > before; }));
    sandbox.write_pid_file(pid);
    return pid;
  }

  /// A control port that always answers.
  LoopbackServer answering_port() const {
    return LoopbackServer(sandbox.control_port(),
                          [](const std::string&) { return answer(200, "ok"); });
  }

  /// A control port that answers while the newest run of `daemon` exists.
  LoopbackServer port_of_daemon(const ScriptedProgram& daemon) const {
    return LoopbackServer(sandbox.control_port(), [&daemon](const std::string&) {
      const std::vector<RecordedRun> runs = daemon.runs();
      const bool alive = !runs.empty() && kill(runs.back().pid, 0) == 0;
      return alive ? answer(200, "ok") : answer(503, "");
    });
  }

  std::string port_text() const { return std::to_string(sandbox.control_port()); }

  std::string running_text(pid_t pid, const std::string& mode) const {
    return "running (pid " + std::to_string(pid) + ", mode " + mode +
           ")\ndashboard: http://127.0.0.1:" + port_text() + "/\n";
  }

  static std::string exited_text(const std::string& command_line) {
    return "velund exited during startup — run it by hand to see why:\n  " + command_line + "\n";
  }

  static std::string exec_failed_text(const std::string& program) {
    return "could not start " + program + ": exec failed\n";
  }

  std::string foreign_text() const {
    return "a daemon answers on port " + port_text() +
           " but this CLI did not start it — not touching it\n";
  }

  std::string silent_text(pid_t pid) const {
    const std::string number = std::to_string(pid);
    return "the recorded pid " + number + " is alive but no daemon answers on port " + port_text() +
           " — not killing it; if it is a stuck daemon, `kill " + number + "`\n";
  }
};

}  // namespace velun::test
