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

  // The tokenizer without its last bytes.
  static Reply cut_short(Ending ending) {
    Reply reply = answer(200, tokenizer_body);
    reply.bytes.resize(reply.bytes.size() - 5);
    reply.ending = ending;
    return reply;
  }
};

TEST_F(Download, follows_redirects) {
  const LoopbackServer server(0, [](const std::string& request) {
    const std::string path = path_of(request);
    return path.starts_with("/behind") ? answer(200, mirror_files.at(path.substr(7)))
                                       : answer(302, "", "Location: /behind" + path + "\r\n");
  });
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  expect_bundle_of(mirror_files);
}

TEST_F(Download, gives_a_mirror_four_tries_in_all_before_the_hub) {
  const LoopbackServer server(0, tokenizer_as(answer(503, "", "Retry-After: 0\r\n")));
  const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port(), "silent\nretry-delay = 1\n");
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(server.paths(), (Words{tokenizer_path, tokenizer_path, tokenizer_path, tokenizer_path,
                                   calibration_path, graph_path}));
  EXPECT_EQ(hub.paths(), Words{on_hub("tokenizer/tokenizer.json")});
}

TEST_F(Download, takes_from_the_hub_just_the_file_that_the_mirror_does_not_deliver_whole) {
  for (const Reply& reply : {answer(404, "not here"), answer(403, "sign in"),
                             cut_short(Ending::close), cut_short(Ending::reset), Reply{""}}) {
    const LoopbackServer server(0, tokenizer_as(reply));
    const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
    use_mirror(server.port());
    use_hub(hub.port());
    EXPECT_EQ(fetch(), success(fresh_fetch)) << reply.bytes;
    EXPECT_EQ(server.paths(), mirror_paths);
    EXPECT_EQ(hub.paths(), Words{on_hub("tokenizer/tokenizer.json")});
    expect_bundle_of(mirror_files);
    fs::remove_all(bundle());
  }
}

TEST_F(Download, overwrites_what_an_interrupted_run_left_under_the_part_name) {
  put("tokenizer.json.part", std::string(100000, 'x'));
  const LoopbackServer server(0, serving(mirror_files));
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  expect_bundle_of(mirror_files);
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

}  // namespace
}  // namespace velun::test
