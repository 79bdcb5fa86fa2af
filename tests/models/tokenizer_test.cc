// Which tokenizer.json a fetch accepts, and how much memory the check of a large one takes.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "models/bundle.h"
#include "tests/models/expected_files.h"
#include "tests/models/fetch_fixture.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool memory_is_inflated = true;
#elif defined(__has_feature)
constexpr bool memory_is_inflated = __has_feature(address_sanitizer);
#else
constexpr bool memory_is_inflated = false;
#endif

class Tokenizer : public Fetching {
 protected:
  // Every file but the tokenizer is here, and the mirror has it in case it is asked.
  Tokenizer() {
    put("calibration.json", calibration_body);
    put("model.fp32.onnx", graph_body);
  }

  bool parses(const std::string& text) const {
    put("tokenizer.json", text);
    return tokenizer_parses(bundle());
  }

  // What a fetch shows then, with this line about the tokenizer.
  std::string refusal(const std::string& first_line) const {
    return ended(
        1,
        "fetching velun-pii-m-v1.3 (full)\n" + first_line +
            "  calibration.json — already here\n"
            "  model.fp32.onnx — already here\n",
        "tokenizer.json did not parse — delete " + bundle().string() + " and fetch again\n");
  }

  const std::string already_here = "  tokenizer.json — already here\n";
};

TEST_F(Tokenizer, of_invalid_json_fails_the_fetch_after_labels_and_manifest_were_written) {
  put("tokenizer.json", "{\"broken\": ");
  EXPECT_EQ(fetch(), refusal(already_here));
  EXPECT_EQ(read_file(bundle() / "labels.json"), nineteen_heads);
  EXPECT_EQ(read_file(bundle() / "manifest.json"), catalog_manifest);
  EXPECT_EQ(read_file(bundle() / "tokenizer.json"), "{\"broken\": ");
  EXPECT_EQ(read_file(bundle() / "model.fp32.onnx"), graph_body);
}

TEST_F(Tokenizer, that_came_empty_fails_the_fetch) {
  const LoopbackServer server(0, serving({{tokenizer_path, ""}}));
  use_mirror(server.port());
  EXPECT_EQ(fetch(), refusal("  tokenizer.json (~34 MB)\n"));
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
  for (const char* text : {" ", "nul", "{", "[1,]", "{a:1}", "[1] x", "{}{}", "// c\n{}", "NaN",
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

// Like a real one, a long object of short words and numbers.
std::uintmax_t write_large_tokenizer(const fs::path& path) {
  std::ofstream file(path);
  file << R"({"version": "1.0", "model": {"vocab": {"first": 0)";
  for (int number = 1; file.tellp() < 34'400'000; ++number) {
    file << ",\n\"word" << number << "\": " << number;
  }
  file << "}}}\n";
  file.close();
  return fs::file_size(path);
}

// The largest resident size, in bytes, of a run that must end well within a minute.
std::uintmax_t peak_memory_of(const Launch& launch) {
  const pid_t pid = spawn(launch);
  for (int tick = 0; tick < 6000; ++tick) {
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, WNOHANG, &usage) == pid) {
      EXPECT_EQ(status, 0);
      return static_cast<std::uintmax_t>(usage.ru_maxrss) * 1024;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ADD_FAILURE() << "velun did not end";
  return 0;
}

TEST_F(Tokenizer, of_34_megabytes_is_checked_in_less_than_1_3_times_its_size) {
  if (memory_is_inflated) {
    GTEST_SKIP() << "the sanitizer's own memory would be measured";
  }
  put("tokenizer.json", "");
  const std::uintmax_t size = write_large_tokenizer(bundle() / "tokenizer.json");
  ASSERT_GE(size, 34'400'000U);
  Launch launch;
  launch.program = VELUN_BINARY;
  launch.argv = {"velun", "model", "fetch"};
  launch.environment = sandbox.environment;
  const std::uintmax_t peak = peak_memory_of(launch);
  EXPECT_GT(peak, 0U);
  EXPECT_LT(peak * 10, size * 13);
}

}  // namespace
}  // namespace velun::test
