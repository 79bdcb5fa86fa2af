// One file after another from a mirror, by the real curl.

#include <gtest/gtest.h>

#include "tests/models/fetch_fixture.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class Download : public Fetching {
 protected:
  // Answers the tokenizer in the given way and the other two files as they should be.
  static LoopbackServer::Handler tokenizer_as(const Reply& reply) {
    return [reply, others = serving(mirror_files)](const std::string& request) {
      return path_of(request) == tokenizer_path ? reply : others(request);
    };
  }

  static Reply tokenizer_answer() { return answer(200, tokenizer_body); }

  void expect_whole_bundle() {
    EXPECT_EQ(read_file(bundle() / "tokenizer.json"), tokenizer_body);
    EXPECT_EQ(read_file(bundle() / "calibration.json"), calibration_body);
    EXPECT_EQ(read_file(bundle() / "model.fp32.onnx"), graph_body);
    EXPECT_EQ(names_in(bundle()),
              (std::vector<std::string>{"calibration.json", "labels.json", "manifest.json",
                                        "model.fp32.onnx", "tokenizer.json"}));
  }

  // One fetch with this answer to the tokenizer, which the hub must make up for.
  std::string fetch_past(const Reply& reply) {
    const LoopbackServer server(0, tokenizer_as(reply));
    const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
    use_mirror(server.port());
    use_hub(hub.port());
    std::string run = fetch();
    EXPECT_EQ(hub.paths(), std::vector<std::string>{on_hub("tokenizer/tokenizer.json")});
    return run;
  }
};

TEST_F(Download, asks_the_mirror_for_the_three_files_in_order) {
  const LoopbackServer server(0, serving(mirror_files));
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(server.paths(),
            (std::vector<std::string>{tokenizer_path, calibration_path, graph_path}));
  expect_whole_bundle();
}

TEST_F(Download, asks_a_mirror_below_a_path_with_slashes_at_its_end) {
  const LoopbackServer server(0, serving({}));
  use_mirror(server.port());
  sandbox.environment["VELUN_MODEL_MIRROR"] += "/deep/er///";
  sandbox.velun({"model", "fetch"});
  EXPECT_EQ(server.paths(),
            std::vector<std::string>{"/deep/er/velun-pii-m-v1.3/tokenizer/tokenizer.json"});
}

TEST_F(Download, does_not_ask_the_hub_while_the_mirror_delivers) {
  const LoopbackServer server(0, serving(mirror_files));
  const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(hub.requests().size(), 0U);
}

TEST_F(Download, draws_the_progress_bar_of_curl_on_standard_error) {
  const LoopbackServer server(0, serving(mirror_files));
  use_mirror(server.port());
  use_hub(closed.number(), "");
  const Outcome run = sandbox.velun({"model", "fetch"});
  EXPECT_EQ(run.out, fresh_fetch);
  EXPECT_NE(run.err.find("100.0%"), std::string::npos) << run.err;
}

TEST_F(Download, follows_redirects) {
  const LoopbackServer server(0, [](const std::string& request) {
    const std::string path = path_of(request);
    return path == "/behind" ? tokenizer_answer() : answer(302, "", "Location: /behind\r\n");
  });
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(server.paths(), (std::vector<std::string>{tokenizer_path, "/behind", calibration_path,
                                                      "/behind", graph_path, "/behind"}));
  EXPECT_EQ(read_file(bundle() / "tokenizer.json"), tokenizer_body);
}

TEST_F(Download, takes_a_body_that_trickles_in) {
  Reply slow = tokenizer_answer();
  slow.pause = std::chrono::milliseconds(4);
  const LoopbackServer server(0, tokenizer_as(slow));
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  expect_whole_bundle();
}

TEST_F(Download, lets_curl_retry_a_mirror_that_is_overloaded_for_a_moment) {
  std::atomic<int> refusals = 1;
  const LoopbackServer server(0, [&](const std::string& request) {
    return refusals-- > 0 ? answer(503, "") : serving(mirror_files)(request);
  });
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(server.paths(), (std::vector<std::string>{tokenizer_path, tokenizer_path,
                                                      calibration_path, graph_path}));
  expect_whole_bundle();
}

TEST_F(Download, gives_a_mirror_four_tries_in_all_before_the_hub) {
  const LoopbackServer server(0, tokenizer_as(answer(503, "", "Retry-After: 0\r\n")));
  const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port(), "silent\nretry-delay = 1\n");
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(server.paths(),
            (std::vector<std::string>{tokenizer_path, tokenizer_path, tokenizer_path,
                                      tokenizer_path, calibration_path, graph_path}));
  EXPECT_EQ(hub.requests().size(), 1U);
}

TEST_F(Download, takes_a_file_from_the_hub_that_the_mirror_does_not_have) {
  EXPECT_EQ(fetch_past(answer(404, "not here")), success(fresh_fetch));
  expect_whole_bundle();
}

TEST_F(Download, never_keeps_the_body_of_an_error_answer) {
  EXPECT_EQ(fetch_past(answer(403, tokenizer_body)), success(fresh_fetch));
  expect_whole_bundle();
}

TEST_F(Download, takes_a_file_from_the_hub_whose_body_the_mirror_cut_short) {
  Reply truncated = tokenizer_answer();
  truncated.bytes.resize(truncated.bytes.size() - 5);
  EXPECT_EQ(fetch_past(truncated), success(fresh_fetch));
  expect_whole_bundle();
}

TEST_F(Download, takes_a_file_from_the_hub_when_the_mirror_resets_the_connection) {
  Reply reset = tokenizer_answer();
  reset.bytes.resize(reset.bytes.size() - 5);
  reset.ending = Ending::reset;
  EXPECT_EQ(fetch_past(reset), success(fresh_fetch));
  expect_whole_bundle();
}

TEST_F(Download, takes_a_file_from_the_hub_when_the_mirror_says_nothing) {
  EXPECT_EQ(fetch_past({""}), success(fresh_fetch));
  expect_whole_bundle();
}

TEST_F(Download, tries_the_mirror_again_for_the_next_file) {
  const LoopbackServer server(0, serving({{calibration_path, calibration_body}}));
  const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(server.paths(),
            (std::vector<std::string>{tokenizer_path, calibration_path, graph_path}));
  EXPECT_EQ(hub.paths(), (std::vector<std::string>{on_hub("tokenizer/tokenizer.json"),
                                                   on_hub("quant/model-fp32.onnx")}));
}

TEST_F(Download, works_under_a_part_name_in_the_bundle_directory) {
  const LoopbackServer server(0, [&](const std::string& request) {
    Reply reply = serving(mirror_files)(request);
    if (path_of(request) == graph_path) {
      reply = answer(200, std::string(300000, 'g'));
      reply.ending = Ending::hang;
      reply.bytes.resize(200000);
    }
    return reply;
  });
  use_mirror(server.port());
  const pid_t velun = sandbox.start_velun({"model", "fetch"});
  const fs::path part = bundle() / "model.fp32.onnx.part";
  EXPECT_TRUE(eventually([&] { return fs::exists(part) && fs::file_size(part) > 0; }));
  EXPECT_EQ(names_in(bundle()), (std::vector<std::string>{
                                    "calibration.json", "model.fp32.onnx.part", "tokenizer.json"}));
  kill(velun, SIGKILL);
  EXPECT_NE(wait_for(velun, std::chrono::seconds(10)), -1);
}

TEST_F(Download, overwrites_what_an_interrupted_run_left_under_the_part_name) {
  put("tokenizer.json.part", std::string(100000, 'x'));
  const LoopbackServer server(0, serving(mirror_files));
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  expect_whole_bundle();
}

TEST_F(Download, removes_the_part_before_it_asks_the_hub) {
  put("tokenizer.json.part", "old");
  std::atomic<int> parts_at_hub = 0;
  const LoopbackServer hub(
      0,
      [&](const std::string& request) {
        parts_at_hub += fs::exists(bundle() / "tokenizer.json.part");
        return serving(hub_files)(request);
      },
      VELUN_HUB_CERTIFICATE);
  use_hub(hub.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(parts_at_hub, 0);
}

TEST_F(Download, removes_the_part_after_the_last_failure) {
  put("tokenizer.json.part", "old");
  Reply truncated = tokenizer_answer();
  truncated.bytes.resize(truncated.bytes.size() - 5);
  const LoopbackServer server(0, [&](const std::string&) { return truncated; });
  const LoopbackServer hub(
      0, [&](const std::string&) { return truncated; }, VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port());
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(names_in(bundle()), std::vector<std::string>{});
}

TEST_F(Download, stops_at_the_first_file_that_both_sources_refuse_and_keeps_the_others) {
  const LoopbackServer server(0, serving({{tokenizer_path, tokenizer_body}}));
  use_mirror(server.port());
  use_token("hf_x");
  EXPECT_EQ(fetch(), ended(1, failed_fetch + "  calibration.json (~0 MB)\n",
                           "download failed: calibration.json\n"));
  EXPECT_EQ(server.paths(), (std::vector<std::string>{tokenizer_path, calibration_path}));
  EXPECT_EQ(names_in(bundle()), std::vector<std::string>{"tokenizer.json"});
}

TEST_F(Download, accepts_a_file_of_another_size_than_expected_even_an_empty_one) {
  const LoopbackServer server(0, serving({{tokenizer_path, "[]"},
                                          {calibration_path, ""},
                                          {graph_path, std::string(100000, 'g')}}));
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(read_file(bundle() / "calibration.json"), "");
  EXPECT_EQ(read_file(bundle() / "model.fp32.onnx"), std::string(100000, 'g'));
}

}  // namespace
}  // namespace velun::test
