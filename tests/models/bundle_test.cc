#include "models/bundle.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <limits>

#include "tests/models/expected_files.h"
#include "tests/models/fetch_fixture.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

ModelCard card_with_window(int window) {
  ModelCard card = model_catalog();
  card.window = window;
  return card;
}

TEST(Labels, have_all_heads_from_a_window_of_1024_on) {
  for (const int window : {std::numeric_limits<int>::min(), -1024, 0, 1023}) {
    EXPECT_EQ(labels_json(card_with_window(window)), four_heads) << window;
  }
  for (const int window : {1024, 1025, std::numeric_limits<int>::max()}) {
    EXPECT_EQ(labels_json(card_with_window(window)), nineteen_heads) << window;
  }
}

TEST(Manifest, has_the_values_of_the_card_unescaped_and_no_empty_segment) {
  ModelCard card;
  EXPECT_EQ(manifest_json(card), "{\"model\":\"\",\"window\":0}\n");
  card.display_name = "a \"b\" \\c";
  card.window = -7;
  card.segment = "x\"\ty";
  EXPECT_EQ(manifest_json(card),
            "{\"model\":\"a \"b\" \\c\",\"window\":-7,\"segment\":\"x\"\ty\"}\n");
}

TEST(OwnFiles, that_can_be_written_are_written_even_if_another_cannot) {
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

TEST_F(Completeness, needs_one_graph_the_tokenizer_and_the_labels) {
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

TEST_F(Completeness, of_an_empty_path_concerns_the_current_directory) {
  const fs::path before = fs::current_path();
  fs::current_path(with({"model.fp32.onnx", "tokenizer.json", "labels.json"}));
  EXPECT_TRUE(bundle_complete(""));
  fs::current_path(before);
}

TEST_F(Completeness, counts_directories_and_links_but_no_dangling_link) {
  fs::create_directory(with({}) / "model.fp32.onnx");
  fs::create_directory(bundle / "labels.json");
  fs::create_symlink("nowhere", bundle / "tokenizer.json");
  EXPECT_FALSE(bundle_complete(bundle));
  write_file(bundle / "nowhere", "");
  EXPECT_TRUE(bundle_complete(bundle));
}

class Tokenizer : public Fetching {
 protected:
  // All other files are already here.
  Tokenizer() {
    put("calibration.json", calibration_body);
    put("model.fp32.onnx", graph_body);
  }

  bool parses(const std::string& text) const {
    put("tokenizer.json", text);
    return tokenizer_parses(bundle());
  }
};

TEST_F(Tokenizer, of_invalid_json_fails_the_fetch_after_labels_and_manifest_were_written) {
  put("tokenizer.json", "{\"broken\": ");
  EXPECT_EQ(fetch(), ended(1, second_fetch.substr(0, second_fetch.find("done.")),
                           "tokenizer.json did not parse — delete " + bundle().string() +
                               " and fetch again\n"));
  EXPECT_EQ(read_file(bundle() / "labels.json"), nineteen_heads);
  EXPECT_EQ(read_file(bundle() / "manifest.json"), catalog_manifest);
  EXPECT_EQ(read_file(bundle() / "tokenizer.json"), "{\"broken\": ");
  EXPECT_EQ(read_file(bundle() / "model.fp32.onnx"), graph_body);
}

TEST_F(Tokenizer, may_be_any_json_value) {
  for (const char* text :
       {"{}", "[]", "null", "true", "0", "-0.0", "1e308", "1e-999", "\"\"", " \t\r\n[1 , 2]\n\n",
        "123456789012345678901234567890", "{\"a\":1,\"a\":2}", "\"\\ud83d\\ude00\"",
        "\"caf\xc3\xa9\"", "\xef\xbb\xbf{\"a\":1}"}) {
    EXPECT_TRUE(parses(text)) << text;
  }
}

TEST_F(Tokenizer, must_be_strict_json) {
  for (const char* text : {"", " ", "nul", "{", "[1,]", "{a:1}", "[1] x", "{}{}", "// c\n{}", "NaN",
                           "1e999", "01", "\"a\nb\"", "\"\\ud800\"", "\"\xff\"", "\xef\xbb\xbf"}) {
    EXPECT_FALSE(parses(text)) << text;
  }
}

TEST_F(Tokenizer, must_exist_and_be_a_file) {
  EXPECT_FALSE(tokenizer_parses(bundle()));
  fs::create_directories(bundle() / "tokenizer.json");
  EXPECT_FALSE(tokenizer_parses(bundle()));
}

TEST_F(Tokenizer, may_be_nested_to_any_depth) {
  const std::string open(100000, '[');
  EXPECT_TRUE(parses(open + std::string(100000, ']')));
  EXPECT_FALSE(parses(open));
  EXPECT_FALSE(parses(open + std::string(99999, ']')));
}

TEST_F(Tokenizer, of_40_megabytes_is_checked_within_32_megabytes_of_memory) {
  if (!VELUN_IS_STATIC) {
    GTEST_SKIP() << "libraries or a sanitizer take more than that";
  }
  std::string large = "[0";
  while (large.size() < 40'000'000) {
    large += ",0,0,0,0,0,0,0,0";
  }
  put("tokenizer.json", large + "]");
  RunOptions options;
  options.in_child = [] {
    const rlimit limit{32'000'000, 32'000'000};
    setrlimit(RLIMIT_AS, &limit);
  };
  EXPECT_EQ(fetch(options), success(second_fetch));
}

}  // namespace
}  // namespace velun::test
