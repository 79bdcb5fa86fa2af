#include "fuzz/target.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace velun::fuzz {

std::string text_of(const std::uint8_t* data, std::size_t size) {
  return {data, data + size};
}

void check(bool holds, const char* rule) {
  if (!holds) {
    std::fprintf(stderr, "broken: %s\n", rule);
    std::abort();
  }
}

void check_equal(std::string_view result, std::string_view expected, const char* rule) {
  if (result != expected) {
    const auto shown = [](std::string_view text) {
      return static_cast<int>(std::min<std::size_t>(text.size(), 2000));
    };
    std::fprintf(stderr, "result:\n%.*s\nexpected:\n%.*s\n", shown(result), result.data(),
                 shown(expected), expected.data());
  }
  check(result == expected, rule);
}

}  // namespace velun::fuzz
