#include <gtest/gtest.h>

#include "tests/support/loopback_server.h"
#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class ModelUse : public ::testing::Test {
 protected:
  ModelUse() { sandbox.configure(); }

  // Makes a complete bundle and returns its path as text.
  std::string complete(const fs::path& bundle) {
    for (const char* name : {"model.fp32.onnx", "tokenizer.json", "labels.json"}) {
      write_file(bundle / name, "");
    }
    return bundle.string();
  }

  std::string use(const std::string& argument, const RunOptions& options = {}) {
    return seen(sandbox.velun({"model", "use", argument}, options));
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

  Sandbox sandbox;
};

TEST_F(ModelUse, of_an_id_stores_the_path_below_the_models_directory) {
  sandbox.configure("model_dir: /opt/old\n");
  expect_stored("one", complete(sandbox.models_dir() / "one"));
}

TEST_F(ModelUse, of_a_path_stores_it_behind_the_current_directory_without_tidying_it) {
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
  complete(sandbox.models_dir() / "one");
  write_file(sandbox.root() / "one", "a file");
  expect_refused("one", "one is incomplete (needs a graph, tokenizer.json, labels.json)\n");
}

TEST_F(ModelUse, looks_past_a_dangling_link_in_the_current_directory) {
  fs::create_symlink("nowhere", sandbox.root() / "one");
  expect_stored("one", complete(sandbox.models_dir() / "one"));
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
  const std::string bundle = complete(sandbox.models_dir() / "one");
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

TEST_F(ModelUse, of_something_that_is_nowhere_names_it_as_it_was_given) {
  for (const std::string& argument :
       std::vector<std::string>{"none", " none", "./none/", "/none/at/all", "x/../none", "\xff",
                                std::string(5000, 'x')}) {
    expect_refused(argument, "no bundle at " + argument + " — `velun model list`\n");
  }
}

TEST_F(ModelUse, of_an_incomplete_bundle_names_its_path) {
  fs::create_directories(sandbox.models_dir() / "one");
  fs::create_directories(sandbox.root() / "sub");
  const std::string reason = " is incomplete (needs a graph, tokenizer.json, labels.json)\n";
  expect_refused("one", (sandbox.models_dir() / "one").string() + reason);
  expect_refused("./sub/", "./sub/" + reason);
  expect_refused(sandbox.root().string() + "/sub", sandbox.root().string() + "/sub" + reason);
}

TEST_F(ModelUse, says_how_to_load_the_bundle_when_a_daemon_runs) {
  const std::string bundle = complete(sandbox.models_dir() / "one");
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(200, "ok"); });
  EXPECT_EQ(use("one"), success(sandbox.wrote() + "restart to load it: velun restart\n"));
  EXPECT_EQ(control.paths(), std::vector<std::string>{"/healthz"});
  EXPECT_EQ(read_file(sandbox.config_file()),
            sandbox.rendering("watch", "model_dir: " + bundle + "\n"));
}

TEST_F(ModelUse, asks_for_no_restart_of_a_daemon_that_is_not_well_and_asks_none_if_it_fails) {
  complete(sandbox.models_dir() / "one");
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(503, "busy"); });
  EXPECT_EQ(use("none"), failure("no bundle at none — `velun model list`\n"));
  EXPECT_EQ(control.requests().size(), 0U);
  EXPECT_EQ(use("one"), success(sandbox.wrote()));
  EXPECT_EQ(control.requests().size(), 1U);
}

}  // namespace
}  // namespace velun::test
