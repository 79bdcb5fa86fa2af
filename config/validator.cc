#include "config/validator.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <numeric>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

namespace velun {
namespace {

// The result of checking one value: nothing if it is accepted, else the problem's text.
using Verdict = std::optional<std::string>;

Verdict judge_mode(const std::string& value, Config& config) {
  const std::string mode = mode_meant_by(value);
  if (!is_mode(mode)) {
    return "mode must be off, watch or protect (got `" + value + "`)";
  }
  config.mode = mode;
  return std::nullopt;
}

Verdict judge_endpoint_url(const std::string& value, Config& config) {
  // Loose on purpose: any value that begins with http passes.
  if (!value.empty() && !value.starts_with("http")) {
    return "endpoint_url must start with http:// or https://";
  }
  config.endpoint_url = value;
  return std::nullopt;
}

Verdict judge_names(const std::string& value, Config& config) {
  // More words than the writer uses: people write booleans in all of these ways in YAML.
  const bool yes = value == "true" || value == "yes" || value == "on";
  const bool no = value == "false" || value == "no" || value == "off";
  if (!yes && !no) {
    return "names must be true or false";
  }
  config.names = yes;
  return std::nullopt;
}

using Text = std::string Config::*;
using Port = int Config::*;
using List = std::vector<std::string> Config::*;
using Judge = Verdict (*)(const std::string& value, Config& config);

struct KnownKey {
  std::string_view key;
  std::string_view takes;                       // the kind of value, in the words of its problems
  std::variant<Text, Port, List, Judge> value;  // its field, or the check that sets it
};

// In the order of the documentation. Of equally near suggestions, the first one wins.
constexpr KnownKey KNOWN_KEYS[] = {
    {"mode", "off, watch or protect", judge_mode},
    {"model_dir", "a directory path", &Config::model_dir},
    {"endpoint_url", "a URL", judge_endpoint_url},
    {"anthropic_port", "a port number", &Config::anthropic_port},
    {"openai_port", "a port number", &Config::openai_port},
    {"control_port", "a port number", &Config::control_port},
    {"state_dir", "a directory path", &Config::state_dir},
    {"names", "true or false", judge_names},
    {"intercept_apps", "a list, e.g. [claude-desktop, chatgpt]", &Config::intercept_apps},
    {"intercept_port", "a port number", &Config::intercept_port},
};

Verdict apply_port(std::string_view key, const std::string& value, int& port) {
  int number = 0;
  const char* end = value.data() + value.size();
  // Accepts a minus but no plus, and fails for a number that an int cannot hold.
  const auto [stop, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || stop != end || number < 1 || number > 65535) {
    return std::string(key) + " must be a port between 1 and 65535";
  }
  port = number;
  return std::nullopt;
}

Verdict apply_scalar(const KnownKey& known, const std::string& scalar, Config& config) {
  if (const Text* field = std::get_if<Text>(&known.value)) {
    config.*(*field) = scalar;
    return std::nullopt;
  }
  if (const Port* field = std::get_if<Port>(&known.value)) {
    return apply_port(known.key, scalar, config.*(*field));
  }
  return std::get<Judge>(known.value)(scalar, config);
}

std::string unknown_key(const std::string& key) {
  const std::string candidate = suggest_key(key);
  return "unknown key `" + key + "`" +
         (candidate.empty() ? "" : " — did you mean `" + candidate + "`?");
}

Verdict apply_entry(const std::string& key, const ConfigEntry& entry, Config& config) {
  const auto* known = std::find_if(std::begin(KNOWN_KEYS), std::end(KNOWN_KEYS),
                                   [&](const KnownKey& each) { return each.key == key; });
  if (known == std::end(KNOWN_KEYS)) {
    return unknown_key(key);
  }
  const std::string takes(known->takes);
  if (const List* field = std::get_if<List>(&known->value)) {
    if (!entry.is_list) {
      return key + " is " + takes;
    }
    config.*(*field) = entry.items;
    return std::nullopt;
  }
  if (entry.is_list) {
    return "`" + key + "` takes " + takes + ", not a list";
  }
  return apply_scalar(*known, entry.scalar, config);
}

// Levenshtein distance over bytes: an insertion, a deletion and a substitution cost one edit each.
// Two rows of the table are enough.
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
    if (const Verdict problem = apply_entry(key, entry, config)) {
      problems.push_back("line " + std::to_string(entry.line) + ": " + *problem);
    }
  }
  // Both stay stored: each is valid by itself.
  if (!config.model_dir.empty() && !config.endpoint_url.empty()) {
    problems.push_back(
        "model_dir and endpoint_url exclude each other — "
        "the daemon runs one detection engine per launch");
  }
  return config;
}

std::string suggest_key(std::string_view unknown_key) {
  std::size_t best_distance = 4;
  std::string_view best;
  for (const KnownKey& known : KNOWN_KEYS) {
    const std::size_t distance = edit_distance(unknown_key, known.key);
    if (distance < best_distance) {
      best_distance = distance;
      best = known.key;
    }
  }
  return std::string(best);
}

}  // namespace velun
