// Printing on standard output and standard error, through the C library's streams.
#pragma once

#include <string_view>

namespace velun {

/// Writes the text to standard output at once. A failure is not reported: the exit status tells
/// whether the command did its work.
void print(std::string_view text);

/// Writes the text to standard error at once. A failure is not reported.
void print_error(std::string_view text);

}  // namespace velun
