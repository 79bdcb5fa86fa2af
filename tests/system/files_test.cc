#include "system/files.h"

#include <gtest/gtest.h>

#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

TEST(PathExists, is_true_for_anything_that_exists_and_false_if_that_cannot_be_determined) {
  const Sandbox sandbox;
  const fs::path root = sandbox.root();
  write_file(root / "file", "");
  fs::create_symlink("file", root / "link");
  fs::create_symlink("nothing", root / "dangling");
  fs::create_symlink("loop", root / "loop");
  for (const fs::path& path : {root, root / "file", root / "link", fs::path("/dev/null")}) {
    EXPECT_TRUE(path_exists(path)) << path;
  }
  for (const fs::path& path :
       {fs::path(), root / "nothing", root / "dangling", root / "loop", root / "file/below",
        root / std::string(300, 'n'), fs::path(std::string(5000, '/') + "n")}) {
    EXPECT_FALSE(path_exists(path)) << path;
  }
}

}  // namespace
}  // namespace velun::test
