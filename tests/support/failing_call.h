// Runs velun and makes one of its system calls fail. The programs that it starts are not affected.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/sandbox.h"

namespace velun::test {

/// Runs velun with these words. `fault` is an injection of strace, such as "read:error=EIO:when=2".
/// With a `path` it affects only calls on that file.
inline Outcome with_fault(Sandbox& sandbox, const std::vector<std::string>& words,
                          const std::string& fault, const std::filesystem::path& path = {},
                          RunOptions options = {}) {
  std::vector<std::string> traced = {"-qq", "-o", sandbox.root() / "trace", "-e",
                                     "inject=" + fault};
  if (!path.empty()) {
    traced.insert(traced.end(), {"-P", path});
  }
  traced.emplace_back(VELUN_BINARY);
  traced.insert(traced.end(), words.begin(), words.end());
  options.program = "/usr/bin/strace";
  sandbox.set_counters_aside();
  // The leak check of a sanitizer build does not work under strace.
  sandbox.environment["ASAN_OPTIONS"] += ":detect_leaks=0";
  return sandbox.velun(traced, options);
}

/// A fixture for such runs. Skips its tests where strace cannot make calls fail.
template <typename Fixture>
class WithFaults : public Fixture {
 protected:
  void SetUp() override {
    Sandbox trial;
    if (!with_fault(trial, {"help"}, "write:error=ENOSPC:when=1").out.empty()) {
      GTEST_SKIP() << "strace cannot make calls fail here";
    }
  }
};

}  // namespace velun::test
