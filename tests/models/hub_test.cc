// The model hub, over TLS and by the real curl, when the mirror has failed and there is no token.

#include <gtest/gtest.h>

#include "tests/models/fetch_fixture.h"

namespace velun::test {
namespace {

class Hub : public Fetching {};

TEST_F(Hub, delivers_all_files_that_the_mirror_does_not) {
  const LoopbackServer server(0, serving({}));
  const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(server.paths(),
            (std::vector<std::string>{tokenizer_path, calibration_path, graph_path}));
  EXPECT_EQ(hub.paths(), (std::vector<std::string>{on_hub("tokenizer/tokenizer.json"),
                                                   on_hub("calibration.json"),
                                                   on_hub("quant/model-fp32.onnx")}));
  EXPECT_EQ(read_file(bundle() / "model.fp32.onnx"), graph_body);
}

TEST_F(Hub, is_asked_under_its_own_name_and_without_authorization) {
  const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
  use_hub(hub.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  ASSERT_EQ(hub.requests().size(), 3U);
  for (const std::string& request : hub.requests()) {
    EXPECT_NE(request.find("\r\nHost: " + std::string(hub_host) + "\r\n"), std::string::npos);
    EXPECT_EQ(request.find("Authorization"), std::string::npos) << request;
  }
}

TEST_F(Hub, that_refuses_without_a_token_is_explained_before_the_failure_is_told) {
  const LoopbackServer server(0, serving({}));
  const LoopbackServer hub(
      0, [](const std::string&) { return answer(403, "sign in"); }, VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port());
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(hub.requests().size(), 1U);
}

TEST_F(Hub, that_cannot_be_reached_is_explained_in_the_same_way) {
  EXPECT_EQ(fetch(), refused());
}

TEST_F(Hub, that_refuses_a_later_file_is_explained_with_that_files_mirror) {
  const LoopbackServer server(
      0, serving({{tokenizer_path, tokenizer_body}, {calibration_path, calibration_body}}));
  use_mirror(server.port());
  EXPECT_EQ(fetch(), ended(1,
                           failed_fetch + "  calibration.json (~0 MB)\n"
                                          "  model.fp32.onnx (~1.200000 GB)\n",
                           access_message("quant/model-fp32.onnx") +
                               "download failed: quant/model-fp32.onnx\n"));
  EXPECT_EQ(names_in(bundle()), (std::vector<std::string>{"calibration.json", "tokenizer.json"}));
}

TEST_F(Hub, that_refuses_despite_a_token_is_not_explained) {
  const LoopbackServer hub(
      0, [](const std::string&) { return answer(403, ""); }, VELUN_HUB_CERTIFICATE);
  use_hub(hub.port());
  use_token("hf_refused");
  EXPECT_EQ(fetch(), refused_with_token);
}

TEST_F(Hub, with_an_empty_token_counts_as_asked_without_one) {
  const LoopbackServer hub(
      0, [](const std::string&) { return answer(401, ""); }, VELUN_HUB_CERTIFICATE);
  use_hub(hub.port());
  use_token("");
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(hub.requests().at(0).find("Authorization"), std::string::npos);
}

TEST_F(Hub, shows_the_words_of_curl_about_both_sources_to_the_user) {
  const LoopbackServer server(0, serving({}));
  use_mirror(server.port());
  use_hub(closed.number(), "");
  const Outcome run = sandbox.velun({"model", "fetch"});
  const std::size_t mirror_failed = run.err.find("curl: (22)");
  const std::size_t hub_failed = run.err.find("curl: (7)");
  EXPECT_NE(mirror_failed, std::string::npos) << run.err;
  EXPECT_NE(hub_failed, std::string::npos) << run.err;
  EXPECT_LT(mirror_failed, hub_failed);
  EXPECT_TRUE(run.err.ends_with(access_message("tokenizer/tokenizer.json") +
                                "download failed: tokenizer/tokenizer.json\n"))
      << run.err;
}

TEST_F(Hub, is_not_trusted_with_a_certificate_that_nobody_vouches_for) {
  const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
  write_file(sandbox.home() / ".curlrc", "silent\nconnect-to = \"" + std::string(hub_host) +
                                             ":443:127.0.0.1:" + std::to_string(hub.port()) +
                                             "\"\n");
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(hub.requests().size(), 0U);
}

TEST_F(Hub, redirect_to_a_plain_server_is_followed) {
  const LoopbackServer store(0, serving({{"/blob", tokenizer_body}}));
  const LoopbackServer hub(
      0,
      [&](const std::string&) {
        return answer(302, "",
                      "Location: http://127.0.0.1:" + std::to_string(store.port()) + "/blob\r\n");
      },
      VELUN_HUB_CERTIFICATE);
  use_hub(hub.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(store.paths(), (std::vector<std::string>{"/blob", "/blob", "/blob"}));
}

}  // namespace
}  // namespace velun::test
