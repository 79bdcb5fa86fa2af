#include <gtest/gtest.h>

#include "tests/support/elf_file.h"

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

}  // namespace
}  // namespace velun::test
