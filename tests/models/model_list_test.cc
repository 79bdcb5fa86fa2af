#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

const std::string no_models = success("no models — `velun model fetch` downloads one (~1.2 GB)\n");

class ModelList : public ::testing::Test {
 protected:
  ModelList() { sandbox.configure(); }

  fs::path models() const { return sandbox.models_dir(); }

  void add_complete(const fs::path& bundle) {
    for (const char* name : {"model.int8.onnx", "tokenizer.json", "labels.json"}) {
      write_file(bundle / name, "");
    }
  }

  void use(const std::string& model_dir) {
    sandbox.configure("model_dir: \"" + model_dir + "\"\n");
  }

  std::string list(const RunOptions& options = {}) {
    return seen(sandbox.velun({"model", "list"}, options));
  }

  Sandbox sandbox;
};

TEST_F(ModelList, says_which_bundle_is_incomplete_and_which_is_in_use) {
  fs::create_directories(models() / "one");
  EXPECT_EQ(list(), success("  one  (incomplete)\n"));
  use((models() / "one").string());
  EXPECT_EQ(list(), success("* one  (incomplete)\n"));
  add_complete(models() / "one");
  EXPECT_EQ(list(), success("* one\n"));
}

TEST_F(ModelList, is_what_the_command_does_without_a_word) {
  add_complete(models() / "one");
  EXPECT_EQ(seen(sandbox.velun({"model"})), success("  one\n"));
  EXPECT_EQ(seen(sandbox.velun({"model", ""})), success("  one\n"));
}

TEST_F(ModelList, compares_the_setting_as_a_text) {
  add_complete(models() / "one");
  for (const std::string& other :
       {(models() / "one").string() + "/", (models() / "." / "one").string(),
        models().string() + "//one", (models() / "one").string() + "/../one",
        (models() / "One").string()}) {
    use(other);
    EXPECT_EQ(list(), success("  one\n")) << other;
  }
}

TEST_F(ModelList, ends_with_a_setting_outside_the_models_directory_or_in_another_spelling_of_it) {
  add_complete(models() / "one");
  for (const std::string& path :
       {std::string("/opt/bundle"), (sandbox.state_dir() / "./models/one").string()}) {
    use(path);
    EXPECT_EQ(list(), success("  one\n* " + path + "  (external path)\n"));
  }
}

TEST_F(ModelList, shows_an_external_path_even_if_no_model_is_there) {
  use("/opt/bundle");
  EXPECT_EQ(list(), success("* /opt/bundle  (external path)\n"));
}

TEST_F(ModelList, takes_a_path_that_begins_like_the_models_directory_for_inside) {
  for (const char* more : {"", "/gone", "-old/one"}) {
    use(models().string() + more);
    EXPECT_EQ(list(), no_models) << more;
  }
}

TEST_F(ModelList, says_how_to_get_a_model_and_creates_nothing) {
  EXPECT_EQ(list(), no_models);
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
  fs::create_directories(models());
  EXPECT_EQ(list(), no_models);
}

TEST_F(ModelList, skips_all_but_directories) {
  write_file(models() / "file", "x");
  ASSERT_EQ(mkfifo((models() / "fifo").c_str(), 0600), 0);
  fs::create_symlink("nowhere", models() / "dangling");
  fs::create_symlink("file", models() / "link to a file");
  fs::create_symlink("loop", models() / "loop");
  EXPECT_EQ(list(), no_models);
}

TEST_F(ModelList, follows_links_to_directories) {
  add_complete(sandbox.root() / "elsewhere");
  fs::create_directories(sandbox.root() / "disk");
  fs::create_directories(sandbox.state_dir());
  fs::create_directory_symlink(sandbox.root() / "disk", models());
  fs::create_directory_symlink(sandbox.root() / "elsewhere", models() / "linked");
  EXPECT_EQ(list(), success("  linked\n"));
  use((models() / "linked").string());
  EXPECT_EQ(list(), success("* linked\n"));
}

TEST_F(ModelList, shows_hidden_directories_and_names_of_any_bytes) {
  fs::create_directories(models() / ".hidden");
  EXPECT_EQ(list(), success("  .hidden  (incomplete)\n"));
  fs::rename(models() / ".hidden", models() / "a \xff\n\"b");
  EXPECT_EQ(list(), success("  a \xff\n\"b  (incomplete)\n"));
}

TEST_F(ModelList, lists_nothing_of_a_models_directory_that_is_a_file_or_a_pipe) {
  write_file(models(), "x");
  EXPECT_EQ(list(), no_models);
  fs::remove(models());
  ASSERT_EQ(mkfifo(models().c_str(), 0600), 0);
  EXPECT_EQ(list(), no_models);
}

TEST_F(ModelList, takes_a_directory_that_may_not_be_read_for_empty) {
  RunOptions options;
  options.as_nobody = true;
  add_complete(models() / "one");
  fs::permissions(models() / "one", fs::perms::none);
  EXPECT_EQ(list(options), success("  one  (incomplete)\n"));
  fs::permissions(models(), fs::perms::none);
  EXPECT_EQ(list(options), no_models);
}

TEST_F(ModelList, keeps_the_order_of_the_directory_over_thousands_of_bundles) {
  fs::create_directories(models());
  for (int number = 0; number < 2000; ++number) {
    fs::create_directory(models() / ("bundle-" + std::to_string(number * 7919 % 2000)));
  }
  std::string expected;
  DIR* directory = opendir(models().c_str());
  ASSERT_NE(directory, nullptr);
  while (const dirent* entry = readdir(directory)) {
    if (entry->d_name[0] != '.') {
      expected += "  " + std::string(entry->d_name) + "  (incomplete)\n";
    }
  }
  closedir(directory);
  EXPECT_EQ(list(), success(expected));
}

TEST_F(ModelList, compares_with_a_relative_state_directory_as_it_stands) {
  add_complete(sandbox.root() / "own/models/one");
  sandbox.configure("state_dir: own\nmodel_dir: own/models/one\n");
  EXPECT_EQ(list(), success("* one\n"));
  const std::string absolute = (sandbox.root() / "own/models/one").string();
  sandbox.configure("state_dir: own\nmodel_dir: " + absolute + "\n");
  EXPECT_EQ(list(), success("  one\n* " + absolute + "  (external path)\n"));
}

TEST_F(ModelList, does_not_answer_an_unknown_word) {
  add_complete(models() / "one");
  for (const char* word : {"List", "ls", " list", "fetch ", "Use", "--help", "one"}) {
    EXPECT_EQ(seen(sandbox.velun({"model", word})),
              ended(2, "", "usage: velun model [list|fetch [compact]|use <id>]\n"))
        << word;
  }
}

TEST_F(ModelList, takes_a_bundle_whose_files_have_too_long_paths_for_incomplete) {
  const std::size_t longest_path = 4095;
  std::string state_dir = sandbox.root();
  while (state_dir.size() + 201 < longest_path - std::string("/models").size()) {
    state_dir += "/" + std::string(200, 'd');
  }
  state_dir += "/";
  state_dir.resize(longest_path - std::string("/models").size(), 'd');
  sandbox.configure("state_dir: " + state_dir + "\n");
  fs::create_directories(state_dir + "/models");
  const fs::path before = fs::current_path();
  fs::current_path(state_dir + "/models");
  add_complete("one");
  fs::current_path(before);
  EXPECT_EQ(list(), success("  one  (incomplete)\n"));
}

}  // namespace
}  // namespace velun::test
