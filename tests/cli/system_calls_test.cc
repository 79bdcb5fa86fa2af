#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

// What the everyday commands ask of the kernel, start-up of the C library and its memory left out.
class SystemCalls : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!VELUN_IS_STATIC) {
      GTEST_SKIP() << "a loader, a sanitizer or counters would ask for more";
    }
    sandbox.configure();
  }

  /// The names of the calls, each behind a blank, from the first that velun makes itself.
  std::string of(const std::string& command) {
    RunOptions traced;
    traced.program = "/usr/bin/strace";
    sandbox.velun({"-qq", "-otrace", VELUN_BINARY, command}, traced);
    std::istringstream lines(read_file(sandbox.root() / "trace"));
    std::string names;
    for (std::string line; std::getline(lines, line);) {
      const std::string name = line.substr(0, line.find('('));
      const bool of_memory = name == "brk" || name == "mmap" || name == "munmap";
      if (!of_memory && (!names.empty() || line.find("\"/dev/null\"") != std::string::npos)) {
        names += " " + (name == "newfstatat" ? "fstat" : name);
      }
    }
    return names;
  }

  // Whether all three streams are open; that children can be waited for and readers may leave.
  const std::string entry = " openat close rt_sigaction rt_sigaction";
  // The config file, whole: how large it is, and how large its blocks are, which the C library
  // asks.
  const std::string load = " openat fstat fstat read read close";
  // The C library looks once what kind of file its output is.
  const std::string print = " fstat write exit_group";

  Sandbox sandbox;
};

TEST_F(SystemCalls, of_help_are_those_of_its_entry_and_its_output) {
  EXPECT_EQ(of("help"), entry + print);
}

TEST_F(SystemCalls, of_config_add_those_that_read_the_file) {
  EXPECT_EQ(of("config"), entry + load + print);
}

// The HTTP library's event loop comes up, learns that nobody listens, and goes: 18 calls with Boost
// 1.74. Other versions may need one or two more.
TEST_F(SystemCalls, of_status_add_one_refused_connection) {
  const std::string names = of("status");
  EXPECT_TRUE(names.starts_with(entry + load)) << names;
  EXPECT_TRUE(names.ends_with(print)) << names;
  const std::string rest =
      names.substr(0, names.size() - print.size()).substr((entry + load).size());
  EXPECT_LE(std::count(rest.begin(), rest.end(), ' '), 20) << rest;
}

}  // namespace
}  // namespace velun::test
