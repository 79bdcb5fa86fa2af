// What velun says, on standard output and standard error. Through the C library: the C++ streams
// take longer to come up than most commands take to run.
#pragma once

#include <string_view>

namespace velun {

/// Writes the text to standard output at once. A failure goes unreported: the exit status is that
/// of the command's work.
void print(std::string_view text);

/// Writes the text to standard error at once. A failure goes unreported.
void print_error(std::string_view text);

}  // namespace velun
