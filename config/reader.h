// Splits the text of `velun.yaml` into keys with raw values. The format is a flat subset of YAML:
// one `key: value` pair a line, scalars (bare, single- or double-quoted), one-level lists in
// brackets, comments with "#". Nested keys, indentation, multi-line values and block lists are
// refused. The reader knows no key names; the validator checks them.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace velun {

/// One accepted line.
struct ConfigEntry {
  std::string scalar;              ///< the unquoted value; empty for a list
  std::vector<std::string> items;  ///< the unquoted items; empty for a scalar
  bool is_list = false;            ///< the value was written in brackets
  int line = 0;                    ///< 1-based line number
};

/// Sorted by the bytes of the keys; the validator reports problems in this order.
using RawConfig = std::map<std::string, ConfigEntry>;

/// The problems of the file as the user sees them: first the reader's, then the validator's. A
/// problem that concerns a single line begins with "line N: ".
using Problems = std::vector<std::string>;

/// Reads the whole text. A bad line appends one problem and adds nothing to the result. The first
/// of two equal keys wins.
RawConfig parse_config_text(std::string_view text, Problems& problems);

/// Removes leading and trailing spaces and tabs; other white space stays.
std::string_view trim_blanks(std::string_view text);

/// Removes a pair of quotes around the text. Inside double quotes, \n and \t are resolved, any
/// other escaped character stands for itself, and a last backslash stays. Inside single quotes
/// nothing is resolved. Any other text is returned unchanged.
std::string unquote_value(std::string_view text);

}  // namespace velun
