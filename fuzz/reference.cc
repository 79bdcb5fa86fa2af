#include "fuzz/reference.h"

#include <algorithm>
#include <array>
#include <map>
#include <sstream>

#include "fuzz/target.h"

namespace velun::fuzz::reference {
namespace {

bool is_blank(char c) {
  return c == ' ' || c == '\t';
}

std::string trimmed(const std::string& text) {
  const auto first = std::find_if_not(text.begin(), text.end(), is_blank);
  const auto last = std::find_if_not(text.rbegin(), text.rend(), is_blank).base();
  return first < last ? std::string(first, last) : "";
}

// Where the comment begins, or the end of the line. `quote` is the kind that is open, 0 for none.
std::size_t end_of_content(const std::string& line) {
  char quote = 0;
  bool skip = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (skip) {
      skip = false;
      continue;
    }
    if (quote == 0 && c == '#') {
      return i;
    }
    if (quote == 0 && (c == '"' || c == '\'')) {
      quote = c;
    } else if (quote != 0 && c == quote) {
      quote = 0;
    } else if (quote == '"' && c == '\\') {
      skip = true;
    }
  }
  return line.size();
}

// The problem of a line, or the empty text.
std::string read_line(const std::string& line, int number, RawConfig& raw) {
  const std::string content = trimmed(line.substr(0, end_of_content(line)));
  if (content.empty()) {
    return "";
  }
  if (is_blank(line[0])) {
    return "indentation is not part of this file's format (flat keys only)";
  }
  std::vector<std::string> parts = split(content, ':');
  if (parts.size() == 1) {
    return "expected `key: value`";
  }
  const std::string key = trimmed(parts[0]);
  const std::string value = trimmed(content.substr(parts[0].size() + 1));
  if (key.empty()) {
    return "empty key";
  }
  if (raw.contains(key)) {
    return "duplicate key `" + key + "`";
  }
  const bool is_list = !value.empty() && value[0] == '[';
  if (is_list && value.back() != ']') {
    return "unterminated list";
  }
  ConfigEntry entry;
  entry.line = number;
  entry.is_list = is_list;
  if (is_list) {
    entry.items = items_of(value.substr(1, value.size() - 2));
  } else {
    entry.scalar = unquoted(value);
  }
  raw[key] = entry;
  return "";
}

// Whether `edits` insertions, deletions and substitutions are enough to make one of the other.
// Equal first bytes can stay: no way around them is shorter.
bool within(std::string_view from, std::string_view to, int edits) {
  if (from.empty() || to.empty()) {
    return from.size() + to.size() <= static_cast<std::size_t>(edits);
  }
  if (from[0] == to[0]) {
    return within(from.substr(1), to.substr(1), edits);
  }
  return edits > 0 &&
         (within(from.substr(1), to, edits - 1) || within(from, to.substr(1), edits - 1) ||
          within(from.substr(1), to.substr(1), edits - 1));
}

// 0 for what is no port.
int port_in(std::string digits) {
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
    return 0;
  }
  digits.erase(0, digits.find_first_not_of('0'));
  if (digits.empty() || digits.size() > 5 || (digits.size() == 5 && digits > "65535")) {
    return 0;
  }
  return std::stoi(digits);
}

// Stores the scalar of a known key; the problem of one that is refused, or the empty text.
std::string judge_scalar(const std::string& key, const std::string& value, Config& config) {
  static const std::map<std::string, bool> booleans = {
      {"true", true}, {"false", false}, {"yes", true}, {"no", false}, {"on", true}, {"off", false}};
  const std::map<std::string, int*> ports = {{"anthropic_port", &config.anthropic_port},
                                             {"openai_port", &config.openai_port},
                                             {"control_port", &config.control_port},
                                             {"intercept_port", &config.intercept_port}};
  if (const auto port = ports.find(key); port != ports.end()) {
    if (port_in(value) == 0) {
      return key + " must be a port between 1 and 65535";
    }
    *port->second = port_in(value);
  } else if (key == "mode") {
    if (value != "off" && value != "watch" && value != "protect" && value != "monitor") {
      return "mode must be off, watch or protect (got `" + value + "`)";
    }
    config.mode = value == "monitor" ? "watch" : value;
  } else if (key == "endpoint_url") {
    if (!value.empty() && value.substr(0, 4) != "http") {
      return "endpoint_url must start with http:// or https://";
    }
    config.endpoint_url = value;
  } else if (key == "names") {
    if (!booleans.contains(value)) {
      return "names must be true or false";
    }
    config.names = booleans.at(value);
  } else {
    (key == "model_dir" ? config.model_dir : config.state_dir) = value;
  }
  return "";
}

const char* what_it_takes(const std::string& key) {
  if (key.ends_with("_port")) {
    return "a port number";
  }
  return key == "mode"           ? "off, watch or protect"
         : key == "endpoint_url" ? "a URL"
         : key == "names"        ? "true or false"
                                 : "a directory path";
}

constexpr std::array known_keys = {
    "mode",         "model_dir", "endpoint_url", "anthropic_port", "openai_port",
    "control_port", "state_dir", "names",        "intercept_apps", "intercept_port"};

std::string judge_entry(const std::string& key, const ConfigEntry& entry, Config& config) {
  if (std::find(known_keys.begin(), known_keys.end(), key) == known_keys.end()) {
    const std::string near = suggestion(key);
    return "unknown key `" + key + "`" + (near.empty() ? "" : " — did you mean `" + near + "`?");
  }
  if (key == "intercept_apps") {
    if (!entry.is_list) {
      return "intercept_apps is a list, e.g. [claude-desktop, chatgpt]";
    }
    config.intercept_apps = entry.items;
    return "";
  }
  if (entry.is_list) {
    return "`" + key + "` takes " + what_it_takes(key) + ", not a list";
  }
  return judge_scalar(key, entry.scalar, config);
}

}  // namespace

RawConfig read(const std::string& text, Problems& problems) {
  RawConfig raw;
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    if (const std::string problem = read_line(line, number, raw); !problem.empty()) {
      problems.push_back("line " + std::to_string(number) + ": " + problem);
    }
  }
  return raw;
}

Config judge(const RawConfig& raw, Problems& problems) {
  Config config;
  for (const auto& [key, entry] : raw) {
    if (const std::string problem = judge_entry(key, entry, config); !problem.empty()) {
      problems.push_back("line " + std::to_string(entry.line) + ": " + problem);
    }
  }
  if (!config.model_dir.empty() && !config.endpoint_url.empty()) {
    problems.push_back(
        "model_dir and endpoint_url exclude each other — the daemon runs one detection engine per "
        "launch");
  }
  return config;
}

std::string suggestion(std::string_view key) {
  for (int edits = 0; edits <= 3; ++edits) {
    for (const char* known : known_keys) {
      if (within(key, known, edits)) {
        return known;
      }
    }
  }
  return "";
}

std::string quoted(const std::string& text) {
  const bool plain = !text.empty() && text.find_first_of("\t\n\"#,:\\") == std::string::npos &&
                     text.front() != ' ' && text.back() != ' ' && text.front() != '\'' &&
                     text.front() != '[';
  if (plain) {
    return text;
  }
  static const std::map<char, std::string> escapes = {
      {'\\', "\\\\"}, {'"', "\\\""}, {'\n', "\\n"}, {'\t', "\\t"}};
  std::string result = "\"";
  for (const char c : text) {
    result += escapes.contains(c) ? escapes.at(c) : std::string(1, c);
  }
  return result + "\"";
}

std::string unquoted(const std::string& text) {
  if (text.size() < 2 || text.front() != text.back() ||
      (text.front() != '"' && text.front() != '\'')) {
    return text;
  }
  std::string result;
  for (std::size_t i = 1; i + 1 < text.size(); ++i) {
    if (text.front() == '\'' || text[i] != '\\' || i + 2 == text.size()) {
      result += text[i];
    } else {
      ++i;
      result += text[i] == 'n' ? '\n' : text[i] == 't' ? '\t' : text[i];
    }
  }
  return result;
}

std::vector<std::string> items_of(const std::string& inside) {
  std::vector<std::string> items;
  for (const std::string& piece : split(inside, ',')) {
    if (const std::string item = unquoted(trimmed(piece)); !item.empty()) {
      items.push_back(item);
    }
  }
  return items;
}

}  // namespace velun::fuzz::reference
