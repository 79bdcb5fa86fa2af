#include "cli/mode.h"

#include "config/config_file.h"
#include "daemon/control_client.h"
#include "daemon/lifecycle.h"
#include "system/exit_status.h"
#include "system/output.h"

namespace velun {

int change_mode(Config config, const std::string& word, const std::string& argument_zero) {
  if (!is_mode(word)) {
    print_error("usage: velun mode off|watch|protect\n");
    return status_usage;
  }
  // Saved first: the file keeps the new mode even if the stop or the start fails.
  config.mode = word;
  save_config(config);
  const bool running = daemon_healthy(config.control_port);
  if (word == "off") {
    return running ? stop_daemon(config) : status_success;
  }
  // The mode is a launch flag, so a running daemon has to be restarted.
  return running ? restart_daemon(config, argument_zero) : start_daemon(config, argument_zero);
}

}  // namespace velun
