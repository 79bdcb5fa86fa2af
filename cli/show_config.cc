#include "cli/show_config.h"

#include <iostream>

#include "config/exit_status.h"
#include "config/locations.h"
#include "config/writer.h"

namespace velun {

int show_config(const Config& config) {
  std::cout << "file: " + config_path().string() + "\n\n" + render_config(config);
  return status_success;
}

}  // namespace velun
