#include "tests/standin/flags.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <iterator>

namespace {

bool is_port(const std::string& value) {
  int port = 0;
  const char* end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, port);
  return error == std::errc() && stop == end && port >= 1 && port <= 65535;
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
  bool (*accepts)(const std::string& value);  // none: the flag takes no value
  const char* wants;
  bool required;
};

constexpr Rule rules[] = {
    {"--anthropic-port", is_port, "a port between 1 and 65535", true},
    {"--openai-port", is_port, "a port between 1 and 65535", true},
    {"--control-port", is_port, "a port between 1 and 65535", true},
    {"--state-dir", is_given, "a directory", true},
    {"--quiet", nullptr, "", false},
    {"--protect", nullptr, "", false},
    {"--detector", is_local, "the word local", false},
    {"--names", nullptr, "", false},
    {"--model-endpoint", is_url, "a URL", false},
    {"--model", exists, "an existing path", false},
    {"--intercept", is_given, "application names", false},
    {"--intercept-port", is_port, "a port between 1 and 65535", false},
};

std::string check_combination(const Flags& flags) {
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

}  // namespace

std::string read_flags(const std::vector<std::string>& words, Flags& flags) {
  for (auto word = words.begin(); word != words.end(); ++word) {
    const auto* rule = std::find_if(std::begin(rules), std::end(rules),
                                    [&](const Rule& row) { return row.flag == *word; });
    if (rule == std::end(rules)) {
      return "unknown argument `" + *word + "`";
    }
    if (flags.contains(rule->flag)) {
      return *word + " is given twice";
    }
    std::string& value = flags[rule->flag];
    if (rule->accepts == nullptr) {
      continue;
    }
    if (std::next(word) == words.end()) {
      return *word + " needs a value: " + rule->wants;
    }
    value = *++word;
    if (!rule->accepts(value)) {
      return std::string(rule->flag) + " must be " + rule->wants + ", not `" + value + "`";
    }
  }
  return check_combination(flags);
}
