// Which tokenizer.json a fetch accepts, and that it does not hold a large one in memory.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "models/bundle.h"
#include "tests/models/expected_files.h"
#include "tests/models/fetch_fixture.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

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

TEST_F(Tokenizer, must_be_json_without_any_leniency) {
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
