#include "system/path_exists.h"

#include <system_error>

namespace velun {

bool path_exists(const std::filesystem::path& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

}  // namespace velun
