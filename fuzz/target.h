// What every fuzz target is made of. A target is one file with one function, which libFuzzer calls
// with any bytes; in ordinary builds replay.cc calls it with the files of the target's corpus. It
// returns when the product kept its promises and ends the process when it did not.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The function of a target. Always returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace velun::fuzz {

/// The bytes of an input as text.
std::string text_of(const std::uint8_t* data, std::size_t size);

/// Goes on when `holds`; else says which rule is broken and ends the process, so that the input is
/// kept as a finding.
void check(bool holds, const char* rule);

/// The same for two texts that have to be equal; a broken rule shows both.
void check_equal(std::string_view result, std::string_view expected, const char* rule);

}  // namespace velun::fuzz
