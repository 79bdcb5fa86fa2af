#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/elf_file.h"
#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

// The program that was built.
class Binary : public ::testing::Test {
 protected:
  ElfFile file_{VELUN_BINARY};
};

TEST_F(Binary, may_be_loaded_anywhere) {
  EXPECT_EQ(file_.header().e_type, ET_DYN);
  EXPECT_NE(file_.dynamic(DT_FLAGS_1).at(0) & DF_1_PIE, 0U);
}

TEST_F(Binary, needs_neither_a_loader_nor_a_library) {
  if (!VELUN_IS_STATIC) {
    GTEST_SKIP() << "this build was asked, or had, to link dynamically";
  }
  EXPECT_FALSE(file_.segment(PT_INTERP).has_value());
  EXPECT_EQ(file_.dynamic(DT_NEEDED).size(), 0U);
}

// What an attacker would miss in it. The C and C++ libraries that are linked in are as their
// packager compiled them, so that only velun's own functions are looked into.
class Hardening : public Binary {
 protected:
  void SetUp() override {
    if (!VELUN_IS_HARDENED) {
      GTEST_SKIP() << "a build for sanitizers, counters or the debugger goes without";
    }
  }
};

TEST_F(Hardening, executes_nothing_that_can_be_written) {
  ASSERT_TRUE(file_.segment(PT_GNU_STACK).has_value());
  EXPECT_EQ(file_.segment(PT_GNU_STACK)->p_flags & PF_X, 0U);
  for (const auto& segment : file_.segments()) {
    if (segment.p_type == PT_LOAD) {
      EXPECT_NE(segment.p_flags & (PF_W | PF_X), static_cast<unsigned>(PF_W | PF_X));
    }
  }
}

TEST_F(Hardening, fills_in_all_addresses_at_the_start) {
  EXPECT_NE(file_.dynamic(DT_FLAGS_1).at(0) & DF_1_NOW, 0U);
}

TEST_F(Hardening, makes_the_table_of_addresses_read_only_then) {
  const auto read_only = file_.segment(PT_GNU_RELRO);
  ASSERT_TRUE(read_only.has_value());
  const auto table = file_.dynamic(DT_PLTGOT).at(0);
  EXPECT_GE(table, read_only->p_vaddr);
  EXPECT_LT(table, read_only->p_vaddr + read_only->p_memsz);
}

TEST_F(Hardening, functions_notice_an_overwritten_stack) {
  EXPECT_EQ(file_.called_by_own_functions().count("__stack_chk_fail"), 1U);
}

TEST_F(Hardening, elements_out_of_range_end_the_program) {
#ifdef _LIBCPP_VERSION
  GTEST_SKIP() << "LLVM's C++ library is not told to look for them";
#endif
  EXPECT_EQ(file_.called_by_own_functions().count("_ZSt21__glibcxx_assert_failPKciS0_S0_"), 1U);
}

TEST_F(Hardening, the_c_library_is_told_the_sizes_of_buffers) {
#ifdef __clang__
  GTEST_SKIP() << "clang has no counterpart for the one call in C++ that would show it";
#endif
  EXPECT_EQ(file_.called_by_own_functions().count("__snprintf_chk"), 1U);
}

TEST_F(Hardening, functions_that_others_call_begin_where_a_jump_may_land) {
#if defined(__x86_64__)
  const std::set<std::string> landings = {"\xf3\x0f\x1e\xfa"};  // endbr64
#elif defined(__aarch64__)
  const std::set<std::string> landings = {"\x5f\x24\x03\xd5",
                                          "\x3f\x23\x03\xd5"};  // bti c, paciasp
#else
  GTEST_SKIP() << "no mark of this processor is known here";
  const std::set<std::string> landings;
#endif
  int looked_at = 0;
  for (const auto& function : file_.own_functions()) {
    if (function.seen_outside) {
      EXPECT_EQ(landings.count(function.code.substr(0, 4)), 1U) << function.name;
      ++looked_at;
    }
  }
  EXPECT_GT(looked_at, 20);
}

TEST_F(Hardening, a_stack_of_several_pages_is_touched_page_by_page) {
#if !defined(__x86_64__)
  GTEST_SKIP() << "no function here has a stack as large as the guard of this processor";
#endif
  const std::string one_page = {"\x48\x81\xec\x00\x10\x00\x00", 7};  // sub $0x1000,%rsp
  const std::string touches[] = {
      {"\x48\x83\x0c\x24\x00", 5},              // orq $0,(%rsp), by GCC
      {"\x80\x0c\x24\x00", 4},                  // orb $0,(%rsp), by GCC 16
      {"\x48\xc7\x04\x24\x00\x00\x00\x00", 8},  // movq $0,(%rsp), by clang
  };
  int touching = 0;
  // No function of velun's own has so large a stack; the parser of an answer's fields does.
  for (const auto& function : file_.http_functions()) {
    for (const std::string& touch : touches) {
      touching += function.code.find(one_page + touch) != std::string::npos ? 1 : 0;
    }
  }
  EXPECT_GE(touching, 1);
}

// Zeroed automatics leave no mark in a program, nor does the strong kind of stack protection.
TEST_F(Hardening, every_source_is_compiled_with_what_the_program_cannot_show) {
  if (!std::filesystem::exists(VELUN_COMPILE_COMMANDS)) {
    GTEST_SKIP() << "this build writes no list of its commands";
  }
  std::istringstream commands(read_file(VELUN_COMPILE_COMMANDS));
  int sources = 0;
  for (std::string line; std::getline(commands, line);) {
    if (line.find(" -o CMakeFiles/velun") != std::string::npos) {
      EXPECT_NE(line.find(" -fstack-protector-strong "), std::string::npos) << line;
      EXPECT_NE(line.find(" -ftrivial-auto-var-init=zero "), std::string::npos) << line;
      EXPECT_NE(line.find(" -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 "), std::string::npos) << line;
      ++sources;
    }
  }
  EXPECT_GT(sources, 20);
}

}  // namespace
}  // namespace velun::test
