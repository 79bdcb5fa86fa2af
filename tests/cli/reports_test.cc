#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/report_server.h"
#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

class Reports : public ::testing::TestWithParam<std::string> {
 protected:
  Reports() { sandbox.configure(); }

  std::string host() const { return "127.0.0.1:" + std::to_string(sandbox.control_port()); }
  std::string probe() const { return "GET /healthz HTTP/1.1\r\nHost: " + host() + "\r\n\r\n"; }
  static std::string path() { return GetParam() == "stats" ? "/v1/stats" : "/v1/transcript"; }
  // The request for the report with a token, raw.
  std::string request(const std::string& token) const {
    return "GET " + path() + " HTTP/1.1\r\nHost: " + host() + "\r\nAuthorization: Bearer " + token +
           "\r\n\r\n";
  }

  Outcome run() { return sandbox.velun({GetParam()}); }
  // Runs the command against a healthy daemon with this answer.
  Outcome run_for(const Reply& report) {
    const LoopbackServer daemon(sandbox.control_port(), healthy_with(report));
    return run();
  }
  Outcome run_for(const std::string& body) { return run_for(answer(200, body)); }

  std::string could_not_read() const { return "could not read " + path() + "\n"; }

  Sandbox sandbox;
};

// The library's uncaught exception: no report, no message of velun's own, and no exit status.
void expect_abnormal_end(const Outcome& run) {
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err.find("could not read"), std::string::npos) << run.err;
  EXPECT_NE(run.err.find("json.exception.type_error"), std::string::npos) << run.err;
  EXPECT_EQ(run.signal, SIGABRT);
}

TEST_P(Reports, say_on_standard_output_that_nothing_runs) {
  EXPECT_EQ(seen(run()), success("not running\n"));
}

TEST_P(Reports, count_an_unhealthy_daemon_as_not_running_and_ask_no_further) {
  for (const Reply& reply : {answer(200, ""), answer(503, "starting"), answer(401, "token?"),
                             Reply{"garbage"}, Reply{"", Ending::reset}}) {
    const LoopbackServer daemon(sandbox.control_port(), [&](const std::string&) { return reply; });
    EXPECT_EQ(seen(run()), success("not running\n"));
    EXPECT_EQ(daemon.requests(), std::vector<std::string>{probe()});
  }
}

TEST_P(Reports, say_on_standard_error_that_the_answer_could_not_be_had) {
  for (const Reply& reply :
       {answer(201, "{}"), answer(204, ""), answer(301, "{}"), answer(401, "{}"), answer(403, "{}"),
        answer(500, "{}"), answer(200, ""), Reply{""}, Reply{"garbage"}, Reply{"", Ending::reset},
        Reply{"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{}"}}) {
    EXPECT_EQ(seen(run_for(reply)), failure(could_not_read()));
  }
}

TEST_P(Reports, say_on_standard_error_that_the_answer_is_not_json) {
  for (const std::string body : {"ok", "{", " ", "{} // comment", "{\"a\":\"\xff\"}"}) {
    EXPECT_EQ(seen(run_for(body)), failure(could_not_read()));
  }
}

TEST_P(Reports, end_abnormally_on_an_answer_that_is_no_object) {
  for (const std::string body : {"null", "true", "1", "\"text\"", "[]", "[{}]"}) {
    expect_abnormal_end(run_for(body));
  }
}

TEST_P(Reports, end_abnormally_on_a_hundred_thousand_levels_where_an_object_is_expected) {
  expect_abnormal_end(run_for(nested_arrays(100'000)));
}

TEST_P(Reports, ask_for_the_answer_once_and_send_the_token_only_there_and_untouched) {
  sandbox.configure("state_dir: " + (sandbox.root() / "configured").string() + "\n");
  write_file(sandbox.state_dir() / "control.token", "default\n");
  write_file(sandbox.root() / "configured/control.token", " to\tken \r\nsecond line\n");
  const LoopbackServer daemon(sandbox.control_port(), healthy_with("{}"));
  run();
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{probe(), request(" to\tken \r")}));
}

TEST_P(Reports, send_no_authorization_without_a_token_file) {
  const LoopbackServer daemon(sandbox.control_port(), healthy_with("{}"));
  EXPECT_EQ(run().status, 0);
  EXPECT_EQ(daemon.requests(),
            (std::vector<std::string>{
                probe(), "GET " + path() + " HTTP/1.1\r\nHost: " + host() + "\r\n\r\n"}));
}

TEST_P(Reports, read_the_token_only_after_the_probe) {
  const LoopbackServer daemon(sandbox.control_port(), [&](const std::string& received) {
    if (path_of(received) == "/healthz") {
      write_file(sandbox.state_dir() / "control.token", "written by the probe");
      return answer(200, "ok");
    }
    return answer(200, "{}");
  });
  run();
  EXPECT_EQ(daemon.requests(),
            (std::vector<std::string>{probe(), request("written by the probe")}));
}

TEST_P(Reports, do_not_touch_the_token_when_nothing_runs) {
  std::filesystem::create_directories(sandbox.state_dir());
  const std::string token_file = (sandbox.state_dir() / "control.token").string();
  ASSERT_EQ(mkfifo(token_file.c_str(), 0600), 0);  // whoever opens it waits for good
  EXPECT_EQ(seen(run()), success("not running\n"));
}

INSTANTIATE_TEST_SUITE_P(Both, Reports, ::testing::Values("stats", "log"),
                         [](const auto& tested) { return tested.param; });

class ReportText : public ::testing::Test {
 protected:
  ReportText() { sandbox.configure(); }

  Outcome run_for(const std::string& word, const std::string& body) {
    const LoopbackServer daemon(sandbox.control_port(), healthy_with(body));
    return sandbox.velun({word});
  }

  Sandbox sandbox;
};

TEST_F(ReportText, of_stats_shows_the_daemons_counters) {
  EXPECT_EQ(seen(run_for("stats", R"({"requests":12,"entities_protected":34,"blocked_requests":5,
                                      "cost_micros":1234567})")),
            success("requests:            12\nentities protected:  34\nblocked requests:    5\n"
                    "cost (list prices):  $1.23457\n"));
}

TEST_F(ReportText, of_stats_is_missing_whole_when_one_counter_is_no_number) {
  for (const std::string member :
       {"requests", "entities_protected", "blocked_requests", "cost_micros"}) {
    expect_abnormal_end(run_for("stats", "{\"" + member + "\":\"1\"}"));
  }
}

TEST_F(ReportText, of_log_shows_the_daemons_requests) {
  EXPECT_EQ(seen(run_for("log", R"({"entries":[{"app":"editor","model":"large","outcome":"ok",
                                     "duration_ms":812},{"app":"codex"}]})")),
            success("editor  large  ok  812 ms\ncodex      0 ms\n"));
}

TEST_F(ReportText, of_log_is_missing_whole_when_the_last_of_a_thousand_entries_is_faulty) {
  std::string entries;
  for (int i = 1; i < 1000; ++i) {
    entries += R"({"app":"editor","model":"large","outcome":"ok","duration_ms":812},)";
  }
  expect_abnormal_end(run_for("log", "{\"entries\":[" + entries + R"({"duration_ms":"812"}]})"));
}

}  // namespace
}  // namespace velun::test
