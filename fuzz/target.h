// The parts of every fuzz target. A target is one file with one function. libFuzzer calls it with
// any bytes; in ordinary builds replay.cc calls it with the files of the target's corpus. The
// function returns if the product keeps its rules, and ends the process if it breaks one.
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

/// Does nothing if `holds`. Otherwise prints the broken rule and ends the process, so the fuzzer
/// keeps the input as a finding.
inline void check(bool holds, const char* rule) {
  if (!holds) {
    std::fprintf(stderr, "broken: %s\n", rule);
    std::abort();
  }
}

/// The same for two texts that must be equal. Prints both if they differ.
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
