// A fetch that is cut off at any moment leaves nothing that the next one cannot make good.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include "tests/models/fetch_fixture.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// The child of a process, as /proc tells; 0 when there is none.
pid_t child_of(pid_t parent) {
  const std::string id = std::to_string(parent);
  std::ifstream file("/proc/" + id + "/task/" + id + "/children");
  pid_t child = 0;
  file >> child;
  return file ? child : 0;
}

// The first half of an answer, after which the server falls silent.
Reply half_of(const std::string& body) {
  Reply reply = answer(200, body);
  reply.bytes.resize(reply.bytes.size() - body.size() / 2);
  reply.ending = Ending::hang;
  return reply;
}

class Interruption : public Fetching, public ::testing::WithParamInterface<int> {
 protected:
  // Starts a fetch; the signal must be able to end it, whatever this process ignores.
  pid_t start() {
    RunOptions options;
    options.in_child = [] { signal(GetParam(), SIG_DFL); };
    return sandbox.start_velun({"model", "fetch"}, options);
  }

  // Ends velun alone; its curl must follow.
  void interrupt(pid_t velun) {
    const pid_t curl = child_of(velun);
    EXPECT_GT(curl, 0);
    kill(velun, GetParam());
    const int status = wait_for(velun, std::chrono::seconds(10));
    EXPECT_TRUE(status != -1 && WIFSIGNALED(status) && WTERMSIG(status) == GetParam());
    EXPECT_TRUE(eventually([&] { return !is_running(curl); })) << "curl is still there";
  }

  bool is_on_its_way(const std::string& name) const {
    std::error_code missing;
    const auto size = fs::file_size(bundle() / (name + ".part"), missing);
    return !missing && size > 0;
  }

  void expect_nothing_readable() const {
    if (fs::exists(fs::symlink_status(header_file()))) {
      EXPECT_EQ(mode_of(header_file()), 0600);
    }
  }

  // Runs the fetch again, with sources that work, and expects a whole bundle.
  void expect_second_run_completes() {
    const LoopbackServer server(0, serving(large));
    use_mirror(server.port());
    const Outcome run = sandbox.velun({"model", "fetch"});
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(read_file(bundle() / "tokenizer.json"), large.at(tokenizer_path));
    EXPECT_EQ(read_file(bundle() / "calibration.json"), large.at(calibration_path));
    EXPECT_EQ(read_file(bundle() / "model.fp32.onnx"), large.at(graph_path));
    EXPECT_EQ(names_in(bundle()),
              (std::vector<std::string>{"calibration.json", "labels.json", "manifest.json",
                                        "model.fp32.onnx", "tokenizer.json"}));
  }

  // The files at a size that curl does not keep in its buffer.
  const Files large = {{tokenizer_path, "\"" + std::string(300000, 't') + "\""},
                       {calibration_path, std::string(300000, 'c')},
                       {graph_path, std::string(300000, 'g')}};
};

INSTANTIATE_TEST_SUITE_P(By, Interruption, ::testing::Values(SIGINT, SIGKILL),
                         [](const auto& kind) {
                           return kind.param == SIGINT ? "SIGINT" : "SIGKILL";
                         });

TEST_P(Interruption, during_the_mirrors_answer_leaves_only_a_part) {
  const LoopbackServer server(
      0, [&](const std::string&) { return half_of(large.at(tokenizer_path)); });
  use_mirror(server.port());
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return is_on_its_way("tokenizer.json"); }));
  interrupt(velun);
  EXPECT_EQ(names_in(bundle()), std::vector<std::string>{"tokenizer.json.part"});
  expect_second_run_completes();
}

TEST_P(Interruption, before_the_mirrors_answer_leaves_nothing) {
  const LoopbackServer server(0, [&](const std::string&) { return Reply{"", Ending::hang}; });
  use_mirror(server.port());
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return server.requests().size() == 1; }));
  interrupt(velun);
  EXPECT_EQ(names_in(bundle()), std::vector<std::string>{});
  expect_second_run_completes();
}

TEST_P(Interruption, during_the_hubs_answer_leaves_only_a_part_and_no_readable_token) {
  const LoopbackServer hub(
      0, [&](const std::string&) { return half_of(large.at(tokenizer_path)); },
      VELUN_HUB_CERTIFICATE);
  use_hub(hub.port());
  use_token("hf_secret");
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return is_on_its_way("tokenizer.json"); }));
  interrupt(velun);
  EXPECT_EQ(names_in(bundle()), std::vector<std::string>{"tokenizer.json.part"});
  expect_nothing_readable();
  expect_second_run_completes();
}

TEST_P(Interruption, before_the_hubs_answer_leaves_no_readable_token) {
  const LoopbackServer hub(
      0,
      [&](const std::string&) {
        return Reply{"", Ending::hang};
      },
      VELUN_HUB_CERTIFICATE);
  use_hub(hub.port());
  use_token("hf_secret");
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return hub.requests().size() == 1; }));
  interrupt(velun);
  EXPECT_EQ(names_in(bundle()), std::vector<std::string>{});
  expect_nothing_readable();
  expect_second_run_completes();
}

TEST_P(Interruption, of_a_hub_download_is_cleared_up_by_the_next_hub_download) {
  std::atomic<bool> silent = true;
  const LoopbackServer hub(
      0,
      [&](const std::string& request) {
        return silent ? Reply{"", Ending::hang} : serving(hub_files)(request);
      },
      VELUN_HUB_CERTIFICATE);
  use_hub(hub.port());
  use_token("hf_secret");
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return hub.requests().size() == 1; }));
  interrupt(velun);
  silent = false;
  EXPECT_EQ(sandbox.velun({"model", "fetch"}).out, fresh_fetch);
  EXPECT_EQ(names_in(sandbox.state_dir()), std::vector<std::string>{"models"});
}

TEST_P(Interruption, between_two_files_keeps_the_first) {
  const LoopbackServer server(0, [&](const std::string& request) {
    return path_of(request) == tokenizer_path ? answer(200, large.at(tokenizer_path))
                                              : Reply{"", Ending::hang};
  });
  use_mirror(server.port());
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return server.requests().size() == 2; }));
  interrupt(velun);
  EXPECT_EQ(names_in(bundle()), std::vector<std::string>{"tokenizer.json"});
  EXPECT_EQ(read_file(bundle() / "tokenizer.json"), large.at(tokenizer_path));
  expect_second_run_completes();
}

TEST_P(Interruption, during_the_last_file_keeps_the_others) {
  const LoopbackServer server(0, [&](const std::string& request) {
    return path_of(request) == graph_path ? half_of(large.at(graph_path)) : serving(large)(request);
  });
  use_mirror(server.port());
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return is_on_its_way("model.fp32.onnx"); }));
  interrupt(velun);
  EXPECT_EQ(names_in(bundle()), (std::vector<std::string>{
                                    "calibration.json", "model.fp32.onnx.part", "tokenizer.json"}));
  expect_second_run_completes();
}

// As from the keyboard, where curl gets the signal as well.
TEST_P(Interruption, of_velun_and_curl_together_leaves_only_a_part) {
  const LoopbackServer server(
      0, [&](const std::string&) { return half_of(large.at(tokenizer_path)); });
  use_mirror(server.port());
  RunOptions options;
  options.in_child = [] {
    setpgid(0, 0);
    signal(GetParam(), SIG_DFL);
  };
  const pid_t velun = sandbox.start_velun({"model", "fetch"}, options);
  ASSERT_TRUE(eventually([&] { return is_on_its_way("tokenizer.json"); }));
  const pid_t curl = child_of(velun);
  ASSERT_GT(curl, 0);
  kill(-velun, GetParam());
  EXPECT_NE(wait_for(velun, std::chrono::seconds(10)), -1);
  EXPECT_TRUE(eventually([&] { return !is_running(curl); }));
  EXPECT_EQ(names_in(bundle()), std::vector<std::string>{"tokenizer.json.part"});
  expect_second_run_completes();
}

// A curl that a signal ends while velun lives on is a failed attempt like any other.
TEST_P(Interruption, of_curl_alone_sends_velun_to_the_hub) {
  const LoopbackServer server(
      0, [&](const std::string&) { return half_of(large.at(tokenizer_path)); });
  const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port());
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return is_on_its_way("tokenizer.json"); }));
  const pid_t curl = child_of(velun);
  ASSERT_GT(curl, 0);
  kill(curl, GetParam());
  ASSERT_TRUE(eventually([&] { return server.requests().size() == 2; }));
  EXPECT_EQ(read_file(bundle() / "tokenizer.json"), tokenizer_body);
  EXPECT_EQ(hub.requests().size(), 1U);
  interrupt(velun);
}

}  // namespace
}  // namespace velun::test
