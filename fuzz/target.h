// What every fuzz target is made of. A target is one file with one function, which libFuzzer calls
// with any bytes; in ordinary builds replay.cc calls it with the files of the target's corpus. It
// returns when the product kept its promises and ends the process when it did not.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/// The function of a target. Always returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace velun::fuzz {

/// The bytes of an input as text.
inline std::string text_of(const std::uint8_t* data, std::size_t size) {
  return {data, data + size};
}

/// Goes on when `holds`; else says which rule is broken and ends the process, so that the input is
/// kept as a finding.
inline void check(bool holds, const char* rule) {
  if (!holds) {
    std::fprintf(stderr, "broken: %s\n", rule);
    std::abort();
  }
}

/// The same for two texts that have to be equal; a broken rule shows both.
inline void check_equal(std::string_view result, std::string_view expected, const char* rule) {
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
