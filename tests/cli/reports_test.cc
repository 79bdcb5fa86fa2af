// `status`, `stats` and `log`: their requests to the daemon, and the stream and status of each
// result.

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

struct Command {
  std::string word;
  std::string path;
  std::string idle;        // printed if nothing runs
  std::string refused;     // printed for an answer without a body
  std::string unreadable;  // printed for one that is not JSON
  std::string answer;
  std::string report;  // of that answer
};

const std::vector<Command> commands = {
    {"status", "/v1/status", "not running (configured mode: protect)\n",
     "the daemon answers /healthz but refused /v1/status — token mismatch?\n",
     "unparseable /v1/status\n",
     R"({"mode":"monitor","model_status":"loaded","intercept":{"enabled":true,"port":5},
         "listeners":[{"app":"anthropic","port":8900},{"app":"openai","port":8901}]})",
     "mode:      watch\nengine:    model loaded (on-device)\n"
     "listener:  anthropic on port 8900\nlistener:  openai on port 8901\n"
     "intercept: port 5\ndashboard: http://127.0.0.1:PORT/\n"},
    {"stats", "/v1/stats", "not running\n", "could not read /v1/stats\n",
     "could not read /v1/stats\n",
     R"({"requests":12,"entities_protected":34,"blocked_requests":5,"cost_micros":1234567})",
     "requests:            12\nentities protected:  34\nblocked requests:    5\n"
     "cost (list prices):  $1.23457\n"},
    {"log", "/v1/transcript", "not running\n", "could not read /v1/transcript\n",
     "could not read /v1/transcript\n",
     R"({"entries":[{"app":"editor","model":"large","outcome":"ok","duration_ms":812},{}]})",
     "editor  large  ok  812 ms\n?      0 ms\n"},
};

class Report : public ::testing::TestWithParam<Command> {
 protected:
  Report() { sandbox.configure("mode: protect\n"); }

  std::string request(const std::string& path, const std::string& fields = "") const {
    return "GET " + path +
           " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(sandbox.control_port()) + "\r\n" +
           fields + "\r\n";
  }
  std::string probe() const { return request("/healthz"); }

  // Runs the command against a healthy daemon with this answer.
  Outcome run_for(const Reply& reply) {
    const LoopbackServer daemon(sandbox.control_port(), healthy_with(reply));
    return sandbox.velun({GetParam().word});
  }

  Sandbox sandbox;
};

TEST_P(Report, shows_the_daemons_answer_on_standard_output) {
  std::string report = GetParam().report;
  if (const std::size_t port = report.find("PORT"); port != std::string::npos) {
    report.replace(port, 4, std::to_string(sandbox.control_port()));
  }
  EXPECT_EQ(seen(run_for(answer(200, GetParam().answer))), success(report));
}

TEST_P(Report, says_on_standard_output_that_nothing_runs_and_leaves_the_token_alone) {
  std::filesystem::create_directories(sandbox.state_dir());
  const std::string token_file = (sandbox.state_dir() / "control.token").string();
  ASSERT_EQ(mkfifo(token_file.c_str(), 0600), 0);  // opening it would block
  EXPECT_EQ(seen(sandbox.velun({GetParam().word})), success(GetParam().idle));
}

TEST_P(Report, counts_an_unhealthy_daemon_as_not_running_and_asks_no_further) {
  const LoopbackServer daemon(sandbox.control_port(),
                              [](const std::string&) { return answer(503, "starting"); });
  EXPECT_EQ(seen(sandbox.velun({GetParam().word})), success(GetParam().idle));
  EXPECT_EQ(daemon.requests(), std::vector<std::string>{probe()});
}

TEST_P(Report, says_on_standard_error_that_the_daemon_refused_it) {
  EXPECT_EQ(seen(run_for(answer(401, "{}"))), failure(GetParam().refused));
}

TEST_P(Report, says_on_standard_error_that_the_answer_is_not_json) {
  EXPECT_EQ(seen(run_for(answer(200, "{"))), failure(GetParam().unreadable));
}

TEST_P(Report, reads_the_token_after_the_probe_and_sends_it_unchanged_for_the_report_only) {
  sandbox.configure("state_dir: configured\n");
  write_file(sandbox.state_dir() / "control.token", "default\n");
  const LoopbackServer daemon(sandbox.control_port(), [&](const std::string& received) {
    if (received == probe()) {
      write_file(sandbox.root() / "configured/control.token", " to\tken \r\nsecond line\n");
    }
    return answer(200, "{}");
  });
  EXPECT_EQ(sandbox.velun({GetParam().word}).status, 0);
  EXPECT_EQ(daemon.requests(),
            (std::vector<std::string>{
                probe(), request(GetParam().path, "Authorization: Bearer  to\tken \r\r\n")}));
}

TEST_P(Report, is_asked_for_without_authorization_when_there_is_no_token_file) {
  const LoopbackServer daemon(sandbox.control_port(), healthy_with("{}"));
  EXPECT_EQ(sandbox.velun({GetParam().word}).status, 0);
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{probe(), request(GetParam().path)}));
}

INSTANTIATE_TEST_SUITE_P(Of, Report, ::testing::ValuesIn(commands),
                         [](const auto& tested) { return tested.param.word; });

class WholeReport : public ::testing::Test {
 protected:
  WholeReport() { sandbox.configure(); }

  Outcome run_for(const std::string& word, const std::string& body) {
    const LoopbackServer daemon(sandbox.control_port(), healthy_with(body));
    return sandbox.velun({word});
  }

  // Runs a shell command line that holds "VELUN" in place of the program.
  Outcome shell(std::string command) {
    command.replace(command.find("VELUN"), 5, "'" VELUN_BINARY "'");
    RunOptions options;
    options.program = "/bin/sh";
    return sandbox.velun({"-c", command}, options);
  }

  Sandbox sandbox;
};

// A thousand entries, or a thousand listeners, without the bracket behind them.
std::string thousand(const std::string& element) {
  std::string text = "[";
  for (int i = 0; i < 1000; ++i) {
    text += element + ",";
  }
  return text;
}

TEST_F(WholeReport, of_status_is_not_printed_at_all_if_the_last_listener_is_faulty) {
  const std::string listeners = thousand(R"({"app":"a","port":1})") + R"({"port":"1"}])";
  EXPECT_EQ(seen(run_for("status", R"({"mode":"watch","listeners":)" + listeners + "}")),
            failure("unparseable /v1/status\n"));
}

// The library's uncaught exception: no message of velun's own, and no exit status.
TEST_F(WholeReport, of_stats_and_log_is_not_printed_at_all_if_an_answer_aborts_velun) {
  const std::string entries = thousand(R"({"app":"a"})") + R"({"duration_ms":"812"}])";
  const std::pair<std::string, std::string> rows[] = {{"stats", "null"},
                                                      {"stats", R"({"cost_micros":"1"})"},
                                                      {"log", "null"},
                                                      {"log", "{\"entries\":" + entries + "}"}};
  for (const auto& [word, body] : rows) {
    const Outcome run = run_for(word, body);
    EXPECT_EQ(run.out, "") << word;
    EXPECT_EQ(run.err.find("could not read"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("json.exception.type_error"), std::string::npos) << run.err;
    EXPECT_EQ(run.signal, SIGABRT);
  }
}

// A transcript just below the size limit of the control client, and its report.
class LongLog : public WholeReport {
 protected:
  LongLog() {
    for (int number = 0; body_.size() < 8'388'000; ++number) {
      const std::string text = std::to_string(number);
      body_ += R"({"app":"editor )" + text + R"(","duration_ms":)" + text + "},";
      report_ += "editor " + text + "      " + text + " ms\n";
    }
    body_ += "{}]}";
    report_ += "?      0 ms\n";
  }

  std::string body_ = R"({"entries":[)";
  std::string report_;
};

TEST_F(LongLog, goes_through_a_pipe_whole) {
  const LoopbackServer daemon(sandbox.control_port(), healthy_with(body_));
  const Outcome run = shell("VELUN log | cat");
  EXPECT_EQ(run.out.size(), report_.size());
  // EXPECT_EQ would print megabytes.
  EXPECT_TRUE(seen(run) == success(report_));
}

TEST_F(LongLog, gives_a_reader_that_leaves_early_its_first_line_whole_and_ends_with_0) {
  const LoopbackServer daemon(sandbox.control_port(), healthy_with(body_));
  const Outcome run = shell("{ VELUN log; echo $? >ended; } | head -1");
  EXPECT_EQ(seen(run), success("editor 0      0 ms\n"));
  EXPECT_EQ(read_file(sandbox.root() / "ended"), "0\n");
}

}  // namespace
}  // namespace velun::test
