#include "daemon/stop.h"

#include <signal.h>
#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>

#include "config/locations.h"
#include "daemon/control_client.h"
#include "daemon/polling.h"
#include "system/exit_status.h"

namespace velun {
namespace {

// A number that does not fit a pid must not be used: signals to zero and below reach whole groups.
std::optional<pid_t> read_recorded_pid(const Config& config) {
  std::ifstream file(pid_file_of(config));
  pid_t pid = 0;
  if (file >> pid && pid > 0) {
    return pid;
  }
  return std::nullopt;
}

// A process that may not be signalled counts as gone: it cannot be the one this user started.
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

int finish(const Config& config, const char* message) {
  std::error_code ignored;
  std::filesystem::remove(pid_file_of(config), ignored);
  std::cout << message;
  return status_success;
}

int stop_recorded(const Config& config, pid_t pid) {
  const std::string number = std::to_string(pid);
  if (!daemon_healthy(config.control_port)) {
    std::cerr << "the recorded pid " + number + " is alive but no daemon answers on port " +
                     std::to_string(config.control_port) +
                     " — not killing it; if it is a stuck daemon, `kill " + number + "`\n";
    return status_failure;
  }
  // A daemon that ends between the test and the signal is what the wait below expects anyway.
  kill(pid, SIGTERM);
  if (!wait_until_gone(pid)) {
    std::cerr << "still running after 5 s — `kill -9 " + number + "` if you mean it\n";
    return status_failure;
  }
  return finish(config, "stopped\n");
}

}  // namespace

int stop_daemon(const Config& config) {
  const std::optional<pid_t> pid = read_recorded_pid(config);
  if (pid && is_alive(*pid)) {
    return stop_recorded(config, *pid);
  }
  if (daemon_healthy(config.control_port)) {
    std::cerr << "a daemon answers on port " + std::to_string(config.control_port) +
                     " but this CLI did not start it — not touching it\n";
    return status_failure;
  }
  return finish(config, "not running\n");
}

}  // namespace velun
