#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "daemon/control_client.h"
#include "tests/support/loopback_server.h"
#include "tests/support/quiet_call.h"
#include "tests/support/raw_listener.h"

namespace velun::test {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;

Reply ok(const std::string&) {
  return answer(200, "ok");
}

Timed<std::string> call(int port, const std::string& path = "/v1/stats") {
  return quietly([&] { return control_get(port, path, "token"); });
}

Timed<std::string> call_for(const Reply& reply) {
  const LoopbackServer daemon(0, [&](const std::string&) { return reply; });
  const auto outcome = call(daemon.port());
  EXPECT_EQ(daemon.requests().size(), 1U);
  return outcome;
}

void expect_failure_at_once(const Timed<std::string>& outcome) {
  EXPECT_EQ(outcome.result, "");
  EXPECT_LT(outcome.took, milliseconds(1900));
}

void expect_failure_after_two_seconds(const Timed<std::string>& outcome) {
  EXPECT_EQ(outcome.result, "");
  EXPECT_GE(outcome.took, milliseconds(1900));
  EXPECT_LT(outcome.took, milliseconds(3800));
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

std::string chunk(const std::string& data) {
  char size[32];
  std::snprintf(size, sizeof size, "%zx\r\n", data.size());
  return size + data + "\r\n";
}

const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
const std::string last_chunk = "0\r\n\r\n";

TEST(ControlAnswer, with_status_200_gives_its_body_at_once) {
  const std::string any_bytes = "\0\r\n\r\n\x01\xff\xc3\xa9 end\n"s;
  const std::pair<Reply, std::string> rows[] = {
      {answer(200, "ok"), "ok"},
      {answer(200, ""), ""},
      {answer(200, any_bytes), any_bytes},
      {{answer(200, "ok").bytes + "more"}, "ok"},
      {{"HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok"}, "ok"},
      {{answer(200, "ok").bytes, Ending::hang}, "ok"},
      {{"HTTP/1.1 200 OK\r\n\r\nuntil the end"}, "until the end"},
      {{"HTTP/1.0 200 OK\r\n\r\nuntil the end"}, "until the end"},
      {{chunked + chunk("{\"a\":") + chunk("1") + chunk("}") + last_chunk}, "{\"a\":1}"},
      {{chunked + "2;name=value\r\nok\r\n0\r\nX-After: 1\r\n\r\n"}, "ok"},
      {{chunked + chunk("ok") + last_chunk, Ending::hang}, "ok"},
      // Byte by byte.
      {{answer(200, "slow but steady").bytes, Ending::close, milliseconds(2)}, "slow but steady"},
      {{chunked + chunk("slow") + chunk(" but steady") + last_chunk, Ending::close,
        milliseconds(2)},
       "slow but steady"},
      {{chunked + last_chunk, Ending::close, milliseconds(2)}, ""},
  };
  for (const auto& [reply, body] : rows) {
    const auto outcome = call_for(reply);
    EXPECT_EQ(outcome.result, body) << reply.bytes;
    EXPECT_LT(outcome.took, milliseconds(1900)) << reply.bytes;
  }
}

TEST(ControlAnswer, with_any_other_status_gives_the_empty_text) {
  for (const int status : {201, 202, 203, 206, 299, 300, 301, 302, 307, 400, 401, 403, 404, 418,
                           429, 500, 502, 503, 599}) {
    SCOPED_TRACE(status);
    expect_failure_at_once(call_for(answer(status, R"({"error": "body"})")));
  }
  for (const Reply& reply :
       {Reply{"HTTP/1.1 204 No Content\r\n\r\n"}, Reply{"HTTP/1.1 304 Not Modified\r\n\r\n"},
        answer(301, "moved", "Location: /v1/other\r\n"),
        answer(401, "token?", "WWW-Authenticate: Bearer\r\n"),
        Reply{"HTTP/1.1 100 Continue\r\n\r\n" + answer(200, "ok").bytes}}) {
    SCOPED_TRACE(reply.bytes);
    expect_failure_at_once(call_for(reply));
  }
}

// A lost, doubled or moved byte changes this body.
std::string numbered_body(std::size_t size) {
  const std::string dots(100, '.');
  std::string body;
  for (int number = 0; body.size() < size; ++number) {
    body += std::to_string(number) + dots;
  }
  body.resize(size);
  return body;
}

TEST(ControlAnswer, may_have_eight_megabytes_and_not_one_byte_more) {
  const std::size_t limit = 8 * 1024 * 1024;
  for (const std::size_t size : {limit, limit + 1}) {
    const std::string body = numbered_body(size);
    for (const Reply& reply : {answer(200, body), Reply{"HTTP/1.1 200 OK\r\n\r\n" + body},
                               Reply{chunked + chunk(body) + last_chunk},
                               Reply{chunked + chunk(body.substr(0, 4'000'000)) +
                                     chunk(body.substr(4'000'000)) + last_chunk}}) {
      // A failure does not print the megabytes.
      const std::string result = call_for(reply).result;
      EXPECT_EQ(result.size(), size == limit ? size : 0U);
      EXPECT_TRUE(result.empty() || result == body);
    }
  }
}

TEST(ControlAnswer, that_is_broken_or_too_long_gives_the_empty_text_at_once) {
  const std::string begin = "HTTP/1.1 200 OK\r\n";
  const std::string length = begin + "Content-Length: ";
  for (const std::string& bytes :
       {// It breaks off.
        ""s, "H"s, "HTTP/1.1 200"s, begin, length + "2\r\n", length + "2\r\n\r\n",
        length + "2\r\n\r\no", chunked + "2\r\nok\r\n", chunked + "2\r\nok\r\n0\r\n",
        // It is not HTTP.
        "ok"s, "\r\n\r\n"s, "this is not HTTP\r\n\r\n"s, "HTTP/2.0 200 OK\r\n\r\nok"s,
        "HTTP/1.1 twohundred OK\r\n\r\nok"s, begin + "no colon\r\n\r\nok", length + "two\r\n\r\nok",
        length + "-2\r\n\r\nok", chunked + "zz\r\nok\r\n0\r\n\r\n", std::string(1000, '\0'),
        "\x16\x03\x01\x02\xff"s,
        // It announces more than any memory holds.
        length + "1099511627776\r\n\r\nok", length + "9223372036854775807\r\n\r\nok",
        length + "18446744073709551615\r\n\r\nok", length + "18446744073709551616\r\n\r\nok"}) {
    SCOPED_TRACE(bytes);
    expect_failure_at_once(call_for({bytes}));
  }
  for (const std::string& bytes : {""s, begin + "Content-Le", begin + "\r\nuntil the"}) {
    SCOPED_TRACE("reset after " + bytes);
    expect_failure_at_once(call_for({bytes, Ending::reset}));
  }
}

TEST(ControlAnswer, that_is_not_whole_after_two_seconds_gives_the_empty_text) {
  const std::string begin = "HTTP/1.1 200 OK\r\n";
  for (const Reply& reply :
       {Reply{"", Ending::hang}, Reply{begin + "Conte", Ending::hang},
        Reply{begin + "Content-Length: 4\r\n\r\nha", Ending::hang},
        Reply{begin + "\r\nall of it", Ending::hang},
        Reply{answer(200, "ok", "X-Pad: 0123456789\r\n").bytes, Ending::close, milliseconds(150)},
        Reply{begin + "\r\n" + std::string(100, 'x'), Ending::close, milliseconds(40)}}) {
    SCOPED_TRACE(reply.bytes);
    expect_failure_after_two_seconds(call_for(reply));
  }
}

TEST(ControlFault, a_hundred_refused_connections_give_the_empty_text_at_once) {
  const ReservedPort nobody;
  expect_failure_at_once(quietly([&] {
    std::string results;
    for (int i = 0; i < 50; ++i) {
      results += control_get(nobody.number(), "/v1/stats", "token");
      results += daemon_healthy(nobody.number()) ? "healthy" : "";
    }
    return results;
  }));
}

TEST(ControlFault, a_listener_on_the_ipv6_loopback_address_alone_is_not_asked) {
  const ReservedPort number;
  const int listener = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_addr = in6addr_loopback;
  address.sin6_port = htons(static_cast<std::uint16_t>(number.number()));
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    GTEST_SKIP() << "no IPv6 here";
  }
  ASSERT_EQ(listen(listener, 8), 0);
  expect_failure_at_once(call(number.number()));
  close(listener);
}

TEST(ControlFault, a_listener_that_closes_without_reading_gives_the_empty_text) {
  const RawListener daemon([](int) {});
  expect_failure_at_once(call(daemon.port()));
}

TEST(ControlFault, a_failed_call_leaves_no_descriptor_open) {
  const ReservedPort nobody;
  const int before = dup(0);
  close(before);
  call(nobody.number());
  const int after = dup(0);
  close(after);
  EXPECT_EQ(after, before);
}

TEST(ControlFault, a_listener_that_closes_in_the_middle_of_a_request_raises_no_signal) {
  const RawListener daemon([](int connection) {
    char byte = 0;
    EXPECT_EQ(recv(connection, &byte, 1, 0), 1);
  });
  signal(SIGPIPE, SIG_DFL);
  const auto outcome = call(daemon.port(), "/" + std::string(16 * 1024 * 1024, 'x'));
  signal(SIGPIPE, SIG_IGN);
  expect_failure_at_once(outcome);
}

TEST(ControlFault, a_request_that_is_not_read_gives_the_empty_text_after_two_seconds) {
  const int listener = bound_socket(0);
  ASSERT_EQ(listen(listener, 8), 0);
  const std::string more_than_any_buffer_holds(16 * 1024 * 1024, 'x');
  expect_failure_after_two_seconds(call(port_of(listener), "/" + more_than_any_buffer_holds));
  close(listener);
}

TEST(ControlFault, a_connection_that_is_not_accepted_gives_the_empty_text_after_two_seconds) {
  const int listener = bound_socket(0);
  ASSERT_EQ(listen(listener, 0), 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
  std::vector<int> waiting;  // they fill the queue, so the system drops later connections
  for (int i = 0; i < 4; ++i) {
    waiting.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int result = connect(waiting.back(), reinterpret_cast<const sockaddr*>(&address), size);
    EXPECT_TRUE(result == 0 || errno == EINPROGRESS);
  }
  expect_failure_after_two_seconds(call(port_of(listener)));
  for (const int descriptor : waiting) {
    close(descriptor);
  }
  close(listener);
}

TEST(ControlFault, all_steps_of_a_call_share_the_two_seconds) {
  const RawListener daemon([](int connection) {
    std::this_thread::sleep_for(milliseconds(1500));  // the client is busy writing until then
    RawListener::read_to_end(connection);             // and waits for an answer from then on
  });
  const auto outcome = call(daemon.port(), "/" + std::string(8 * 1024 * 1024, 'x'));
  expect_failure_after_two_seconds(outcome);
  EXPECT_LT(outcome.took, milliseconds(3300));
}

bool healthy_for(const Reply& reply) {
  const LoopbackServer daemon(0, [&](const std::string&) { return reply; });
  return quietly([&] { return daemon_healthy(daemon.port()); }).result;
}

TEST(DaemonHealthy, is_true_for_status_200_with_any_body_but_an_empty_one) {
  for (const Reply& reply :
       {answer(200, "ok"), answer(200, " "), Reply{chunked + chunk("not well") + last_chunk}}) {
    EXPECT_TRUE(healthy_for(reply)) << reply.bytes;
  }
  for (const Reply& reply :
       {answer(200, ""), Reply{chunked + last_chunk}, answer(201, "ok"), answer(503, "ok")}) {
    EXPECT_FALSE(healthy_for(reply)) << reply.bytes;
  }
}

TEST(DaemonHealthy, is_false_after_two_seconds_of_silence) {
  const LoopbackServer daemon(0, [](const std::string&) { return Reply{"", Ending::hang}; });
  const auto probe = quietly([&] { return daemon_healthy(daemon.port()); });
  EXPECT_FALSE(probe.result);
  EXPECT_GE(probe.took, milliseconds(1900));
  EXPECT_LT(probe.took, milliseconds(3800));
}

TEST(DaemonHealthy, is_asked_of_healthz_without_a_token) {
  const LoopbackServer daemon(0, ok);
  EXPECT_TRUE(quietly([&] { return daemon_healthy(daemon.port()); }).result);
  EXPECT_EQ(daemon.requests(),
            std::vector<std::string>{"GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:" +
                                     std::to_string(daemon.port()) + "\r\n\r\n"});
}

}  // namespace
}  // namespace velun::test
