#include "daemon/ask_daemon.h"

#include "config/locations.h"
#include "daemon/control_client.h"

namespace velun {

std::optional<std::string> ask_daemon(const Config& config, const std::string& path) {
  if (!daemon_healthy(config.control_port)) {
    return std::nullopt;
  }
  return control_get(config.control_port, path, read_control_token(config));
}

}  // namespace velun
