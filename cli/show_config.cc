#include "cli/show_config.h"

#include <iostream>

#include "config/locations.h"
#include "config/writer.h"
#include "system/exit_status.h"

namespace velun {

int show_config(const Config& config) {
  std::cout << "file: " + config_path().string() + "\n\n" + render_config(config);
  return status_success;
}

}  // namespace velun
