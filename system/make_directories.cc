#include "system/make_directories.h"

#include "system/output.h"

namespace velun {

void make_directories(const std::filesystem::path& path) {
  flush_output();
  std::filesystem::create_directories(path);
}

}  // namespace velun
