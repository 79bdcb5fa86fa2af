// How velun runs curl, and how velun ends after each end of curl.

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <tuple>

#include "models/download.h"
#include "tests/models/fetch_fixture.h"
#include "tests/support/environment_variable.h"
#include "tests/support/last_words.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class CurlRuns : public Fetching {
 protected:
  std::vector<Words> vectors_of(const ScriptedProgram& curl) {
    std::vector<Words> vectors;
    for (const RecordedRun& run : curl.runs()) {
      vectors.push_back(run.argv);
    }
    return vectors;
  }

  Words run_for(const std::string& local_name, const std::string& url, const Words& header = {}) {
    Words words = {"curl", "-L", "--fail", "--progress-bar", "--retry", "3"};
    words.insert(words.end(), header.begin(), header.end());
    words.insert(words.end(), {"-o", (bundle() / (local_name + ".part")).string(), url});
    return words;
  }

  Words mirror_run() { return run_for("tokenizer.json", mirror + tokenizer_path); }

  Words hub_run(const Words& header = {}) {
    return run_for("tokenizer.json",
                   std::string(hub_base_url) +
                       "quorvane/velun-pii-m-v1.3/resolve/main/tokenizer/tokenizer.json",
                   header);
  }
};

TEST_F(CurlRuns, have_nine_words_for_the_mirror) {
  const ScriptedProgram curl = scripted("output []");
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(
      vectors_of(curl),
      (std::vector<Words>{mirror_run(), run_for("calibration.json", mirror + calibration_path),
                          run_for("model.fp32.onnx", mirror + graph_path)}));
}

TEST_F(CurlRuns, have_nine_words_for_the_hub_without_a_token_or_with_an_empty_one) {
  const ScriptedProgram curl = scripted("exit 22");
  EXPECT_EQ(fetch(), refused());
  use_token("");
  EXPECT_EQ(fetch(), refused());
  EXPECT_EQ(vectors_of(curl),
            (std::vector<Words>{mirror_run(), hub_run(), mirror_run(), hub_run()}));
}

TEST_F(CurlRuns, receive_paths_and_urls_byte_for_byte) {
  sandbox.configure("state_dir: \"" + sandbox.root().string() + "/a b'c\xff $x\"\n");
  sandbox.environment["VELUN_MODEL_MIRROR"] = "http://127.0.0.1:1/ \xfe$(x)*/";
  const ScriptedProgram curl = scripted("output []");
  EXPECT_EQ(fetch(), success(fresh_fetch));
  const Words words = curl.runs().at(0).argv;
  EXPECT_EQ(words.at(7),
            sandbox.root().string() + "/a b'c\xff $x/models/velun-pii-m-v1.3/tokenizer.json.part");
  EXPECT_EQ(words.at(8), "http://127.0.0.1:1/ \xfe$(x)*/velun-pii-m-v1.3/tokenizer/tokenizer.json");
}

TEST_F(CurlRuns, for_both_sources_write_to_the_users_streams_after_the_line_of_their_file) {
  const ScriptedProgram curl =
      scripted("print curl says\ncomplain curl complains\nfail-on 127.0.0.1\noutput []");
  EXPECT_EQ(fetch(), ended(0,
                           "fetching velun-pii-m-v1.3 (full)\n"
                           "  tokenizer.json (~34 MB)\n"
                           "curl says\ncurl says\n"
                           "  calibration.json (~0 MB)\n"
                           "curl says\ncurl says\n"
                           "  model.fp32.onnx (~1.200000 GB)\n"
                           "curl says\ncurl says\n"
                           "done. activate it with: velun model use velun-pii-m-v1.3\n",
                           "curl complains\ncurl complains\ncurl complains\n"
                           "curl complains\ncurl complains\ncurl complains\n"));
}

// All that a run of curl inherits. With velun's session and group, Ctrl-C reaches curl too.
auto surroundings(const RecordedRun& run) {
  return std::tuple(run.session, run.group, run.descriptors, run.directory, run.environment,
                    run.status.at("Umask"), run.status.at("SigBlk"), run.status.at("SigIgn"));
}

TEST_F(CurlRuns, inherit_the_surroundings_of_velun) {
  const ScriptedProgram curl = scripted("exit 22");
  use_token("hf_secret");
  for (const auto pipe_action : {SIG_DFL, SIG_IGN}) {
    RunOptions options;
    options.in_child = [pipe_action] { signal(SIGPIPE, pipe_action); };
    RunOptions by_hand = options;
    by_hand.program = curl.path();
    EXPECT_EQ(fetch(options), refused_with_token);
    sandbox.velun({}, by_hand);
    const std::vector<RecordedRun> runs = curl.runs();
    const std::size_t last = runs.size() - 1;
    EXPECT_EQ(surroundings(runs.at(last - 2)), surroundings(runs[last])) << "for the mirror";
    EXPECT_EQ(surroundings(runs.at(last - 1)), surroundings(runs[last])) << "for the hub";
  }
}

TEST_F(CurlRuns, that_fail_or_are_killed_leave_neither_a_part_nor_a_header_file) {
  use_token("hf_secret");
  for (const char* end : {"exit 56", "kill 9"}) {
    const ScriptedProgram curl = scripted(std::string("output half\n") + end);
    EXPECT_EQ(fetch(), refused_with_token) << end;
    expect_nothing_left();
  }
}

TEST_F(CurlRuns, name_the_header_file_even_if_it_cannot_be_replaced) {
  const ScriptedProgram curl = scripted("exit 22");
  use_token("hf_secret");
  write_file(header_file(), "older content\n");
  const fs::file_time_type long_ago = fs::last_write_time(header_file()) - std::chrono::hours(1);
  fs::last_write_time(header_file(), long_ago);
  fs::create_directories(bundle());
  fs::permissions(sandbox.state_dir(), fs::perms::owner_read | fs::perms::owner_exec);
  RunOptions options;
  options.as_nobody = true;
  EXPECT_EQ(fetch(options), refused_with_token);
  EXPECT_EQ(vectors_of(curl),
            (std::vector<Words>{mirror_run(), hub_run({"-H", "@" + header_file().string()})}));
  EXPECT_EQ(read_file(header_file()), "older content\n");
  EXPECT_EQ(fs::last_write_time(header_file()), long_ago);
}

TEST_F(CurlRuns, work_in_another_process_namespace) {
  const auto enter = [] {
    return unshare(CLONE_NEWPID) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWPID) == 0;
  };
  const pid_t trial = fork();
  if (trial == 0) {
    _exit(enter() ? 0 : 1);
  }
  int status = 1;
  if (waitpid(trial, &status, 0) != trial || status != 0) {
    GTEST_SKIP() << "this system allows the test no process namespace";
  }
  sandbox.environment["ASAN_OPTIONS"] = "detect_leaks=0";  // its check cannot run there
  // A new namespace ends with its first process, so there can be one download only.
  put("tokenizer.json", tokenizer_body);
  put("calibration.json", calibration_body);
  const ScriptedProgram curl = scripted("output graph");
  RunOptions options;
  options.in_child = [enter] { enter(); };
  EXPECT_EQ(fetch(options), success(fetch_that_finds({"tokenizer.json", "calibration.json"})));
  EXPECT_EQ(read_file(bundle() / "model.fp32.onnx"), "graph");
}

TEST_F(CurlRuns, that_cannot_be_forked_count_as_failed) {
  // The leak check of a sanitizer build needs a process of its own.
  sandbox.environment["ASAN_OPTIONS"] = "detect_leaks=0";
  RunOptions options;
  options.as_nobody = true;
  options.in_child = [] {
    const rlimit no_processes{0, 0};
    setrlimit(RLIMIT_NPROC, &no_processes);
  };
  const ScriptedProgram curl = scripted("output []");
  EXPECT_EQ(fetch(options), refused());
  expect_nothing_left();
  EXPECT_EQ(curl.runs().size(), 0U);
}

TEST_F(CurlRuns, that_succeed_without_a_file_abort_velun_at_the_rename) {
  for (const char* steps : {"exit 0", "fail-on 127.0.0.1\nexit 0"}) {
    const ScriptedProgram curl = scripted(steps);
    const Outcome run = sandbox.velun({"model", "fetch"});
    EXPECT_EQ(run.signal, SIGABRT) << steps;
    EXPECT_EQ(run.out, failed_fetch);
    EXPECT_NE(run.err.find(cannot("rename")), std::string::npos) << run.err;
  }
}

class RunCurl : public ::testing::Test {
 protected:
  int status_of(const std::string& steps) {
    const ScriptedProgram curl(sandbox.root() / "bin/curl", steps);
    return run_curl("http://127.0.0.1:1/x", (sandbox.root() / "x").string(), "");
  }

  Sandbox sandbox;
  EnvironmentVariable path{"PATH", (sandbox.root() / "bin").c_str()};
};

TEST_F(RunCurl, returns_the_exit_code_or_one_for_a_signal) {
  for (const int code : {0, 1, 2, 22, 56, 127, 128, 255}) {
    EXPECT_EQ(status_of("exit " + std::to_string(code)), code);
  }
  for (const int number : {SIGABRT, SIGKILL, SIGSEGV, SIGTERM}) {
    EXPECT_EQ(status_of("kill " + std::to_string(number)), 1) << number;
  }
}

TEST_F(RunCurl, returns_127_if_no_curl_can_be_executed) {
  EXPECT_EQ(run_curl("http://127.0.0.1:1/x", (sandbox.root() / "x").string(), ""), 127);
  write_file(sandbox.root() / "bin/curl", "not a program");
  EXPECT_EQ(run_curl("http://127.0.0.1:1/x", (sandbox.root() / "x").string(), ""), 127);
}

TEST_F(RunCurl, takes_the_first_curl_on_the_search_path) {
  const ScriptedProgram first(sandbox.root() / "first/curl", "exit 11");
  const ScriptedProgram second(sandbox.root() / "second/curl", "exit 12");
  const std::string root = sandbox.root().string();
  const EnvironmentVariable both(
      "PATH", std::string(root).append("/none:" + root + "/first:" + root + "/second").c_str());
  EXPECT_EQ(run_curl("http://127.0.0.1:1/x", (sandbox.root() / "x").string(), ""), 11);
}

TEST_F(RunCurl, for_a_model_that_is_not_gated_fails_without_an_explanation) {
  const EnvironmentVariable server("VELUN_MODEL_MIRROR", "http://127.0.0.1:1");
  const EnvironmentVariable token("VELUN_HF_TOKEN", nullptr);
  const ScriptedProgram curl(sandbox.root() / "bin/curl", "exit 22");
  ModelCard card = model_catalog();
  card.gated = false;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(download_file({}, card, bundle_files(card, "full")[1], sandbox.root()));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "download failed: calibration.json\n");
  EXPECT_EQ(curl.runs().size(), 2U);
}

}  // namespace
}  // namespace velun::test
