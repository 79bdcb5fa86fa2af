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
  EXPECT_EQ(server.paths(), mirror_paths);
  EXPECT_EQ(hub.paths(), hub_paths);
  expect_bundle_of(mirror_files);
}

TEST_F(Hub, that_refuses_a_file_is_explained_ends_the_fetch_and_leaves_the_files_before) {
  const LoopbackServer server(0, serving({{tokenizer_path, tokenizer_body}}));
  const LoopbackServer hub(
      0, [](const std::string&) { return answer(403, "sign in"); }, VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port());
  EXPECT_EQ(fetch(),
            ended(1, failed_fetch + "  calibration.json (~0 MB)\n",
                  access_message("calibration.json") + "download failed: calibration.json\n"));
  EXPECT_EQ(server.paths(), (Words{tokenizer_path, calibration_path}));
  EXPECT_EQ(hub.paths(), Words{on_hub("calibration.json")});
  EXPECT_EQ(names_in(bundle()), Words{"tokenizer.json"});
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

}  // namespace
}  // namespace velun::test
