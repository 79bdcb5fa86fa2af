// What velun says, on standard output and standard error. Through the C library: the C++ streams
// take longer to come up than most commands take to run.
#pragma once

#include <string_view>

namespace velun {

/// Writes the text to standard output, at the latest when velun exits. Whether it arrives goes
/// unreported: the work counts, and the exit status tells of that.
void print(std::string_view text);

/// Writes the text to standard error at once, behind all that was printed before it.
void print_error(std::string_view text);

/// Writes out what was printed so far.
void flush_output();

}  // namespace velun
