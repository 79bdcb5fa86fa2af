#include "daemon/launch.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <system_error>

#include "config/locations.h"
#include "daemon/control_client.h"
#include "daemon/polling.h"
#include "system/execute.h"
#include "system/exit_status.h"
#include "system/path_exists.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

// The first word, then every other one behind the separator; an empty word keeps its place.
std::string join(const std::vector<std::string>& words, char separator) {
  std::string text;
  for (const std::string& word : words) {
    text += word + separator;
  }
  text.pop_back();
  return text;
}

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

int wait_for_daemon(const Config& config, pid_t pid, const std::string& command_line) {
  for (int i = 0; i < poll_tries; ++i) {
    pause_before_try();
    if (daemon_healthy(config.control_port)) {
      std::cout << "running (pid " + std::to_string(pid) + ", mode " + config.mode +
                       ")\ndashboard: http://127.0.0.1:" + std::to_string(config.control_port) +
                       "/\n";
      return status_success;
    }
    if (waitpid(pid, nullptr, WNOHANG) == pid) {
      std::cerr << "velund exited during startup — run it by hand to see why:\n  " + command_line +
                       "\n";
      return status_failure;
    }
  }
  std::cerr << "started (pid " + std::to_string(pid) +
                   ") but the control port did not answer in 5 s\n";
  return status_failure;
}

}  // namespace

std::vector<std::string> daemon_argv(const Config& config) {
  std::vector<std::string> argv = {"--anthropic-port", std::to_string(config.anthropic_port),
                                   "--openai-port",    std::to_string(config.openai_port),
                                   "--control-port",   std::to_string(config.control_port)};
  const auto add = [&argv](std::initializer_list<std::string> words) {
    argv.insert(argv.end(), words);
  };
  if (!config.state_dir.empty()) {
    add({"--state-dir", config.state_dir});
  }
  add({"--quiet"});
  if (config.mode == "protect") {
    add({"--protect"});
  }
  add({"--detector", "local"});
  if (config.names) {
    add({"--names"});
  }
  if (!config.endpoint_url.empty()) {
    add({"--model-endpoint", config.endpoint_url});
  } else if (!config.model_dir.empty()) {
    add({"--model", config.model_dir});
  }
  if (!config.intercept_apps.empty()) {
    add({"--intercept", join(config.intercept_apps, ',')});
    add({"--intercept-port", std::to_string(config.intercept_port)});
  }
  return argv;
}

std::string find_daemon_program(const std::string& argument_zero) {
  std::error_code error;
  const fs::path tool = fs::canonical(argument_zero, error);
  if (!error) {
    const fs::path beside = tool.parent_path() / "velund";
    if (path_exists(beside)) {
      return beside.string();
    }
  }
  const char* named = std::getenv("VELUND");
  return named != nullptr ? named : "velund";
}

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
  return wait_for_daemon(launched, pid, join(command, ' '));
}

}  // namespace velun
