#include "daemon/launch.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <vector>

#include "config/locations.h"
#include "daemon/command_line.h"
#include "daemon/control_client.h"
#include "daemon/polling.h"
#include "system/execute.h"
#include "system/exit_status.h"
#include "system/path_exists.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

// Creates the state directory and returns the configuration with its path filled in, so that the
// daemon is always told where it is.
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
  std::cerr << "could not start " + command[0] + ": exec failed\n";
  _exit(status_exec_failed);
}

// A pid file that cannot be written goes unreported: the daemon runs all the same.
void record_pid(const Config& config, pid_t pid) {
  std::ofstream(pid_file_of(config), std::ios::trunc) << std::to_string(pid) + "\n";
}

int wait_for_daemon(const Config& config, pid_t pid, const std::vector<std::string>& command) {
  for (int i = 0; i < poll_tries; ++i) {
    pause_before_try();
    if (daemon_healthy(config.control_port)) {
      std::cout << "running (pid " + std::to_string(pid) + ", mode " + config.mode +
                       ")\ndashboard: http://127.0.0.1:" + std::to_string(config.control_port) +
                       "/\n";
      return status_success;
    }
    if (waitpid(pid, nullptr, WNOHANG) == pid) {
      std::cerr << "velund exited during startup — run it by hand to see why:\n  " +
                       command_text(command) + "\n";
      return status_failure;
    }
  }
  std::cerr << "started (pid " + std::to_string(pid) +
                   ") but the control port did not answer in 5 s\n";
  return status_failure;
}

}  // namespace

int start_daemon(const Config& config, const std::string& argument_zero) {
  if (config.mode == "off") {
    std::cout << "mode is off — nothing to start (see `velun mode`)\n";
    return status_success;
  }
  if (daemon_healthy(config.control_port)) {
    std::cout << "already running on control port " + std::to_string(config.control_port) + "\n";
    return status_success;
  }
  if (!config.model_dir.empty() && !path_exists(config.model_dir)) {
    std::cerr << "model_dir does not exist: " + config.model_dir +
                     "\n`velun help model` explains how to get a model.\n";
    return status_failure;
  }
  const Config launched = prepare_state_dir(config);
  std::vector<std::string> command = {find_daemon_program(argument_zero)};
  const std::vector<std::string> flags = daemon_argv(launched);
  command.insert(command.end(), flags.begin(), flags.end());

  const pid_t pid = fork();
  if (pid < 0) {
    std::cerr << "fork failed\n";
    return status_failure;
  }
  if (pid == 0) {
    become_daemon(command);
  }
  record_pid(launched, pid);
  return wait_for_daemon(launched, pid, command);
}

}  // namespace velun
