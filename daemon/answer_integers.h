// Integers in the daemon's answers. Templates over the JSON type, so that no header brings the
// library in.
#pragma once

#include <limits>

namespace velun {

/// A JSON value as an integer, converted as the library does it: cut to the integer's width, a
/// fraction cut off, true and false as 1 and 0, its type error for anything but these. A
/// floating-point number beyond the integer's range, which the library would convert by an
/// undefined operation, gives the smallest integer.
template <typename Integer, typename Json>
Integer to_integer(const Json& value) {
  constexpr auto smallest = std::numeric_limits<Integer>::min();
  // The first number beyond the largest integer; the largest itself may have no exact double.
  constexpr double end = -static_cast<double>(smallest);
  if (value.is_number_float()) {
    const auto number = value.template get<double>();
    return number > -end - 1 && number < end ? static_cast<Integer>(number) : smallest;
  }
  return value.template get<Integer>();
}

/// The member `name` of an object as an integer, 0 when there is none. Throws the library's type
/// error like `to_integer`, and for what is no object.
template <typename Integer, typename Json>
Integer integer_member(const Json& object, const char* name) {
  const auto member = object.find(name);
  return member != object.end() ? to_integer<Integer>(*member) : object.value(name, Integer{});
}

}  // namespace velun
