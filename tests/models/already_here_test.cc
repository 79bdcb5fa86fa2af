// What stands at a file's final name decides whether it is downloaded.

#include <gtest/gtest.h>

#include "tests/models/fetch_fixture.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class AlreadyHere : public Fetching {
 protected:
  AlreadyHere() { use_mirror(server.port()); }

  void expect_calibration_left_alone() {
    RunOptions options;
    options.as_nobody = true;
    EXPECT_EQ(fetch(options), success(fetch_that_finds({"calibration.json"})));
    EXPECT_EQ(server.paths(), (Words{tokenizer_path, graph_path}));
  }

  void expect_calibration_downloaded() {
    EXPECT_EQ(fetch(), success(fresh_fetch));
    EXPECT_EQ(server.paths(), mirror_paths);
    EXPECT_TRUE(fs::symlink_status(bundle() / "calibration.json").type() == fs::file_type::regular);
    EXPECT_EQ(read_file(bundle() / "calibration.json"), calibration_body);
  }

  LoopbackServer server{0, serving(mirror_files)};
};

TEST_F(AlreadyHere, is_a_file_of_another_size_than_expected_that_may_not_be_read) {
  put("calibration.json", "x");
  fs::permissions(bundle() / "calibration.json", fs::perms::none);
  expect_calibration_left_alone();
  fs::permissions(bundle() / "calibration.json", fs::perms::owner_read);
  EXPECT_EQ(read_file(bundle() / "calibration.json"), "x");
}

TEST_F(AlreadyHere, is_a_directory_at_the_final_name) {
  fs::create_directories(bundle() / "calibration.json");
  expect_calibration_left_alone();
}

TEST_F(AlreadyHere, is_a_link_to_a_file_that_holds_something) {
  write_file(sandbox.root() / "elsewhere", "mine");
  fs::create_directories(bundle());
  fs::create_symlink(sandbox.root() / "elsewhere", bundle() / "calibration.json");
  expect_calibration_left_alone();
  EXPECT_EQ(read_file(bundle() / "calibration.json"), "mine");
}

TEST_F(AlreadyHere, is_not_a_link_to_an_empty_file_which_the_download_replaces) {
  write_file(sandbox.root() / "elsewhere", "");
  fs::create_directories(bundle());
  fs::create_symlink(sandbox.root() / "elsewhere", bundle() / "calibration.json");
  expect_calibration_downloaded();
  EXPECT_EQ(read_file(sandbox.root() / "elsewhere"), "");
}

TEST_F(AlreadyHere, is_not_a_dangling_link_which_the_download_replaces) {
  fs::create_directories(bundle());
  fs::create_symlink(sandbox.root() / "nowhere", bundle() / "calibration.json");
  expect_calibration_downloaded();
  EXPECT_FALSE(fs::exists(sandbox.root() / "nowhere"));
}

TEST_F(AlreadyHere, is_an_empty_file_or_a_dangling_link_still_after_a_download_that_failed) {
  use_mirror(closed.number());
  put("tokenizer.json", "");
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(read_file(bundle() / "tokenizer.json"), "");
  fs::remove(bundle() / "tokenizer.json");
  fs::create_symlink("nowhere", bundle() / "tokenizer.json");
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(fs::read_symlink(bundle() / "tokenizer.json"), "nowhere");
}

}  // namespace
}  // namespace velun::test
