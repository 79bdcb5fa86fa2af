#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "daemon/control_client.h"
#include "tests/support/loopback_server.h"
#include "tests/support/quiet_call.h"

namespace velun::test {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;

// What the library's parser takes for a body unless it is told otherwise.
constexpr std::size_t body_limit = 8 * 1024 * 1024;

// The client's result for an answer, reached in silence.
Timed<std::string> call_for(const Reply& reply) {
  const LoopbackServer daemon(0, [&](const std::string&) { return reply; });
  const auto call = quietly([&] { return control_get(daemon.port(), "/v1/stats", "token"); });
  EXPECT_EQ(daemon.requests().size(), 1U);
  return call;
}

// The same without waiting for anything.
std::string result_for(const Reply& reply) {
  const auto call = call_for(reply);
  EXPECT_LT(call.took, milliseconds(1900));
  return call.result;
}

bool healthy_for(const Reply& reply) {
  const LoopbackServer daemon(0, [&](const std::string&) { return reply; });
  return quietly([&] { return daemon_healthy(daemon.port()); }).result;
}

std::string chunk(const std::string& data) {
  char size[32];
  std::snprintf(size, sizeof size, "%zx\r\n", data.size());
  return size + data + "\r\n";
}

Reply chunked(const std::string& chunks) {
  return {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunks + "0\r\n\r\n"};
}

// A body that would show any byte lost, doubled or moved.
std::string numbered_body(std::size_t size) {
  const std::string dots(100, '.');
  std::string body;
  for (int number = 0; body.size() < size; ++number) {
    body += std::to_string(number) + dots;
  }
  body.resize(size);
  return body;
}

// Megabytes in a failure message help nobody.
void expect_body(const Reply& reply, const std::string& expected) {
  const std::string result = call_for(reply).result;
  EXPECT_EQ(result.size(), expected.size());
  EXPECT_TRUE(result == expected);
}

TEST(ControlAnswer, with_status_200_gives_its_body) {
  EXPECT_EQ(result_for(answer(200, "ok")), "ok");
}

TEST(ControlAnswer, with_status_200_and_no_body_gives_the_empty_text) {
  EXPECT_EQ(result_for(answer(200, "")), "");
}

TEST(ControlAnswer, with_any_other_status_gives_the_empty_text) {
  for (const int status : {201, 202, 203, 206, 299, 300, 301, 302, 307, 400, 401, 403, 404, 418,
                           429, 500, 502, 503, 599}) {
    EXPECT_EQ(result_for(answer(status, R"({"error": "body"})")), "") << status;
  }
  EXPECT_EQ(result_for({"HTTP/1.1 204 No Content\r\n\r\n"}), "");
  EXPECT_EQ(result_for({"HTTP/1.1 304 Not Modified\r\n\r\n"}), "");
  EXPECT_EQ(result_for(answer(301, "moved", "Location: /v1/other\r\n")), "");
  EXPECT_EQ(result_for(answer(401, "token?", "WWW-Authenticate: Bearer\r\n")), "");
}

TEST(ControlAnswer, that_only_says_to_continue_counts_as_the_answer) {
  EXPECT_EQ(result_for({"HTTP/1.1 100 Continue\r\n\r\n" + answer(200, "ok").bytes}), "");
}

TEST(ControlAnswer, is_complete_without_the_end_of_the_connection) {
  EXPECT_EQ(result_for({answer(200, "ok").bytes, Ending::hang}), "ok");
  EXPECT_EQ(result_for({chunked(chunk("ok")).bytes, Ending::hang}), "ok");
}

TEST(ControlAnswer, in_chunks_is_put_together) {
  EXPECT_EQ(result_for(chunked(chunk("{\"a\":") + chunk("1") + chunk("}"))), "{\"a\":1}");
  EXPECT_EQ(result_for(chunked("")), "");
}

TEST(ControlAnswer, in_chunks_may_have_extensions_and_trailers) {
  EXPECT_EQ(result_for({"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                        "2;name=value\r\nok\r\n0\r\nX-After: 1\r\n\r\n"}),
            "ok");
}

TEST(ControlAnswer, without_a_length_lasts_until_the_connection_ends) {
  EXPECT_EQ(result_for({"HTTP/1.1 200 OK\r\n\r\nuntil the end"}), "until the end");
}

TEST(ControlAnswer, in_the_older_protocol_version_is_read_alike) {
  EXPECT_EQ(result_for({"HTTP/1.0 200 OK\r\n\r\nuntil the end"}), "until the end");
  EXPECT_EQ(result_for({"HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok"}), "ok");
}

TEST(ControlAnswer, ends_where_its_length_says) {
  EXPECT_EQ(result_for({answer(200, "ok").bytes + "more"}), "ok");
}

TEST(ControlAnswer, may_hold_any_bytes) {
  const std::string body = "\0\r\n\r\n\x01\xff\xc3\xa9 end\n"s;
  EXPECT_EQ(result_for(answer(200, body)), body);
}

TEST(ControlAnswer, that_comes_byte_by_byte_is_read_whole) {
  Reply reply = answer(200, "slow but steady");
  reply.pause = milliseconds(2);
  EXPECT_EQ(result_for(reply), "slow but steady");
}

TEST(ControlAnswer, in_chunks_may_come_byte_by_byte) {
  const auto slowly = [](Reply reply) {
    reply.pause = milliseconds(2);
    return reply;
  };
  EXPECT_EQ(result_for(slowly(chunked(chunk("slow") + chunk(" but steady")))), "slow but steady");
  EXPECT_EQ(result_for(slowly(chunked(""))), "");
}

TEST(ControlAnswer, may_announce_exactly_eight_megabytes) {
  const std::string body = numbered_body(body_limit);
  expect_body(answer(200, body), body);
}

TEST(ControlAnswer, may_have_exactly_eight_megabytes_in_chunks) {
  const std::string half = numbered_body(body_limit / 2);
  expect_body(chunked(chunk(half) + chunk(half)), half + half);
}

TEST(ControlAnswer, may_have_exactly_eight_megabytes_until_the_end) {
  const std::string body = numbered_body(body_limit);
  expect_body({"HTTP/1.1 200 OK\r\n\r\n" + body}, body);
}

TEST(ControlAnswer, that_announces_one_byte_more_than_eight_megabytes_gives_the_empty_text) {
  expect_body(answer(200, numbered_body(body_limit + 1)), "");
}

TEST(ControlAnswer, that_announces_more_than_any_memory_holds_gives_the_empty_text) {
  for (const std::string length :
       {"1099511627776", "9223372036854775807", "18446744073709551615", "18446744073709551616"}) {
    EXPECT_EQ(result_for({"HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\nok"}), "");
  }
}

TEST(ControlAnswer, with_one_byte_more_than_eight_megabytes_in_chunks_gives_the_empty_text) {
  const std::string half = numbered_body(body_limit / 2);
  expect_body(chunked(chunk(half) + chunk(half) + chunk("x")), "");
}

TEST(ControlAnswer, with_a_chunk_of_more_than_eight_megabytes_gives_the_empty_text) {
  expect_body(chunked(chunk(numbered_body(body_limit + 1))), "");
}

TEST(ControlAnswer, with_one_byte_more_than_eight_megabytes_until_the_end_gives_the_empty_text) {
  expect_body({"HTTP/1.1 200 OK\r\n\r\n" + numbered_body(body_limit + 1)}, "");
}

TEST(ControlAnswer, may_have_a_long_header) {
  EXPECT_EQ(result_for(answer(200, "ok", "X-Pad: " + std::string(8000, 'x') + "\r\n")), "ok");
}

TEST(ControlAnswer, with_a_header_over_the_limit_gives_the_empty_text) {
  for (const std::size_t size : {8192U, 100'000U}) {
    EXPECT_EQ(result_for(answer(200, "ok", "X-Pad: " + std::string(size, 'x') + "\r\n")), "");
  }
}

TEST(DaemonHealthy, is_a_status_of_200_with_any_body_but_an_empty_one) {
  for (const Reply& reply : {answer(200, "ok"), answer(200, " "), chunked(chunk("not well"))}) {
    EXPECT_TRUE(healthy_for(reply)) << reply.bytes;
  }
  for (const Reply& reply : {answer(200, ""), chunked(""), answer(201, "ok"), answer(503, "ok")}) {
    EXPECT_FALSE(healthy_for(reply)) << reply.bytes;
  }
}

}  // namespace
}  // namespace velun::test
