#include "config/reader.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace velun {
namespace {

// The scan includes the key, so an unpaired quote in a key hides a later "#".
std::string_view strip_comment(std::string_view line) {
  bool in_double = false;
  bool in_single = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (in_double && c == '\\') {
      ++i;
    } else if (c == '\'' && !in_double) {
      in_single = !in_single;
    } else if (c == '"' && !in_single) {
      in_double = !in_double;
    } else if (c == '#' && !in_double && !in_single) {
      return line.substr(0, i);
    }
  }
  return line;
}

// Commas inside quotes split too: quotes are removed only after splitting.
std::vector<std::string> split_items(std::string_view inside) {
  std::vector<std::string> items;
  for (std::size_t begin = 0; begin <= inside.size();) {
    const std::size_t end = std::min(inside.find(',', begin), inside.size());
    std::string item = unquote_value(trim_blanks(inside.substr(begin, end - begin)));
    if (!item.empty()) {
      items.push_back(std::move(item));
    }
    begin = end + 1;
  }
  return items;
}

// Adds the pair on one line to `raw`, or returns the problem if the line is refused.
std::optional<std::string> read_pair(std::string_view line, int number, RawConfig& raw) {
  const std::string_view pair = trim_blanks(strip_comment(line));
  // Tested before the indentation: indented comments are allowed.
  if (pair.empty()) {
    return std::nullopt;
  }
  if (line.front() == ' ' || line.front() == '\t') {
    return "indentation is not part of this file's format (flat keys only)";
  }
  // The first colon: later ones belong to the value, as in a URL.
  const std::size_t colon = pair.find(':');
  if (colon == std::string_view::npos) {
    return "expected `key: value`";
  }
  std::string key(trim_blanks(pair.substr(0, colon)));
  const std::string_view value = trim_blanks(pair.substr(colon + 1));
  if (key.empty()) {
    return "empty key";
  }
  if (raw.contains(key)) {
    return "duplicate key `" + key + "`";
  }
  ConfigEntry entry;
  entry.line = number;
  if (value.starts_with('[')) {
    if (!value.ends_with(']')) {
      return "unterminated list";
    }
    entry.is_list = true;
    entry.items = split_items(value.substr(1, value.size() - 2));
  } else {
    entry.scalar = unquote_value(value);
  }
  raw.emplace(std::move(key), std::move(entry));
  return std::nullopt;
}

// A backslash before the closing quote has nothing left to escape and stays.
std::string resolve_escapes(std::string_view inside) {
  std::string text;
  for (std::size_t i = 0; i < inside.size(); ++i) {
    char c = inside[i];
    if (c == '\\' && i + 1 < inside.size()) {
      c = inside[++i];
      c = c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
    text += c;
  }
  return text;
}

}  // namespace

RawConfig parse_config_text(std::string_view text, Problems& problems) {
  RawConfig raw;
  int number = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    // Accepts CRLF line endings.
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    }
    ++number;
    if (const auto problem = read_pair(line, number, raw)) {
      problems.push_back("line " + std::to_string(number) + ": " + *problem);
    }
  }
  return raw;
}

std::string_view trim_blanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) {
    return {};
  }
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string unquote_value(std::string_view text) {
  // A single character cannot be both the opening and the closing quote.
  if (text.size() < 2 || text.front() != text.back()) {
    return std::string(text);
  }
  const std::string_view inside = text.substr(1, text.size() - 2);
  if (text.front() == '"') {
    return resolve_escapes(inside);
  }
  return std::string(text.front() == '\'' ? inside : text);
}

}  // namespace velun
