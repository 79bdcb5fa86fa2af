#include "system/output.h"

#include <cstdio>

namespace velun {

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

void print_error(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace velun
