#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "daemon/control_client.h"
#include "tests/support/loopback_server.h"
#include "tests/support/quiet_call.h"
#include "tests/support/raw_listener.h"

namespace velun::test {
namespace {

using namespace std::string_literals;

Reply ok(const std::string&) {
  return answer(200, "ok");
}

TEST(ControlRequest, without_a_token_is_the_request_line_and_the_host_alone) {
  EXPECT_EQ(control_request(8902, "/healthz", ""),
            "GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:8902\r\n\r\n");
}

TEST(ControlRequest, with_a_token_has_the_authorization_field_behind_the_host) {
  EXPECT_EQ(control_request(8902, "/v1/status", "s3cret"),
            "GET /v1/status HTTP/1.1\r\nHost: 127.0.0.1:8902\r\nAuthorization: Bearer s3cret"
            "\r\n\r\n");
}

TEST(ControlRequest, names_every_port_in_decimal_without_leading_zeros) {
  for (int port = 1; port <= 65535; ++port) {
    char expected[64];
    std::snprintf(expected, sizeof expected, "GET / HTTP/1.1\r\nHost: 127.0.0.1:%d\r\n\r\n", port);
    ASSERT_EQ(control_request(port, "/", ""), expected);
  }
}

TEST(ControlRequest, takes_the_path_as_it_stands) {
  for (const std::string path : {"/v1/stats", "/a?b=c&d", "/%41%", "/\xc3\xa9", "no-slash", ""}) {
    EXPECT_EQ(control_request(80, path, ""),
              "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:80\r\n\r\n");
  }
}

TEST(ControlClient, sends_every_byte_of_a_token) {
  const LoopbackServer daemon(0, ok);
  std::vector<std::string> expected;
  for (const std::string& token :
       {"token\r"s, " leading"s, "trailing   "s, " \t both \t"s, "\ttab"s,
        "two  blanks and\ttabs inside"s, " "s, "\r"s, "\x01\x7f\xff \xc3\xa9"s, "nul\0inside"s,
        "a:b, c=\"d\""s, std::string(100'000, 't')}) {
    EXPECT_EQ(control_get(daemon.port(), "/", token), "ok");
    expected.push_back("GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(daemon.port()) +
                       "\r\nAuthorization: Bearer " + token + "\r\n\r\n");
  }
  EXPECT_EQ(daemon.requests(), expected);
}

TEST(ControlClient, sends_nothing_behind_the_empty_line) {
  std::string received;
  RawListener daemon([&](int connection) { received = RawListener::read_to_end(connection); });
  EXPECT_EQ(control_get(daemon.port(), "/v1/status", "t"), "");
  daemon.join();
  EXPECT_EQ(received, "GET /v1/status HTTP/1.1\r\nHost: 127.0.0.1:" +
                          std::to_string(daemon.port()) + "\r\nAuthorization: Bearer t\r\n\r\n");
}

TEST(ControlClient, probes_with_a_request_for_healthz_that_has_no_token) {
  const LoopbackServer daemon(0, ok);
  EXPECT_TRUE(quietly([&] { return daemon_healthy(daemon.port()); }).result);
  EXPECT_EQ(daemon.requests(),
            std::vector<std::string>{"GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:" +
                                     std::to_string(daemon.port()) + "\r\n\r\n"});
}

}  // namespace
}  // namespace velun::test
