#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <iterator>

#include "tests/standin/standin.h"

namespace {

bool is_port(const std::string& value) {
  std::uint16_t port = 0;
  const char* end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, port);
  return error == std::errc() && stop == end && port != 0;
}

bool is_given(const std::string& value) {
  return !value.empty();
}

bool is_url(const std::string& value) {
  return value.starts_with("http");
}

bool is_local(const std::string& value) {
  return value == "local";
}

bool exists(const std::string& value) {
  std::error_code unknown_counts_as_missing;
  return std::filesystem::exists(value, unknown_counts_as_missing);
}

struct Rule {
  const char* flag;
  bool (*accepts)(const std::string& value);  // null: the flag takes no value
  bool required;
};

constexpr Rule rules[] = {
    {"--anthropic-port", is_port, true}, {"--openai-port", is_port, true},
    {"--control-port", is_port, true},   {"--state-dir", is_given, true},
    {"--quiet", nullptr, false},         {"--protect", nullptr, false},
    {"--detector", is_local, false},     {"--names", nullptr, false},
    {"--model-endpoint", is_url, false}, {"--model", exists, false},
    {"--intercept", is_given, false},    {"--intercept-port", is_port, false},
};

}  // namespace

std::string read_flags(const std::vector<std::string>& words, Flags& flags) {
  for (auto word = words.begin(); word != words.end(); ++word) {
    const auto* rule = std::find_if(std::begin(rules), std::end(rules),
                                    [&](const Rule& row) { return row.flag == *word; });
    if (rule == std::end(rules) || flags.contains(*word)) {
      return "unknown or repeated argument `" + *word + "`";
    }
    std::string& value = flags[*word];
    if (rule->accepts != nullptr) {
      value = std::next(word) == words.end() ? "" : *++word;
      if (!rule->accepts(value)) {
        return std::string(rule->flag) + " does not take `" + value + "`";
      }
    }
  }
  for (const Rule& rule : rules) {
    if (rule.required && !flags.contains(rule.flag)) {
      return std::string(rule.flag) + " is missing";
    }
  }
  if (flags.contains("--model") && flags.contains("--model-endpoint")) {
    return "--model and --model-endpoint exclude each other";
  }
  if (flags.contains("--intercept") != flags.contains("--intercept-port")) {
    return "--intercept and --intercept-port need each other";
  }
  return "";
}
