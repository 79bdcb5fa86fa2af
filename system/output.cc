#include "system/output.h"

#include <cstdio>

namespace velun {

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

void print_error(std::string_view text) {
  flush_output();
  std::fwrite(text.data(), 1, text.size(), stderr);
}

void flush_output() {
  std::fflush(stdout);
}

}  // namespace velun
