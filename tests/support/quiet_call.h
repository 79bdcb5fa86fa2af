// Calls that must not write a word, with the time that they took.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <utility>

namespace velun::test {

/// A result and how long it took to come.
template <typename Result>
struct Timed {
  Result result;
  std::chrono::milliseconds took{0};
};

/// Makes the call; fails the test when it writes anything to standard output or standard error.
template <typename Call>
auto quietly(const Call& call) -> Timed<decltype(call())> {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const auto begin = std::chrono::steady_clock::now();
  auto result = call();
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  return {std::move(result), std::chrono::duration_cast<std::chrono::milliseconds>(took)};
}

}  // namespace velun::test
