#include "system/make_directories.h"

#include <iostream>

namespace velun {

void make_directories(const std::filesystem::path& path) {
  std::cout << std::flush;
  std::filesystem::create_directories(path);
}

}  // namespace velun
