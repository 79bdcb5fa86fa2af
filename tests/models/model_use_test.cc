#include <gtest/gtest.h>

#include "tests/models/fetch_fixture.h"

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
  expect_stored("one", complete(sandbox.models_dir() / "one"));
}

TEST_F(ModelUse, of_an_absolute_path_stores_it) {
  const std::string bundle = complete(sandbox.root() / "elsewhere");
  expect_stored(bundle, bundle);
}

TEST_F(ModelUse, of_a_relative_path_stores_it_behind_the_current_directory) {
  complete(sandbox.root() / "sub/bundle");
  expect_stored("sub/bundle", sandbox.root().string() + "/sub/bundle");
}

TEST_F(ModelUse, stores_a_path_without_tidying_it) {
  complete(sandbox.root() / "bundle");
  fs::create_directories(sandbox.root() / "sub");
  const std::string root = sandbox.root().string();
  expect_stored("sub/.././bundle//", root + "/sub/.././bundle//");
  expect_stored("./bundle", root + "/./bundle");
  expect_stored(root + "/sub/..//bundle/", root + "/sub/..//bundle/");
}

TEST_F(ModelUse, stores_the_name_of_a_link_not_its_goal) {
  complete(sandbox.root() / "bundle");
  fs::create_directory_symlink("bundle", sandbox.root() / "link");
  expect_stored("link", sandbox.root().string() + "/link");
}

TEST_F(ModelUse, of_the_current_directory_stores_a_dot) {
  complete(sandbox.root());
  expect_stored(".", sandbox.root().string() + "/.");
}

TEST_F(ModelUse, prefers_a_directory_in_the_current_one_to_the_bundle_of_that_id) {
  complete(sandbox.models_dir() / "one");
  complete(sandbox.root() / "one");
  expect_stored("one", sandbox.root().string() + "/one");
}

TEST_F(ModelUse, prefers_whatever_is_in_the_current_directory_even_if_it_is_no_bundle) {
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

TEST_F(ModelUse, replaces_the_bundle_in_use) {
  sandbox.configure("model_dir: /opt/old\n");
  expect_stored("one", complete(sandbox.models_dir() / "one"));
}

TEST_F(ModelUse, drops_the_engine_url_and_keeps_every_other_key) {
  const std::string bundle = complete(sandbox.models_dir() / "one");
  sandbox.configure(
      "mode: protect\nendpoint_url: \"http://127.0.0.1:9\"\nnames: false\nstate_dir: " +
      sandbox.state_dir().string() + "\nintercept_apps: [chatgpt]\nintercept_port: 9000\n");
  EXPECT_EQ(use("one"), success(sandbox.wrote()));
  EXPECT_EQ(read_file(sandbox.config_file()),
            "# Velun CLI configuration. `velun help config` documents every key.\nmode: protect\n"
            "model_dir: " +
                bundle + "\n" + sandbox.port_lines() +
                "state_dir: " + sandbox.state_dir().string() +
                "\nnames: false\nintercept_apps: [chatgpt]\nintercept_port: 9000\n");
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
  for (const std::string& argument : Words{"none", " none", "./none/", "/none/at/all", "x/../none",
                                           "\xff", std::string(5000, 'x')}) {
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

TEST_F(ModelUse, says_nothing_of_a_restart_when_the_daemon_is_not_well) {
  complete(sandbox.models_dir() / "one");
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(503, "busy"); });
  EXPECT_EQ(use("one"), success(sandbox.wrote()));
  EXPECT_EQ(control.requests().size(), 1U);
}

TEST_F(ModelUse, that_fails_does_not_ask_the_daemon) {
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(200, "ok"); });
  EXPECT_EQ(use("none"), failure("no bundle at none — `velun model list`\n"));
  EXPECT_EQ(control.requests().size(), 0U);
}

class FetchThenUse : public Fetching {};

TEST_F(FetchThenUse, stores_the_fetched_bundle_and_marks_it_in_the_list) {
  const LoopbackServer server(0, serving(mirror_files));
  use_mirror(server.port());
  sandbox.configure("endpoint_url: \"http://127.0.0.1:9\"\n");
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(seen(sandbox.velun({"model", "use", "velun-pii-m-v1.3"})), success(sandbox.wrote()));
  EXPECT_EQ(read_file(sandbox.config_file()),
            sandbox.rendering("watch", "model_dir: " + bundle().string() + "\n"));
  EXPECT_EQ(seen(sandbox.velun({"model", "list"})), success("* velun-pii-m-v1.3\n"));
}

}  // namespace
}  // namespace velun::test
