#include "system/files.h"

#include <gtest/gtest.h>

#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class PathExists : public ::testing::Test {
 protected:
  Sandbox sandbox;
};

TEST_F(PathExists, is_true_for_anything_that_is_there) {
  write_file(sandbox.root() / "file", "");
  fs::create_symlink("file", sandbox.root() / "link");
  EXPECT_TRUE(path_exists(sandbox.root() / "file"));
  EXPECT_TRUE(path_exists(sandbox.root() / "link"));
  EXPECT_TRUE(path_exists(sandbox.root()));
  EXPECT_TRUE(path_exists("/dev/null"));
}

TEST_F(PathExists, is_false_for_nothing_and_for_a_link_to_nothing) {
  fs::create_symlink("nothing", sandbox.root() / "link");
  EXPECT_FALSE(path_exists(sandbox.root() / "nothing"));
  EXPECT_FALSE(path_exists(sandbox.root() / "link"));
  EXPECT_FALSE(path_exists(""));
}

TEST_F(PathExists, is_false_when_the_question_cannot_be_answered) {
  write_file(sandbox.root() / "file", "");
  fs::create_symlink("loop", sandbox.root() / "loop");
  EXPECT_FALSE(path_exists(sandbox.root() / std::string(300, 'n')));
  EXPECT_FALSE(path_exists(std::string(5000, '/') + "n"));
  EXPECT_FALSE(path_exists(sandbox.root() / "loop"));
  EXPECT_FALSE(path_exists(sandbox.root() / "file/below"));
}

}  // namespace
}  // namespace velun::test
