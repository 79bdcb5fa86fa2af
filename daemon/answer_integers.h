// Integers in the daemon's answers. Templates over the JSON type keep the library out of this
// header.
#pragma once

#include <limits>

namespace velun {

/// Converts a JSON value as the library does: a number is truncated to the width of `Integer`, a
/// fraction is dropped, true and false give 1 and 0 (but the library refuses them for its own type,
/// `std::int64_t`). Throws the library's type error for any other type. A floating-point number out
/// of range, for which the library's conversion is undefined, gives the smallest integer.
template <typename Integer, typename Json>
Integer to_integer(const Json& value) {
  constexpr auto smallest = std::numeric_limits<Integer>::min();
  // The first number above the largest integer. It is exact as a double; the largest integer may
  // not be.
  constexpr double end = -static_cast<double>(smallest);
  if (value.is_number_float()) {
    const auto number = value.template get<double>();
    return number >= -end && number < end ? static_cast<Integer>(number) : smallest;
  }
  return value.template get<Integer>();
}

/// The member `name` of an object as an integer, 0 if there is none. Throws the library's type
/// error as `to_integer` does, and also if `object` is not an object; then the lookup with a
/// default raises it.
template <typename Integer, typename Json>
Integer integer_member(const Json& object, const char* name) {
  const auto member = object.find(name);
  return member != object.end() ? to_integer<Integer>(*member) : object.value(name, Integer{});
}

}  // namespace velun
