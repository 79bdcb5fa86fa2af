// `velun model list` and `velun model use`.

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/loopback_server.h"
#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

const std::string no_models = success("no models — `velun model fetch` downloads one (~1.2 GB)\n");

class Models : public ::testing::Test {
 protected:
  Models() { sandbox.configure(); }

  fs::path models() const { return sandbox.models_dir(); }

  // Makes a complete bundle and returns its path as text.
  static std::string complete(const fs::path& bundle) {
    for (const char* name : {"model.int8.onnx", "tokenizer.json", "labels.json"}) {
      write_file(bundle / name, "");
    }
    return bundle.string();
  }

  Sandbox sandbox;
};

class ModelList : public Models {
 protected:
  void set(const std::string& model_dir) {
    sandbox.configure("model_dir: \"" + model_dir + "\"\n");
  }

  std::string list(const RunOptions& options = {}) {
    return seen(sandbox.velun({"model", "list"}, options));
  }
};

TEST_F(ModelList, says_which_bundle_is_incomplete_and_which_is_in_use) {
  fs::create_directories(models() / "one");
  EXPECT_EQ(list(), success("  one  (incomplete)\n"));
  set((models() / "one").string());
  EXPECT_EQ(list(), success("* one  (incomplete)\n"));
  complete(models() / "one");
  EXPECT_EQ(list(), success("* one\n"));
}

TEST_F(ModelList, is_printed_if_no_word_follows_model) {
  complete(models() / "one");
  EXPECT_EQ(seen(sandbox.velun({"model"})), success("  one\n"));
  EXPECT_EQ(seen(sandbox.velun({"model", ""})), success("  one\n"));
}

TEST_F(ModelList, compares_the_setting_as_a_text) {
  complete(models() / "one");
  for (const std::string& other :
       {(models() / "one").string() + "/", (models() / "." / "one").string(),
        models().string() + "//one", (models() / "one").string() + "/../one",
        (models() / "One").string()}) {
    set(other);
    EXPECT_EQ(list(), success("  one\n")) << other;
  }
}

TEST_F(ModelList, ends_with_a_setting_outside_the_models_directory_or_in_another_spelling_of_it) {
  set("/opt/bundle");
  EXPECT_EQ(list(), success("* /opt/bundle  (external path)\n"));
  complete(models() / "one");
  EXPECT_EQ(list(), success("  one\n* /opt/bundle  (external path)\n"));
  const std::string path = (sandbox.state_dir() / "./models/one").string();
  set(path);
  EXPECT_EQ(list(), success("  one\n* " + path + "  (external path)\n"));
}

TEST_F(ModelList, counts_a_path_that_begins_like_the_models_directory_as_inside) {
  for (const char* more : {"", "/gone", "-old/one"}) {
    set(models().string() + more);
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
  complete(sandbox.root() / "elsewhere");
  fs::create_directories(sandbox.root() / "disk");
  fs::create_directories(sandbox.state_dir());
  fs::create_directory_symlink(sandbox.root() / "disk", models());
  fs::create_directory_symlink(sandbox.root() / "elsewhere", models() / "linked");
  EXPECT_EQ(list(), success("  linked\n"));
  set((models() / "linked").string());
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

TEST_F(ModelList, counts_a_directory_that_may_not_be_read_as_empty) {
  RunOptions options;
  options.as_nobody = true;
  complete(models() / "one");
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

TEST_F(ModelList, compares_a_relative_state_directory_as_a_text) {
  complete(sandbox.root() / "own/models/one");
  sandbox.configure("state_dir: own\nmodel_dir: own/models/one\n");
  EXPECT_EQ(list(), success("* one\n"));
  const std::string absolute = (sandbox.root() / "own/models/one").string();
  sandbox.configure("state_dir: own\nmodel_dir: " + absolute + "\n");
  EXPECT_EQ(list(), success("  one\n* " + absolute + "  (external path)\n"));
}

TEST_F(ModelList, prints_the_usage_for_an_unknown_word) {
  complete(models() / "one");
  for (const char* word : {"List", "ls", " list", "fetch ", "Use", "--help", "one"}) {
    EXPECT_EQ(seen(sandbox.velun({"model", word})),
              ended(2, "", "usage: velun model [list|fetch [compact]|use <id>]\n"))
        << word;
  }
}

TEST_F(ModelList, counts_a_bundle_whose_files_have_too_long_paths_as_incomplete) {
  // With "/models" behind it, the longest path that the system takes.
  std::string state_dir = sandbox.root();
  while (state_dir.size() < 4088) {
    state_dir += "/" + std::string(std::min<std::size_t>(4087 - state_dir.size(), 200), 'd');
  }
  sandbox.configure("state_dir: " + state_dir + "\n");
  fs::create_directories(state_dir + "/models");
  const fs::path before = fs::current_path();
  fs::current_path(state_dir + "/models");
  complete("one");
  fs::current_path(before);
  EXPECT_EQ(list(), success("  one  (incomplete)\n"));
}

class ModelUse : public Models {
 protected:
  std::string use(const std::string& argument) {
    return seen(sandbox.velun({"model", "use", argument}));
  }

  // The command succeeds without a daemon and stores this path.
  void expect_stored(const std::string& argument, const std::string& model_dir) {
    EXPECT_EQ(use(argument), success(sandbox.wrote()));
    EXPECT_EQ(read_file(sandbox.config_file()),
              sandbox.rendering("watch", "model_dir: " + model_dir + "\n"));
  }

  // The command fails with this message and leaves the config file byte for byte.
  void expect_refused(const std::string& argument, const std::string& message) {
    sandbox.configure("# by hand\nnames:   false\nendpoint_url: http://127.0.0.1:1\n");
    const std::string before = read_file(sandbox.config_file());
    EXPECT_EQ(use(argument), failure(message));
    EXPECT_EQ(read_file(sandbox.config_file()), before);
  }
};

TEST_F(ModelUse, of_an_id_stores_the_path_below_the_models_directory) {
  sandbox.configure("model_dir: /opt/old\n");
  expect_stored("one", complete(models() / "one"));
}

TEST_F(ModelUse, of_a_relative_path_appends_it_unchanged_to_the_current_directory) {
  const std::string root = sandbox.root().string();
  complete(root);
  complete(root + "/bundle");
  fs::create_directories(root + "/sub");
  fs::create_directory_symlink("bundle", root + "/link");
  for (const std::string path : {"bundle", "sub/.././bundle//", "./bundle", "link", "."}) {
    expect_stored(path, root + "/" + path);
  }
  expect_stored(root + "/sub/..//bundle/", root + "/sub/..//bundle/");
}

TEST_F(ModelUse, prefers_a_path_in_the_current_directory_even_if_it_is_no_bundle) {
  complete(models() / "one");
  write_file(sandbox.root() / "one", "a file");
  expect_refused("one", "one is incomplete (needs a graph, tokenizer.json, labels.json)\n");
}

TEST_F(ModelUse, skips_a_dangling_link_in_the_current_directory) {
  fs::create_symlink("nowhere", sandbox.root() / "one");
  expect_stored("one", complete(models() / "one"));
}

TEST_F(ModelUse, of_a_relative_state_directory_stores_an_absolute_path) {
  complete(sandbox.root() / "own/models/one");
  sandbox.configure("state_dir: own\n");
  EXPECT_EQ(use("one"), success(sandbox.wrote()));
  EXPECT_EQ(
      read_file(sandbox.config_file()),
      sandbox.rendering("watch", "model_dir: " + sandbox.root().string() + "/own/models/one\n",
                        "state_dir: own\n"));
}

TEST_F(ModelUse, drops_the_engine_url_and_keeps_every_other_key) {
  const std::string bundle = complete(models() / "one");
  const std::string others = "state_dir: " + sandbox.state_dir().string() +
                             "\nnames: false\nintercept_apps: [chatgpt]\nintercept_port: 9000\n";
  sandbox.configure("mode: protect\nendpoint_url: \"http://127.0.0.1:9\"\n" + others);
  EXPECT_EQ(use("one"), success(sandbox.wrote()));
  EXPECT_EQ(read_file(sandbox.config_file()),
            "# Velun CLI configuration. `velun help config` documents every key.\nmode: protect\n"
            "model_dir: " +
                bundle + "\n" + sandbox.port_lines() + others);
}

TEST_F(ModelUse, needs_an_argument) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"model", "use"}, std::vector<std::string>{"model", "use", ""}}) {
    const std::string before = read_file(sandbox.config_file());
    EXPECT_EQ(seen(sandbox.velun(words)), ended(2, "", "usage: velun model use <id-or-path>\n"));
    EXPECT_EQ(read_file(sandbox.config_file()), before);
  }
}

TEST_F(ModelUse, of_a_missing_bundle_prints_the_argument_unchanged) {
  for (const std::string& argument :
       std::vector<std::string>{"none", " none", "./none/", "/none/at/all", "x/../none", "\xff",
                                std::string(5000, 'x')}) {
    expect_refused(argument, "no bundle at " + argument + " — `velun model list`\n");
  }
}

TEST_F(ModelUse, of_an_incomplete_bundle_names_its_path) {
  fs::create_directories(models() / "one");
  fs::create_directories(sandbox.root() / "sub");
  const std::string reason = " is incomplete (needs a graph, tokenizer.json, labels.json)\n";
  expect_refused("one", (models() / "one").string() + reason);
  expect_refused("./sub/", "./sub/" + reason);
  expect_refused(sandbox.root().string() + "/sub", sandbox.root().string() + "/sub" + reason);
}

TEST_F(ModelUse, says_how_to_load_the_bundle_if_a_daemon_runs) {
  const std::string bundle = complete(models() / "one");
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(200, "ok"); });
  EXPECT_EQ(use("one"), success(sandbox.wrote() + "restart to load it: velun restart\n"));
  EXPECT_EQ(control.paths(), std::vector<std::string>{"/healthz"});
  EXPECT_EQ(read_file(sandbox.config_file()),
            sandbox.rendering("watch", "model_dir: " + bundle + "\n"));
}

TEST_F(ModelUse, suggests_no_restart_of_an_unhealthy_daemon_and_sends_nothing_if_it_fails) {
  complete(models() / "one");
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(503, "busy"); });
  EXPECT_EQ(use("none"), failure("no bundle at none — `velun model list`\n"));
  EXPECT_EQ(control.requests().size(), 0U);
  EXPECT_EQ(use("one"), success(sandbox.wrote()));
  EXPECT_EQ(control.requests().size(), 1U);
}

}  // namespace
}  // namespace velun::test
