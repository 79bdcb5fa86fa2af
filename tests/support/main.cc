#include <gtest/gtest.h>

#include "tests/support/children.h"

int main(int argc, char* argv[]) {
  testing::InitGoogleTest(&argc, argv);
  velun::test::become_reaper();
  return RUN_ALL_TESTS();
}
