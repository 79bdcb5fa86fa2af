// Members of a JSON answer by the rules of the reports, with every type asked for beforehand.
#pragma once

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "fuzz/target.h"

namespace velun::fuzz {

/// What a reading that met a value of another type has in place of its text.
struct Unexpected {};

/// The member, or null when `object` has none of this name. Throws `Unexpected` for what is no
/// object.
inline const nlohmann::json* member_of(const nlohmann::json& object, const char* name) {
  if (!object.is_object()) {
    throw Unexpected();
  }
  const auto found = object.find(name);
  return found != object.end() ? &*found : nullptr;
}

/// The text of a member. Throws `Unexpected` for another type.
inline std::string text_member(const nlohmann::json& object, const char* name,
                               const std::string& absent) {
  const nlohmann::json* member = member_of(object, name);
  if (member != nullptr && !member->is_string()) {
    throw Unexpected();
  }
  return member != nullptr ? member->get<std::string>() : absent;
}

/// The number of a member: a whole one cut to its width, a fraction cut off, true and false as 1
/// and 0, and the smallest for one with a fraction or an exponent that is out of range. Throws
/// `Unexpected` for another type.
template <typename Number>
Number number_member(const nlohmann::json& object, const char* name) {
  const nlohmann::json* member = member_of(object, name);
  if (member == nullptr) {
    return 0;
  }
  if (!member->is_number() && !member->is_boolean()) {
    throw Unexpected();
  }
  if (member->is_number_float()) {
    constexpr Number smallest = std::numeric_limits<Number>::min();
    const long double whole = std::trunc(member->get<long double>());
    const bool fits = whole >= smallest && whole < -static_cast<long double>(smallest);
    return fits ? static_cast<Number>(whole) : smallest;
  }
  return member->get<Number>();
}

/// What `reading` makes of the answer: nothing when it is no JSON. Throws `Unexpected` like it.
inline std::optional<std::string> reading_of(const std::string& body,
                                             std::string (*reading)(const nlohmann::json&)) {
  const nlohmann::json answer = nlohmann::json::parse(body, nullptr, false);
  return answer.is_discarded() ? std::nullopt : std::optional(reading(answer));
}

/// What became of an answer in one text, to be compared: its report, that there is none, or that
/// its shape is not the expected one. Any exception but these two ends the process.
template <typename Report>
std::string outcome_of(const Report& report) {
  try {
    const std::optional<std::string> text = report();
    return text ? "report:\n" + *text : "no JSON";
  } catch (const nlohmann::json::type_error&) {
    return "of another shape";
  } catch (const Unexpected&) {
    return "of another shape";
  }
}

}  // namespace velun::fuzz
