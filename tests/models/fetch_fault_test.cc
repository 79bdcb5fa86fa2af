// Failures around a download: obstacles, the disk, the rename, the output, the wait for curl.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include "tests/models/fetch_fixture.h"
#include "tests/support/failing_call.h"
#include "tests/support/last_words.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class FetchFault : public Fetching {};

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

// The directory appears at the file's final name while curl runs.
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

// The wait starts after curl has ended, and fails.
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

}  // namespace
}  // namespace velun::test
