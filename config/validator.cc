#include "config/validator.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

namespace velun {
namespace {

// The result of applying one value: nothing when it was accepted, else the problem's text.
using Verdict = std::optional<std::string>;

Verdict accept(std::string& field, const std::string& value) {
  field = value;
  return std::nullopt;
}

Verdict apply_mode(const std::string& value, Config& config) {
  const std::string mode = mode_meant_by(value);
  if (!is_mode(mode)) {
    return "mode must be off, watch or protect (got `" + value + "`)";
  }
  return accept(config.mode, mode);
}

Verdict apply_endpoint_url(const std::string& value, Config& config) {
  // Any value that begins with http passes; the daemon judges the rest.
  if (!value.empty() && !value.starts_with("http")) {
    return "endpoint_url must start with http:// or https://";
  }
  return accept(config.endpoint_url, value);
}

Verdict apply_port(std::string_view key, const std::string& value, int& port) {
  int number = 0;
  const char* end = value.data() + value.size();
  const auto [stop, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || stop != end || number < 1 || number > 65535) {
    return std::string(key) + " must be a port between 1 and 65535";
  }
  port = number;
  return std::nullopt;
}

Verdict apply_names(const std::string& value, Config& config) {
  const bool yes = value == "true" || value == "yes" || value == "on";
  const bool no = value == "false" || value == "no" || value == "off";
  if (!yes && !no) {
    return "names must be true or false";
  }
  config.names = yes;
  return std::nullopt;
}

struct KeyRule {
  std::string_view key;
  std::string_view takes;  // the scalar, in the words of the not-a-list problem; empty: a list
  Verdict (*apply)(const std::string& value, Config& config);
};

// In the order in which the keys are documented, which is also the order of preference among
// equally near suggestions.
constexpr KeyRule key_rules[] = {
    {"mode", "off, watch or protect", apply_mode},
    {"model_dir", "a directory path",
     [](const std::string& value, Config& config) { return accept(config.model_dir, value); }},
    {"endpoint_url", "a URL", apply_endpoint_url},
    {"anthropic_port", "a port number",
     [](const std::string& value, Config& config) {
       return apply_port("anthropic_port", value, config.anthropic_port);
     }},
    {"openai_port", "a port number",
     [](const std::string& value, Config& config) {
       return apply_port("openai_port", value, config.openai_port);
     }},
    {"control_port", "a port number",
     [](const std::string& value, Config& config) {
       return apply_port("control_port", value, config.control_port);
     }},
    {"state_dir", "a directory path",
     [](const std::string& value, Config& config) { return accept(config.state_dir, value); }},
    {"names", "true or false", apply_names},
    {"intercept_apps", "", nullptr},
    {"intercept_port", "a port number",
     [](const std::string& value, Config& config) {
       return apply_port("intercept_port", value, config.intercept_port);
     }},
};

Verdict apply_intercept_apps(const ConfigEntry& entry, Config& config) {
  if (!entry.is_list) {
    return "intercept_apps is a list, e.g. [claude-desktop, chatgpt]";
  }
  config.intercept_apps = entry.items;
  return std::nullopt;
}

std::string unknown_key(const std::string& key) {
  const std::string candidate = suggest_key(key);
  return "unknown key `" + key + "`" +
         (candidate.empty() ? "" : " — did you mean `" + candidate + "`?");
}

Verdict apply_entry(const std::string& key, const ConfigEntry& entry, Config& config) {
  const auto* rule = std::find_if(std::begin(key_rules), std::end(key_rules),
                                  [&](const KeyRule& row) { return row.key == key; });
  if (rule == std::end(key_rules)) {
    return unknown_key(key);
  }
  if (rule->apply == nullptr) {
    return apply_intercept_apps(entry, config);
  }
  if (entry.is_list) {
    return "`" + key + "` takes " + std::string(rule->takes) + ", not a list";
  }
  return rule->apply(entry.scalar, config);
}

// Levenshtein distance over bytes, one edit for an insertion, a deletion or a substitution.
std::size_t edit_distance(std::string_view from, std::string_view to) {
  std::vector<std::size_t> previous(to.size() + 1);
  std::iota(previous.begin(), previous.end(), std::size_t{0});
  std::vector<std::size_t> current(to.size() + 1);
  for (std::size_t i = 0; i < from.size(); ++i) {
    current[0] = i + 1;
    for (std::size_t j = 0; j < to.size(); ++j) {
      const std::size_t substitution = previous[j] + (from[i] == to[j] ? 0 : 1);
      current[j + 1] = std::min({substitution, previous[j + 1] + 1, current[j] + 1});
    }
    std::swap(previous, current);
  }
  return previous.back();
}

}  // namespace

Config validate_config(const RawConfig& raw, Problems& problems) {
  Config config;
  for (const auto& [key, entry] : raw) {
    if (Verdict problem = apply_entry(key, entry, config)) {
      problems.push_back({entry.line, *std::move(problem)});
    }
  }
  if (!config.model_dir.empty() && !config.endpoint_url.empty()) {
    problems.push_back({.text = "model_dir and endpoint_url exclude each other — the daemon runs "
                                "one detection engine per "
                                "launch"});
  }
  return config;
}

std::string suggest_key(std::string_view unknown_key) {
  std::size_t best_distance = 4;
  std::string_view best;
  for (const KeyRule& rule : key_rules) {
    const std::size_t distance = edit_distance(unknown_key, rule.key);
    if (distance < best_distance) {
      best_distance = distance;
      best = rule.key;
    }
  }
  return std::string(best);
}

}  // namespace velun
