// The messages of the C++ library for an uncaught exception. The tests are built with the same
// library as velun.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace velun::test {

#ifdef _LIBCPP_VERSION
inline constexpr std::string_view no_memory =
    "libc++abi: terminating with uncaught exception of type std::bad_alloc: std::bad_alloc\n";
#else
inline constexpr std::string_view no_memory =
    "terminate called after throwing an instance of 'std::bad_alloc'\n  what():  std::bad_alloc\n";
#endif

/// The start of an error of std::filesystem, for an action such as "create directories". LLVM's
/// library names the function instead.
inline std::string cannot(const std::string& what) {
#ifdef _LIBCPP_VERSION
  std::string function = what;
  std::replace(function.begin(), function.end(), ' ', '_');
  return "filesystem error: in " + function + ": ";
#else
  return "filesystem error: cannot " + what + ": ";
#endif
}

}  // namespace velun::test
