// Downloads by the real curl: from the mirror, from the hub without a token, or not at all because
// the file is already there.

#include "models/download.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <limits>

#include "tests/models/fetch_fixture.h"
#include "tests/support/failing_call.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class Download : public Fetching {
 protected:
  // Gives this reply for the tokenizer and delivers the other two files.
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
  at_mirror = [](const std::string& request) {
    const std::string path = path_of(request);
    return path.starts_with("/behind") ? answer(200, mirror_files.at(path.substr(7)))
                                       : answer(302, "", "Location: /behind" + path + "\r\n");
  };
  EXPECT_EQ(fetch(), success(fresh_fetch));
  expect_bundle_of(mirror_files);
}

TEST_F(Download, gives_a_mirror_four_tries_in_all_before_the_hub) {
  at_mirror = tokenizer_as(answer(503, "", "Retry-After: 0\r\n"));
  at_hub = serving(hub_files);
  configure_curl("silent\nretry-delay = 1\n");
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(mirror_server.paths(), (Words{tokenizer_path, tokenizer_path, tokenizer_path,
                                          tokenizer_path, calibration_path, graph_path}));
  EXPECT_EQ(hub.paths(), Words{on_hub("tokenizer/tokenizer.json")});
}

TEST_F(Download, takes_a_file_from_the_hub_only_if_the_mirror_does_not_deliver_it_whole) {
  at_hub = serving(hub_files);
  Words asked;
  for (const Reply& reply : {answer(404, "not here"), answer(403, "sign in"),
                             cut_short(Ending::close), cut_short(Ending::reset), Reply{""}}) {
    at_mirror = tokenizer_as(reply);
    EXPECT_EQ(fetch(), success(fresh_fetch)) << reply.bytes;
    expect_bundle_of(mirror_files);
    fs::remove_all(bundle());
    asked.insert(asked.end(), mirror_paths.begin(), mirror_paths.end());
    EXPECT_EQ(mirror_server.paths(), asked) << reply.bytes;
  }
  EXPECT_EQ(hub.paths(), Words(5, on_hub("tokenizer/tokenizer.json")));
}

TEST_F(Download, removes_the_part_before_it_asks_the_hub) {
  put("tokenizer.json.part", "old");
  std::atomic<int> parts_at_hub = 0;
  at_hub = [&](const std::string& request) {
    parts_at_hub += fs::exists(bundle() / "tokenizer.json.part");
    return serving(hub_files)(request);
  };
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(parts_at_hub, 0);
}

class Hub : public Fetching {};

TEST_F(Hub, refusal_is_explained_and_keeps_the_earlier_files) {
  at_mirror = serving({{tokenizer_path, tokenizer_body}});
  at_hub = [](const std::string&) { return answer(403, "sign in"); };
  EXPECT_EQ(fetch(),
            ended(1, failed_fetch + "  calibration.json (~0 MB)\n",
                  access_message("calibration.json") + "download failed: calibration.json\n"));
  EXPECT_EQ(mirror_server.paths(), (Words{tokenizer_path, calibration_path}));
  EXPECT_EQ(hub.paths(), Words{on_hub("calibration.json")});
  EXPECT_EQ(names_in(bundle()), Words{"tokenizer.json"});
}

TEST_F(Hub, is_not_trusted_with_an_unknown_certificate) {
  at_hub = serving(hub_files);
  write_file(sandbox.home() / ".curlrc", "silent\n" + connect_to_hub());
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(hub.requests().size(), 0U);
}

class FetchFault : public Fetching {};

TEST_F(FetchFault, a_full_disk_fails_the_fetch_and_leaves_nothing) {
  at_mirror = serving({{tokenizer_path, std::string(300'000, 't')}});
  use_token("hf_secret");
  sandbox.set_counters_aside();
  RunOptions options;
  options.in_child = [] {
    const rlimit limit{100'000, 100'000};
    setrlimit(RLIMIT_FSIZE, &limit);
  };
  EXPECT_EQ(fetch(options), refused_with_token);
  EXPECT_EQ(mirror_server.paths(), Words{tokenizer_path});
  expect_nothing_left();
}

TEST_F(FetchFault, a_directory_at_the_part_name_fails_the_download_and_stays) {
  at_mirror = serving(mirror_files);
  at_hub = serving(hub_files);
  put("tokenizer.json.part/inside", "mine");
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(names_in(bundle()), Words{"tokenizer.json.part"});
  EXPECT_EQ(read_file(bundle() / "tokenizer.json.part/inside"), "mine");
}

using FetchWithFaults = WithFaults<FetchFault>;

// The call is delayed until curl has ended; then it fails.
TEST_F(FetchWithFaults, a_wait_that_fails_counts_as_a_finished_download) {
  put("tokenizer.json", tokenizer_body);
  put("calibration.json", calibration_body);
  const ScriptedProgram curl = scripted("output graph\nexit 22");
  EXPECT_EQ(seen(with_fault(sandbox, {"model", "fetch"},
                            "wait4:error=ECHILD:delay_enter=2000000:when=1+")),
            success(fetch_that_finds({"tokenizer.json", "calibration.json"})));
  EXPECT_EQ(curl.runs().size(), 1U);
  EXPECT_EQ(read_file(bundle() / "model.fp32.onnx"), "graph");
}

class AlreadyHere : public Fetching {
 protected:
  AlreadyHere() { at_mirror = serving(mirror_files); }

  void expect_calibration_left_alone() {
    RunOptions options;
    options.as_nobody = true;
    EXPECT_EQ(fetch(options), success(fetch_that_finds({"calibration.json"})));
    EXPECT_EQ(mirror_server.paths(), (Words{tokenizer_path, graph_path}));
  }
};

TEST_F(AlreadyHere, is_printed_for_an_unreadable_file_of_another_size_than_expected) {
  put("calibration.json", "x");
  fs::permissions(bundle() / "calibration.json", fs::perms::none);
  expect_calibration_left_alone();
  fs::permissions(bundle() / "calibration.json", fs::perms::owner_read);
  EXPECT_EQ(read_file(bundle() / "calibration.json"), "x");
}

TEST_F(AlreadyHere, is_printed_for_a_directory_at_the_final_name) {
  fs::create_directories(bundle() / "calibration.json");
  expect_calibration_left_alone();
}

TEST_F(AlreadyHere, is_printed_for_a_pipe_or_a_device_at_the_final_name) {
  fs::create_directories(bundle());
  fs::create_symlink("/dev/null", bundle() / "calibration.json");
  ASSERT_EQ(mkfifo((bundle() / "model.fp32.onnx").c_str(), 0600), 0);
  EXPECT_EQ(fetch(), success(fetch_that_finds({"calibration.json", "model.fp32.onnx"})));
  EXPECT_EQ(mirror_server.paths(), Words{tokenizer_path});
}

TEST_F(AlreadyHere, is_printed_for_a_link_to_a_file_with_content) {
  write_file(sandbox.root() / "elsewhere", "mine");
  fs::create_directories(bundle());
  fs::create_symlink(sandbox.root() / "elsewhere", bundle() / "calibration.json");
  expect_calibration_left_alone();
  EXPECT_EQ(read_file(bundle() / "calibration.json"), "mine");
}

TEST_F(AlreadyHere, is_not_printed_for_a_link_to_an_empty_file_or_to_nothing_which_is_replaced) {
  write_file(sandbox.root() / "empty", "");
  for (const char* target : {"empty", "nowhere"}) {
    fs::create_directories(bundle());
    fs::create_symlink(sandbox.root() / target, bundle() / "calibration.json");
    EXPECT_EQ(fetch(), success(fresh_fetch));
    EXPECT_EQ(fs::symlink_status(bundle() / "calibration.json").type(), fs::file_type::regular);
    expect_bundle_of(mirror_files);
    fs::remove_all(bundle());
  }
  EXPECT_EQ(read_file(sandbox.root() / "empty"), "");
  EXPECT_FALSE(fs::exists(sandbox.root() / "nowhere"));
}

TEST_F(AlreadyHere, is_not_printed_for_an_empty_file_or_dangling_link_and_a_failure_keeps_both) {
  at_mirror = serving({});
  put("tokenizer.json", "");
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(read_file(bundle() / "tokenizer.json"), "");
  fs::remove(bundle() / "tokenizer.json");
  fs::create_symlink("nowhere", bundle() / "tokenizer.json");
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(fs::read_symlink(bundle() / "tokenizer.json"), "nowhere");
}

TEST(SizeText, is_in_megabytes_or_gigabytes_truncated) {
  const std::pair<std::int64_t, const char*> rows[] = {
      {0, "0 MB"},
      {400, "0 MB"},
      {999999, "0 MB"},
      {1000000, "1 MB"},
      {1999999, "1 MB"},
      {34400000, "34 MB"},
      {309000000, "309 MB"},
      {999999999, "999 MB"},
      {1000000000, "1.000000 GB"},
      {1099999999, "1.000000 GB"},
      {1100000000, "1.100000 GB"},
      {1231000000, "1.200000 GB"},
      {9999999999, "9.900000 GB"},
      {123456789012, "123.400000 GB"},
      {std::numeric_limits<std::int64_t>::max(), "9223372036.799999 GB"},
      {-1, "0 MB"},
      {-1999999, "-1 MB"},
      {-2000000000, "-2000 MB"},
  };
  for (const auto& [bytes, text] : rows) {
    EXPECT_EQ(size_text(bytes), text) << bytes;
  }
}

}  // namespace
}  // namespace velun::test
