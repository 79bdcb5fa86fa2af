#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

// The lines of `text` that hold `part`.
std::vector<std::string> lines_with(const std::string& part, const std::string& text) {
  std::vector<std::string> found;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.find(part) != std::string::npos) {
      found.push_back(line);
    }
  }
  return found;
}

// The program that was built, as readelf shows it.
class Binary : public ::testing::Test {
 protected:
  /// The lines with `part` that readelf prints with `option`.
  std::vector<std::string> shown(const std::string& option, const std::string& part) {
    RunOptions options;
    options.program = "/usr/bin/readelf";
    const Outcome run = sandbox_.velun({"-W", option, VELUN_BINARY}, options);
    EXPECT_EQ(run.status, 0) << run.err;
    return lines_with(part, run.out);
  }

  std::string the_one_shown(const std::string& option, const std::string& part) {
    const std::vector<std::string> lines = shown(option, part);
    EXPECT_EQ(lines.size(), 1U) << part;
    return lines.empty() ? "" : lines[0];
  }

 private:
  Sandbox sandbox_;
};

TEST_F(Binary, may_be_loaded_at_any_address) {
  EXPECT_NE(the_one_shown("-h", "Type:").find(" DYN "), std::string::npos);
  EXPECT_NE(the_one_shown("-d", "(FLAGS_1)").find(" PIE"), std::string::npos);
}

TEST_F(Binary, needs_neither_a_loader_nor_a_library) {
  if (!VELUN_IS_STATIC) {
    GTEST_SKIP() << "this build links dynamically";
  }
  EXPECT_EQ(shown("-l", "INTERP").size(), 0U);
  EXPECT_EQ(shown("-d", "(NEEDED)").size(), 0U);
}

// Protections against an attacker.
class Hardening : public Binary {
 protected:
  void SetUp() override {
    if (!VELUN_IS_HARDENED) {
      GTEST_SKIP() << "builds for sanitizers, counters or the debugger are not hardened";
    }
  }
};

TEST_F(Hardening, executes_nothing_that_can_be_written) {
  EXPECT_NE(the_one_shown("-l", "GNU_STACK").find(" RW "), std::string::npos);
  EXPECT_GE(shown("-l", "LOAD").size(), 2U);
  EXPECT_EQ(shown("-l", "RWE").size(), 0U);
}

TEST_F(Hardening, binds_all_symbols_at_startup) {
  EXPECT_NE(the_one_shown("-d", "(FLAGS_1)").find(" NOW"), std::string::npos);
}

TEST_F(Hardening, makes_the_global_offset_table_read_only_after_startup) {
  std::string type;
  std::uint64_t offset = 0;
  std::uint64_t begin = 0;
  std::uint64_t physical = 0;
  std::uint64_t size_in_file = 0;
  std::uint64_t size = 0;
  std::istringstream read_only(the_one_shown("-l", "GNU_RELRO"));
  read_only >> type >> std::hex >> offset >> begin >> physical >> size_in_file >> size;
  std::uint64_t tag = 0;
  std::uint64_t table = 0;
  std::istringstream entry(the_one_shown("-d", "(PLTGOT)"));
  entry >> std::hex >> tag >> type >> table;
  EXPECT_GE(table, begin);
  EXPECT_LT(table, begin + size);
}

// The program does not show these options for velun's own functions: it also contains libraries
// that Debian compiled.
TEST_F(Hardening, every_source_is_compiled_with_the_hardening_options) {
  if (!std::filesystem::exists(VELUN_COMPILE_COMMANDS)) {
    GTEST_SKIP() << "this build writes no list of its commands";
  }
  std::vector<std::string> options = {"-fstack-protector-strong", "-ftrivial-auto-var-init=zero",
                                      "-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3",
                                      "-D_GLIBCXX_ASSERTIONS"};
#if defined(__x86_64__)
  options.insert(options.end(), {"-fstack-clash-protection", "-fcf-protection=full"});
#elif defined(__aarch64__)
  options.emplace_back("-mbranch-protection=standard");
#endif
  const auto commands = lines_with(" -o CMakeFiles/velun", read_file(VELUN_COMPILE_COMMANDS));
  EXPECT_GT(commands.size(), 20U);
  for (const std::string& command : commands) {
    for (const std::string& option : options) {
      EXPECT_NE(command.find(" " + option + " "), std::string::npos) << option << ":\n" << command;
    }
  }
}

}  // namespace
}  // namespace velun::test
