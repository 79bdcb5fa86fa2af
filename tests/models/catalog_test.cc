#include "models/catalog.h"

#include <gtest/gtest.h>

#include <tuple>

#include "config/outside_locations.h"
#include "tests/support/environment_variable.h"

namespace velun::test {
namespace {

using File = std::tuple<std::string, std::string, std::int64_t>;

std::vector<File> files_of(const ModelCard& card, const std::string& variant) {
  std::vector<File> files;
  for (const BundleFile& file : bundle_files(card, variant)) {
    files.emplace_back(file.remote_path, file.local_name, file.expected_size);
  }
  return files;
}

// The three files of a download that ends with this graph.
std::vector<File> download_with(const File& graph) {
  return {{"tokenizer/tokenizer.json", "tokenizer.json", 34400000},
          {"calibration.json", "calibration.json", 400},
          graph};
}

const BundleFile calibration{"calibration.json", "calibration.json", 400};

TEST(BundleFiles, end_with_the_compact_graph_only_if_it_is_asked_for_and_exists) {
  const auto full_download =
      download_with({"quant/model-fp32.onnx", "model.fp32.onnx", 1231000000});
  ModelCard card = model_catalog();
  EXPECT_EQ(files_of(card, "full"), full_download);
  EXPECT_EQ(files_of(card, "compact"), full_download);
  card.has_compact = true;
  EXPECT_EQ(files_of(card, "compact"),
            download_with({"quant/model-q8.onnx", "model.int8.onnx", 309000000}));
  for (const char* word :
       {"full", "", "Compact", "COMPACT", "compact ", " compact", "compac", "q8"}) {
    EXPECT_EQ(files_of(card, word), full_download) << '"' << word << '"';
  }
}

TEST(MirrorUrl, begins_with_the_makers_mirror_if_the_variable_is_unset_or_empty) {
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    const EnvironmentVariable mirror("VELUN_MODEL_MIRROR", none);
    EXPECT_EQ(mirror_url(model_catalog(), calibration),
              std::string(mirror_base_url) + "/velun-pii-m-v1.3/calibration.json");
  }
}

TEST(MirrorUrl, drops_only_the_slashes_at_the_end_of_the_base) {
  const std::pair<std::string, std::string> cases[] = {
      {"http://127.0.0.1:9", "http://127.0.0.1:9"},
      {"http://127.0.0.1:9/", "http://127.0.0.1:9"},
      {"http://127.0.0.1:9/a//b///", "http://127.0.0.1:9/a//b"},
      {"no url at all", "no url at all"},
      {" ", " "},
      {"/ ", "/ "},
      {"/", ""},
      {"///", ""},
  };
  for (const auto& [base, kept] : cases) {
    const EnvironmentVariable mirror("VELUN_MODEL_MIRROR", base.c_str());
    EXPECT_EQ(mirror_url(model_catalog(), calibration), kept + "/velun-pii-m-v1.3/calibration.json")
        << base;
  }
}

TEST(Urls, take_their_parts_from_the_card_and_the_file) {
  const EnvironmentVariable mirror("VELUN_MODEL_MIRROR", "http://127.0.0.1:9");
  ModelCard card;
  card.id = "some-id";
  card.repository = "owner/name";
  card.revision = "v2";
  const BundleFile file{"a/b.bin", "c.bin", 1};
  EXPECT_EQ(hub_url(card, file), std::string(hub_base_url) + "owner/name/resolve/v2/a/b.bin");
  EXPECT_EQ(mirror_url(card, file), "http://127.0.0.1:9/some-id/a/b.bin");
}

TEST(OutsideLocations, are_https_urls_with_the_expected_ends) {
  const std::string mirror = mirror_base_url;
  EXPECT_TRUE(mirror.starts_with("https://") && mirror.ends_with("/apps/connector/models"))
      << mirror;
  const std::string hub = hub_base_url;
  EXPECT_TRUE(hub.starts_with("https://") && hub.ends_with("/")) << hub;
}

}  // namespace
}  // namespace velun::test
