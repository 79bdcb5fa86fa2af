// What is promised of the reports that are made of the daemon's answers.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "fuzz/target.h"

namespace velun::fuzz {

/// The report of an answer; nothing, too, for one of another shape, which raises the library's type
/// error. Checks that there is no report exactly when `body` is no JSON.
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
