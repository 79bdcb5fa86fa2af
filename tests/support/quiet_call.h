// Calls that must print nothing, and their duration.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <utility>

namespace velun::test {

/// A result and the duration of its call.
template <typename Result>
struct Timed {
  Result result;
  std::chrono::milliseconds took{0};
};

/// Makes the call. Fails the test if it prints anything.
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
