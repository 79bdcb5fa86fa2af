// What can go wrong around a download besides the answers: curl's end, the wait for it, the disk,
// the renaming, the output.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "tests/models/fetch_fixture.h"
#include "tests/support/failing_call.h"
#include "tests/support/last_words.h"
#include "tests/support/scripted_program.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class FetchFault : public Fetching {
 protected:
  /// Puts a curl where it is looked for that does these steps.
  ScriptedProgram scripted(const std::string& steps) {
    use_path(sandbox.root() / "bin");
    return ScriptedProgram(sandbox.root() / "bin/curl", steps);
  }

  void expect_nothing_left() const {
    EXPECT_EQ(names_in(bundle()), Words{});
    EXPECT_EQ(names_in(sandbox.state_dir()), Words{"models"});
  }
};

TEST_F(FetchFault, every_exit_code_of_curl_but_0_is_a_failure) {
  use_token("hf_secret");
  use_path(sandbox.root() / "bin");
  const fs::path curl = sandbox.root() / "bin/curl";
  const std::string part = bundle() / "tokenizer.json.part";
  write_file(curl, "#!/bin/sh\necho half >'" + part + "'\nexit $CODE\n");
  fs::permissions(curl, fs::perms::owner_all);
  for (int code = 1; code <= 99; ++code) {
    sandbox.environment["CODE"] = std::to_string(code);
    EXPECT_EQ(fetch(), refused_with_token) << code;
  }
  expect_nothing_left();
}

TEST_F(FetchFault, a_full_disk_is_a_failure_that_leaves_nothing) {
  const LoopbackServer server(0, serving({{tokenizer_path, std::string(300'000, 't')}}));
  use_mirror(server.port());
  use_token("hf_secret");
  sandbox.set_counters_aside();
  RunOptions options;
  options.in_child = [] {
    const rlimit limit{100'000, 100'000};
    setrlimit(RLIMIT_FSIZE, &limit);
  };
  EXPECT_EQ(fetch(options), refused_with_token);
  EXPECT_EQ(server.paths(), Words{tokenizer_path});
  expect_nothing_left();
}

TEST_F(FetchFault, a_directory_at_the_part_name_fails_the_download_and_stays) {
  const LoopbackServer server(0, serving(mirror_files));
  const LoopbackServer hub(0, serving(hub_files), VELUN_HUB_CERTIFICATE);
  use_mirror(server.port());
  use_hub(hub.port());
  put("tokenizer.json.part/inside", "mine");
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(names_in(bundle()), Words{"tokenizer.json.part"});
  EXPECT_EQ(read_file(bundle() / "tokenizer.json.part/inside"), "mine");
}

// The directory takes the file's place while curl is on its way.
TEST_F(FetchFault, a_file_that_cannot_be_renamed_ends_the_fetch_and_keeps_its_part) {
  const LoopbackServer server(0, [&](const std::string& request) {
    write_file(bundle() / "tokenizer.json/inside", "mine");
    return serving(mirror_files)(request);
  });
  use_mirror(server.port());
  const Outcome run = sandbox.velun({"model", "fetch"});
  EXPECT_EQ(run.signal, SIGABRT);
  EXPECT_EQ(run.out, failed_fetch);
  EXPECT_NE(run.err.find(cannot("rename")), std::string::npos) << run.err;
  EXPECT_EQ(names_in(bundle()), (Words{"tokenizer.json", "tokenizer.json.part"}));
  EXPECT_EQ(names_in(bundle() / "tokenizer.json"), Words{"inside"});
}

TEST_F(FetchFault, an_output_that_takes_nothing_keeps_no_file_from_being_fetched) {
  const LoopbackServer server(0, serving(mirror_files));
  use_mirror(server.port());
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
    for (const std::string output : {"full", "closed", "abandoned"}) {
      RunOptions options;
      options.in_child = [&] {
        int ends[2] = {-1, open("/dev/full", O_WRONLY | O_CLOEXEC)};
        if (output == "closed") {
          close(stream);
        } else if (output == "full" || pipe2(ends, O_CLOEXEC) == 0) {
          dup2(ends[1], stream);
        }
      };
      EXPECT_EQ(fetch(options), success(stream == STDOUT_FILENO ? "" : fresh_fetch)) << output;
      expect_bundle_of(mirror_files);
      fs::remove_all(bundle());
    }
  }
}

using FetchWithFaults = WithFaults<FetchFault>;

// Held up long enough for curl to end, velun asks in vain how it did.
TEST_F(FetchWithFaults, a_wait_that_fails_counts_as_a_finished_download) {
  const ScriptedProgram curl = scripted("output []\nexit 22");
  EXPECT_EQ(seen(with_fault(sandbox, {"model", "fetch"},
                            "wait4:error=ECHILD:delay_enter=500000:when=1+")),
            success(fresh_fetch));
  EXPECT_EQ(curl.runs().size(), 3U);
  expect_bundle_of({{tokenizer_path, "[]"}, {calibration_path, "[]"}, {graph_path, "[]"}});
}

TEST_F(FetchWithFaults, a_wait_that_fails_for_a_curl_without_a_file_ends_the_fetch) {
  const ScriptedProgram curl = scripted("exit 22");
  const Outcome run =
      with_fault(sandbox, {"model", "fetch"}, "wait4:error=ECHILD:delay_enter=500000:when=1+");
  EXPECT_EQ(run.signal, SIGABRT);
  EXPECT_EQ(run.out, failed_fetch);
  EXPECT_EQ(curl.runs().size(), 1U);
  expect_nothing_left();
}

TEST_F(FetchWithFaults, a_token_that_cannot_be_removed_is_not_left_on_disk) {
  const ScriptedProgram curl = scripted("exit 22");
  use_token("hf_secret");
  EXPECT_EQ(seen(with_fault(sandbox, {"model", "fetch"}, "unlink:error=EROFS:when=1+")),
            refused_with_token);
  EXPECT_EQ(read_file(header_file()), "");
}

}  // namespace
}  // namespace velun::test
