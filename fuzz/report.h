// The rule for all reports that are made from the daemon's answers.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "fuzz/target.h"

namespace velun::fuzz {

/// Returns what `report` makes of `body`, or nothing if it throws the library's type error, as it
/// does for JSON of another shape. Checks that only a body that is no JSON has no report.
inline std::optional<std::string> report_of(
    const std::string& body, std::optional<std::string> (*report)(const std::string&)) {
  const bool is_json = nlohmann::json::accept(body);
  try {
    std::optional<std::string> text = report(body);
    check(text.has_value() == is_json, "there is a report, or the answer is no JSON");
    return text;
  } catch (const nlohmann::json::type_error&) {
    check(is_json, "only JSON is of another shape");
    return std::nullopt;
  }
}

}  // namespace velun::fuzz
