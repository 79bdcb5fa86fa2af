// `velun model fetch` around the downloads: its arguments, its directory and its own two files.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/models/expected_files.h"
#include "tests/models/fetch_fixture.h"
#include "tests/support/last_words.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

const std::string no_compact = "Velun 1.3 ships full size only; fetching that.\n";

class ModelFetch : public Fetching {
 protected:
  ModelFetch() { at_mirror = serving(mirror_files); }
};

TEST_F(ModelFetch, fills_an_empty_home_with_a_bundle_and_leaves_its_use_to_model_use) {
  sandbox.configure("# mine\nmode: protect\n");
  const std::string before = read_file(sandbox.config_file());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(mirror_server.paths(), mirror_paths);
  EXPECT_EQ(names_in(sandbox.state_dir()), Words{"models"});
  EXPECT_EQ(names_in(sandbox.models_dir()), Words{"velun-pii-m-v1.3"});
  expect_bundle_of(mirror_files);
  EXPECT_EQ(read_file(bundle() / "labels.json"), nineteen_heads);
  EXPECT_EQ(read_file(bundle() / "manifest.json"), catalog_manifest);
  EXPECT_EQ(read_file(sandbox.config_file()), before);
  EXPECT_EQ(seen(sandbox.velun({"model", "use", "velun-pii-m-v1.3"})), success(sandbox.wrote()));
  EXPECT_EQ(read_file(sandbox.config_file()),
            sandbox.rendering("protect", "model_dir: " + bundle().string() + "\n"));
  EXPECT_EQ(seen(sandbox.velun({"model", "list"})), success("* velun-pii-m-v1.3\n"));
}

TEST_F(ModelFetch, does_not_report_own_files_that_it_cannot_write) {
  fs::create_directories(bundle() / "labels.json");
  fs::create_directories(bundle() / "manifest.json");
  EXPECT_EQ(fetch(), success(fresh_fetch));
}

TEST_F(ModelFetch, leaves_permissions_to_the_file_creation_mask) {
  for (const mode_t mask : {0U, 022U, 077U}) {
    RunOptions options;
    options.in_child = [mask] { umask(mask); };
    EXPECT_EQ(fetch(options), success(fresh_fetch));
    EXPECT_EQ(mode_of(bundle()), 0777 & ~mask);
    for (const std::string& name : names_in(bundle())) {
      EXPECT_EQ(mode_of(bundle() / name), 0666 & ~mask) << name;
    }
    fs::remove_all(sandbox.state_dir());
  }
}

TEST_F(ModelFetch, fills_a_relative_state_directory_below_the_current_one) {
  sandbox.configure("state_dir: own\n");
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(read_file(sandbox.root() / "own/models/velun-pii-m-v1.3/model.fp32.onnx"), graph_body);
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

TEST_F(ModelFetch, of_the_compact_variant_says_that_there_is_none_and_takes_the_full_one) {
  EXPECT_EQ(seen(sandbox.velun({"model", "fetch", "compact"})), success(no_compact + fresh_fetch));
  EXPECT_EQ(mirror_server.paths(), mirror_paths);
}

TEST_F(ModelFetch, of_any_word_but_compact_prints_no_remark) {
  for (const char* word : {"full", "", "Compact", "compact ", "--compact"}) {
    EXPECT_EQ(seen(sandbox.velun({"model", "fetch", word})), success(fresh_fetch)) << word;
    fs::remove_all(sandbox.models_dir());
  }
}

TEST_F(ModelFetch, rewrites_labels_and_manifest_when_every_file_is_there) {
  put("tokenizer.json", tokenizer_body);
  put("calibration.json", calibration_body);
  put("model.fp32.onnx", graph_body);
  put("labels.json", std::string(10000, 'x'));
  put("manifest.json", std::string(10000, 'x'));
  EXPECT_EQ(fetch(), success(second_fetch));
  EXPECT_EQ(mirror_server.requests().size(), 0U);
  EXPECT_EQ(read_file(bundle() / "labels.json"), nineteen_heads);
  EXPECT_EQ(read_file(bundle() / "manifest.json"), catalog_manifest);
}

TEST_F(ModelFetch, that_fails_writes_neither_labels_nor_manifest) {
  put("labels.json", "old labels");
  put("manifest.json", "old manifest");
  at_mirror = serving({});
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(read_file(bundle() / "labels.json"), "old labels");
  EXPECT_EQ(read_file(bundle() / "manifest.json"), "old manifest");
}

TEST_F(ModelFetch, fills_a_linked_directory_and_keeps_the_users_files) {
  write_file(sandbox.root() / "big disk/notes.txt", "mine");
  fs::create_directories(sandbox.models_dir());
  fs::create_directory_symlink(sandbox.root() / "big disk", bundle());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(read_file(sandbox.root() / "big disk/model.fp32.onnx"), graph_body);
  EXPECT_EQ(read_file(sandbox.root() / "big disk/notes.txt"), "mine");
}

TEST_F(ModelFetch, aborts_if_the_directory_cannot_be_created) {
  write_file(sandbox.models_dir(), "a file");
  const Outcome run = sandbox.velun({"model", "fetch", "compact"});
  EXPECT_EQ(run.signal, SIGABRT);
  EXPECT_EQ(run.out, no_compact);
  EXPECT_NE(run.err.find(cannot("create directories")), std::string::npos) << run.err;
  EXPECT_EQ(read_file(sandbox.models_dir()), "a file");
  EXPECT_EQ(mirror_server.requests().size(), 0U);
}

}  // namespace
}  // namespace velun::test
