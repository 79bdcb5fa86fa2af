// After a fetch that a signal ended, the next one completes the bundle.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "tests/models/fetch_fixture.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// The child of a process, from /proc; 0 if it has none.
pid_t child_of(pid_t parent) {
  const std::string id = std::to_string(parent);
  std::ifstream file("/proc/" + id + "/task/" + id + "/children");
  pid_t child = 0;
  file >> child;
  return file ? child : 0;
}

// The first half of an answer; then the server sends nothing more.
Reply half_of(const std::string& body) {
  Reply reply = answer(200, body);
  reply.bytes.resize(reply.bytes.size() - body.size() / 2);
  reply.ending = Ending::hang;
  return reply;
}

class Interruption : public Fetching, public ::testing::WithParamInterface<int> {
 protected:
  // Starts a fetch with the signal's default action. If the signal is not
  // SIGTERM, curl ignores SIGTERM and must still end.
  pid_t start() {
    RunOptions options;
    options.in_child = [] {
      signal(SIGTERM, SIG_IGN);
      signal(GetParam(), SIG_DFL);
    };
    return sandbox.start_velun({"model", "fetch"}, options);
  }

  // Ends velun by the signal, which must also end its curl.
  void interrupt(pid_t velun) {
    const pid_t curl = child_of(velun);
    EXPECT_GT(curl, 0);
    kill(velun, GetParam());
    const int status = wait_for(velun, std::chrono::seconds(10));
    EXPECT_TRUE(status != -1 && WIFSIGNALED(status) && WTERMSIG(status) == GetParam());
    EXPECT_TRUE(eventually([&] { return !is_running(curl); })) << "curl is still there";
  }

  bool has_begun(const std::string& name) const {
    std::error_code missing;
    const auto size = fs::file_size(bundle() / (name + ".part"), missing);
    return !missing && size > 0;
  }

  // Runs the fetch again, with a mirror that works.
  void expect_second_run_finds(const Words& names) {
    at_mirror = serving(large);
    EXPECT_EQ(fetch(), success(fetch_that_finds(names)));
    expect_bundle_of(large);
    EXPECT_EQ(names_in(sandbox.state_dir()), Words{"models"});
  }

  // Larger than the buffer of curl.
  const Files large = {{tokenizer_path, "\"" + std::string(300000, 't') + "\""},
                       {calibration_path, std::string(300000, 'c')},
                       {graph_path, std::string(300000, 'g')}};
};

INSTANTIATE_TEST_SUITE_P(By, Interruption,
                         ::testing::Values(SIGHUP, SIGINT, SIGKILL, SIGQUIT, SIGTERM),
                         [](const auto& signal) { return sigabbrev_np(signal.param); });

TEST_P(Interruption, during_the_last_answer_keeps_the_files_before_and_a_part) {
  at_mirror = [&](const std::string& request) {
    return path_of(request) == graph_path ? half_of(large.at(graph_path)) : serving(large)(request);
  };
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return has_begun("model.fp32.onnx"); }));
  interrupt(velun);
  EXPECT_EQ(names_in(bundle()),
            (Words{"calibration.json", "model.fp32.onnx.part", "tokenizer.json"}));
  expect_second_run_finds({"tokenizer.json", "calibration.json"});
}

TEST_P(Interruption, during_the_hubs_answer_leaves_a_part_and_no_token_that_others_can_read) {
  at_hub = [&](const std::string&) { return half_of(large.at(tokenizer_path)); };
  use_token("hf_secret");
  const pid_t velun = start();
  ASSERT_TRUE(eventually([&] { return has_begun("tokenizer.json"); }));
  interrupt(velun);
  EXPECT_EQ(names_in(bundle()), Words{"tokenizer.json.part"});
  EXPECT_TRUE(!fs::exists(header_file()) || mode_of(header_file()) == 0600);
  expect_second_run_finds({});
}

}  // namespace
}  // namespace velun::test
