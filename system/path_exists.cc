#include "system/path_exists.h"

#include <unistd.h>

namespace velun {

bool path_exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

}  // namespace velun
