#include "daemon/lifecycle.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "config/locations.h"
#include "daemon/command_line.h"
#include "daemon/control_client.h"
#include "system/child.h"
#include "system/exit_status.h"
#include "system/files.h"
#include "system/output.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

// Start and stop poll the daemon this many times, with a pause before each try: about five seconds
// in all.
constexpr int poll_tries = 50;

// An interrupting signal does not shorten the sleep.
void pause_before_try() {
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

// The limit for one probe of a starting daemon. A slow daemon is probed again, and a listener that
// accepts but never answers makes the wait half a minute long at most.
constexpr std::chrono::milliseconds probe_limit{500};

// A failed write is not reported: the daemon runs all the same.
void record_pid(const Config& config, pid_t pid) {
  write_file(pid_file_of(config), std::to_string(pid) + "\n");
}

std::optional<pid_t> read_recorded_pid(const Config& config) {
  const std::optional<std::string> text = read_file(pid_file_of(config));
  return text ? recorded_pid(*text) : std::nullopt;
}

// Creates the state directory and returns the configuration with its path filled in, so the daemon
// is always told the path.
Config prepare_state_dir(Config config) {
  const fs::path directory = state_dir_of(config);
  fs::create_directories(directory);
  config.state_dir = directory.string();
  return config;
}

// Runs in the child and never returns.
[[noreturn]] void become_daemon(std::vector<std::string>& command) {
  // Cannot fail: a fresh child is never a process group leader.
  setsid();
  execute(command);
  print_error("could not start " + command[0] + ": exec failed\n");
  _exit(status_exec_failed);
}

int wait_for_daemon(const Config& config, pid_t pid, const std::vector<std::string>& command) {
  for (int i = 0; i < poll_tries; ++i) {
    pause_before_try();
    if (daemon_healthy(config.control_port, probe_limit)) {
      print("running (pid " + std::to_string(pid) + ", mode " + config.mode +
            ")\ndashboard: http://127.0.0.1:" + std::to_string(config.control_port) + "/\n");
      return status_success;
    }
    // After the probe: a daemon may fork, end its first process and still answer.
    if (waitpid(pid, nullptr, WNOHANG) == pid) {
      print_error("velund exited during startup — run it by hand to see why:\n  " +
                  command_text(command) + "\n");
      return status_failure;
    }
  }
  print_error("started (pid " + std::to_string(pid) +
              ") but the control port did not answer in 5 s\n");
  return status_failure;
}

// A process that may not be signalled counts as gone: this user cannot have started it.
bool is_alive(pid_t pid) {
  return kill(pid, 0) == 0;
}

bool wait_until_gone(pid_t pid) {
  for (int i = 0; i < poll_tries; ++i) {
    pause_before_try();
    if (!is_alive(pid)) {
      return true;
    }
  }
  return false;
}

// A failed removal is not reported: the next stop handles a stale pid file.
int finish(const Config& config, const char* message) {
  remove_file(pid_file_of(config));
  print(message);
  return status_success;
}

int stop_recorded(const Config& config, pid_t pid) {
  const std::string number = std::to_string(pid);
  if (!daemon_healthy(config.control_port)) {
    print_error("the recorded pid " + number + " is alive but no daemon answers on port " +
                std::to_string(config.control_port) +
                " — not killing it; if it is a stuck daemon, `kill " + number + "`\n");
    return status_failure;
  }
  // Fails if the daemon has just ended; the first try below then finds it gone.
  kill(pid, SIGTERM);
  if (!wait_until_gone(pid)) {
    print_error("still running after 5 s — `kill -9 " + number + "` if you mean it\n");
    return status_failure;
  }
  return finish(config, "stopped\n");
}

}  // namespace

std::optional<pid_t> recorded_pid(const std::string& text) {
  // strtol returns 0 without a number and the largest long for a number that is too large.
  const long pid = std::strtol(text.c_str(), nullptr, 10);
  return pid > 0 && pid <= std::numeric_limits<pid_t>::max()
             ? std::optional(static_cast<pid_t>(pid))
             : std::nullopt;
}

int start_daemon(const Config& config, const std::string& argument_zero) {
  if (config.mode == "off") {
    print("mode is off — nothing to start (see `velun mode`)\n");
    return status_success;
  }
  if (daemon_healthy(config.control_port)) {
    print("already running on control port " + std::to_string(config.control_port) + "\n");
    return status_success;
  }
  // Any kind of file passes; the daemon checks the rest.
  if (!config.model_dir.empty() && !path_exists(config.model_dir)) {
    print_error("model_dir does not exist: " + config.model_dir +
                "\n`velun help model` explains how to get a model.\n");
    return status_failure;
  }
  const Config launched = prepare_state_dir(config);
  std::vector<std::string> command = {find_daemon_program(argument_zero)};
  const std::vector<std::string> flags = daemon_argv(launched);
  command.insert(command.end(), flags.begin(), flags.end());

  const pid_t pid = fork();
  if (pid < 0) {
    print_error("fork failed\n");
    return status_failure;
  }
  if (pid == 0) {
    become_daemon(command);
  }
  record_pid(launched, pid);
  return wait_for_daemon(launched, pid, command);
}

int stop_daemon(const Config& config) {
  const std::optional<pid_t> pid = read_recorded_pid(config);
  // A live process alone is not signalled: the pid may have been reused.
  if (pid && is_alive(*pid)) {
    return stop_recorded(config, *pid);
  }
  if (daemon_healthy(config.control_port)) {
    print_error("a daemon answers on port " + std::to_string(config.control_port) +
                " but this CLI did not start it — not touching it\n");
    return status_failure;
  }
  return finish(config, "not running\n");
}

int restart_daemon(const Config& config, const std::string& argument_zero) {
  const int stopped = stop_daemon(config);
  return stopped == status_success ? start_daemon(config, argument_zero) : stopped;
}

}  // namespace velun
