#include "daemon/status.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/report_server.h"
#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

const std::string refused =
    "the daemon answers /healthz but refused /v1/status — token mismatch?\n";

class Status : public ::testing::Test {
 protected:
  Status() { sandbox.configure(); }

  std::string host() const { return "127.0.0.1:" + std::to_string(sandbox.control_port()); }
  std::string dashboard() const { return "dashboard: http://" + host() + "/\n"; }
  std::string probe() const { return "GET /healthz HTTP/1.1\r\nHost: " + host() + "\r\n\r\n"; }
  // The request for the status with a token, raw.
  std::string request(const std::string& token) const {
    return "GET /v1/status HTTP/1.1\r\nHost: " + host() + "\r\nAuthorization: Bearer " + token +
           "\r\n\r\n";
  }

  // Runs `velun status` against a healthy daemon with this answer.
  Outcome status_for(const Reply& report) {
    const LoopbackServer daemon(sandbox.control_port(), healthy_with(report));
    return sandbox.velun({"status"});
  }
  Outcome status_for(const std::string& body) { return status_for(answer(200, body)); }

  Sandbox sandbox;
};

TEST_F(Status, names_the_configured_mode_when_nothing_runs) {
  EXPECT_EQ(seen(sandbox.velun({"status"})), success("not running (configured mode: watch)\n"));
  for (const std::string mode : {"off", "watch", "protect"}) {
    sandbox.configure("mode: " + mode + "\n");
    EXPECT_EQ(seen(sandbox.velun({"status"})),
              success("not running (configured mode: " + mode + ")\n"));
  }
}

TEST_F(Status, counts_an_unhealthy_daemon_as_not_running_and_asks_no_further) {
  for (const Reply& reply : {answer(200, ""), answer(503, "starting"), answer(401, "token?"),
                             answer(204, ""), Reply{"garbage"}, Reply{"", Ending::reset}}) {
    const LoopbackServer daemon(sandbox.control_port(), [&](const std::string&) { return reply; });
    EXPECT_EQ(seen(sandbox.velun({"status"})), success("not running (configured mode: watch)\n"));
    EXPECT_EQ(daemon.requests(), std::vector<std::string>{probe()});
  }
}

TEST_F(Status, prints_the_report_of_a_running_daemon) {
  EXPECT_EQ(seen(status_for(
                R"({"mode":"monitor","model_status":"loaded","intercept":{"enabled":true,"port":5},
                     "listeners":[{"app":"anthropic","port":8900},{"app":"openai","port":8901}]})")),
            success("mode:      watch\n"
                    "engine:    model loaded (on-device)\n"
                    "listener:  anthropic on port 8900\n"
                    "listener:  openai on port 8901\n"
                    "intercept: port 5\n" +
                    dashboard()));
}

TEST_F(Status, shows_the_daemons_mode_rather_than_the_configured_one) {
  sandbox.configure("mode: off\n");
  EXPECT_EQ(seen(status_for(R"({"mode":"protect"})")),
            success("mode:      protect\n" + dashboard()));
}

TEST_F(Status, takes_an_answer_without_a_body_for_a_refusal) {
  for (const Reply& reply :
       {answer(200, ""), answer(204, ""), answer(301, "{}"), answer(401, "{}"), answer(403, "{}"),
        answer(500, "{}"), Reply{""}, Reply{"", Ending::reset}, Reply{"garbage"},
        Reply{"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{}"},
        answer(200, "{}" + std::string(8 * 1024 * 1024 - 1, ' '))}) {
    EXPECT_EQ(seen(status_for(reply)), failure(refused));
  }
}

TEST_F(Status, reports_a_token_that_the_daemon_does_not_know) {
  write_file(sandbox.state_dir() / "control.token", "stale\n");
  const LoopbackServer daemon(sandbox.control_port(), [&](const std::string& received) {
    if (path_of(received) == "/healthz") {
      return answer(200, "ok");
    }
    return received == request("current") ? answer(200, "{}") : answer(401, R"({"error":"token"})");
  });
  EXPECT_EQ(seen(sandbox.velun({"status"})), failure(refused));
  write_file(sandbox.state_dir() / "control.token", "current\n");
  EXPECT_EQ(seen(sandbox.velun({"status"})), success("mode:      ?\n" + dashboard()));
}

TEST_F(Status, reports_an_answer_that_is_not_json) {
  for (const std::string body : {"ok", "{\"mode\":", "<html>", " ", "{} // comment"}) {
    EXPECT_EQ(seen(status_for(body)), failure("unparseable /v1/status\n"));
  }
}

TEST_F(Status, reports_an_answer_of_an_unexpected_shape_like_one_that_is_not_json) {
  for (const std::string body :
       {"null", "[]", "\"text\"", "1", R"({"mode":1})", R"({"listeners":null})",
        R"({"listeners":{}})", R"({"intercept":null})", R"({"intercept":{"enabled":1}})"}) {
    EXPECT_EQ(seen(status_for(body)), failure("unparseable /v1/status\n"));
  }
}

TEST_F(Status, never_prints_half_a_report) {
  std::string listeners;
  for (int i = 0; i < 1000; ++i) {
    listeners += R"({"app":"a","port":1},)";
  }
  EXPECT_EQ(seen(status_for(R"({"mode":"watch","model_status":"loaded","listeners":[)" + listeners +
                            R"({"app":"a","port":"1"}]})")),
            failure("unparseable /v1/status\n"));
  EXPECT_EQ(seen(status_for(R"({"mode":"watch","intercept":{"enabled":true,"port":"1"}})")),
            failure("unparseable /v1/status\n"));
}

TEST_F(Status, asks_for_the_status_once_and_sends_the_token_only_there) {
  write_file(sandbox.state_dir() / "control.token", "s3cret\nsecond line\n");
  const LoopbackServer daemon(sandbox.control_port(), healthy_with("{}"));
  sandbox.velun({"status"});
  EXPECT_EQ(daemon.requests(), (std::vector<std::string>{probe(), request("s3cret")}));
}

TEST_F(Status, sends_no_authorization_without_a_token_file) {
  const LoopbackServer daemon(sandbox.control_port(), healthy_with("{}"));
  EXPECT_EQ(seen(sandbox.velun({"status"})), success("mode:      ?\n" + dashboard()));
  EXPECT_EQ(daemon.requests(),
            (std::vector<std::string>{probe(),
                                      "GET /v1/status HTTP/1.1\r\nHost: " + host() + "\r\n\r\n"}));
}

TEST_F(Status, reads_the_token_only_after_the_probe) {
  const LoopbackServer daemon(sandbox.control_port(), [&](const std::string& received) {
    if (path_of(received) == "/healthz") {
      write_file(sandbox.state_dir() / "control.token", "written by the probe");
      return answer(200, "ok");
    }
    return answer(200, "{}");
  });
  sandbox.velun({"status"});
  EXPECT_EQ(daemon.requests(),
            (std::vector<std::string>{probe(), request("written by the probe")}));
}

TEST_F(Status, does_not_touch_the_token_when_nothing_runs) {
  const std::string token_file = (sandbox.state_dir() / "control.token").string();
  std::filesystem::create_directories(sandbox.state_dir());
  ASSERT_EQ(mkfifo(token_file.c_str(), 0600), 0);  // whoever opens it waits for good
  EXPECT_EQ(seen(sandbox.velun({"status"})), success("not running (configured mode: watch)\n"));
}

TEST_F(Status, takes_the_token_from_the_configured_state_directory) {
  const LoopbackServer daemon(sandbox.control_port(), healthy_with("{}"));
  write_file(sandbox.state_dir() / "control.token", "default\n");
  write_file(sandbox.root() / "environment/control.token", "environment\n");
  write_file(sandbox.root() / "configured/control.token", "configured\n");
  sandbox.velun({"status"});
  sandbox.environment["VELUN_STATE_DIR"] = sandbox.root() / "environment";
  sandbox.velun({"status"});
  sandbox.configure("state_dir: " + (sandbox.root() / "configured").string() + "\n");
  sandbox.velun({"status"});
  EXPECT_EQ(daemon.requests(),
            (std::vector<std::string>{probe(), request("default"), probe(), request("environment"),
                                      probe(), request("configured")}));
}

}  // namespace
}  // namespace velun::test
