#include "models/bundle.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/models/expected_files.h"
#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

ModelCard card_with_window(int window) {
  ModelCard card = model_catalog();
  card.window = window;
  return card;
}

TEST(Labels, change_form_between_the_windows_1023_and_1024) {
  for (const int window : {std::numeric_limits<int>::min(), -1024, 0, 1023}) {
    EXPECT_EQ(labels_json(card_with_window(window)), four_heads) << window;
  }
  for (const int window : {1024, 1025, std::numeric_limits<int>::max()}) {
    EXPECT_EQ(labels_json(card_with_window(window)), nineteen_heads) << window;
  }
}

TEST(Manifest, takes_every_value_from_the_card_as_it_stands_and_leaves_out_an_empty_segment) {
  ModelCard card;
  EXPECT_EQ(manifest_json(card), "{\"model\":\"\",\"window\":0}\n");
  card.display_name = "a \"b\" \\c";
  card.window = -7;
  card.segment = "x\"\ty";
  EXPECT_EQ(manifest_json(card),
            "{\"model\":\"a \"b\" \\c\",\"window\":-7,\"segment\":\"x\"\ty\"}\n");
}

TEST(OwnFiles, that_cannot_be_written_do_not_keep_the_others_from_being) {
  const Sandbox sandbox;
  fs::create_directories(sandbox.root() / "labels.json");
  write_own_files(model_catalog(), sandbox.root());
  EXPECT_EQ(read_file(sandbox.root() / "manifest.json"), catalog_manifest);
  EXPECT_TRUE(fs::is_directory(sandbox.root() / "labels.json"));
}

class Completeness : public ::testing::Test {
 protected:
  // The directory with exactly these empty files.
  fs::path with(const std::vector<std::string>& names) {
    fs::remove_all(bundle);
    fs::create_directory(bundle);
    for (const std::string& name : names) {
      write_file(bundle / name, "");
    }
    return bundle;
  }

  Sandbox sandbox;
  fs::path bundle = sandbox.root() / "bundle";
};

TEST_F(Completeness, takes_one_graph_the_tokenizer_and_the_labels) {
  EXPECT_TRUE(bundle_complete(with({"model.fp32.onnx", "tokenizer.json", "labels.json"})));
  EXPECT_TRUE(bundle_complete(with({"model.int8.onnx", "tokenizer.json", "labels.json"})));
}

TEST_F(Completeness, fails_if_any_part_is_missing) {
  for (const std::vector<std::string>& names : std::vector<std::vector<std::string>>{
           {"tokenizer.json", "labels.json"},
           {"model.fp32.onnx.part", "model.onnx", "tokenizer.json", "labels.json"},
           {"model.fp32.onnx", "model.int8.onnx", "labels.json"},
           {"model.fp32.onnx", "model.int8.onnx", "tokenizer.json"},
           {"calibration.json", "manifest.json", "labels.json"}}) {
    EXPECT_FALSE(bundle_complete(with(names))) << testing::PrintToString(names);
  }
}

TEST_F(Completeness, fails_without_a_directory) {
  EXPECT_FALSE(bundle_complete(sandbox.root() / "missing"));
  write_file(sandbox.root() / "file", "");
  EXPECT_FALSE(bundle_complete(sandbox.root() / "file"));
  EXPECT_FALSE(bundle_complete(sandbox.root() / std::string(300, 'x')));
}

TEST_F(Completeness, of_an_empty_path_is_that_of_the_current_directory) {
  const fs::path before = fs::current_path();
  fs::current_path(with({"model.fp32.onnx", "tokenizer.json", "labels.json"}));
  EXPECT_TRUE(bundle_complete(""));
  fs::current_path(before);
}

TEST_F(Completeness, counts_directories_and_links_that_lead_somewhere) {
  fs::create_directory(with({"model.int8.onnx"}) / "labels.json");
  fs::create_symlink("nowhere", bundle / "tokenizer.json");
  EXPECT_FALSE(bundle_complete(bundle));
  write_file(bundle / "nowhere", "");
  EXPECT_TRUE(bundle_complete(bundle));
}

}  // namespace
}  // namespace velun::test
