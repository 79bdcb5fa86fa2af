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

// The library's default limit of a body.
constexpr std::size_t body_limit = 8 * 1024 * 1024;

// The client's result for an answer, reached in silence.
Timed<std::string> call_for(const Reply& reply) {
  const LoopbackServer daemon(0, [&](const std::string&) { return reply; });
  const auto call = quietly([&] { return control_get(daemon.port(), "/v1/stats", "token"); });
  EXPECT_EQ(daemon.requests().size(), 1U);
  return call;
}

// The same, before the time limit.
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

// A failure does not print the megabytes.
void expect_body(const Reply& reply, const std::string& expected) {
  const std::string result = call_for(reply).result;
  EXPECT_EQ(result.size(), expected.size());
  EXPECT_TRUE(result == expected);
}

struct Row {
  Reply reply;
  std::string body;
};

void expect_results(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(result_for(row.reply), row.body) << row.reply.bytes;
  }
}

TEST(ControlAnswer, with_status_200_gives_its_body) {
  const std::string any_bytes = "\0\r\n\r\n\x01\xff\xc3\xa9 end\n"s;
  expect_results({{answer(200, "ok"), "ok"},
                  {answer(200, ""), ""},
                  {answer(200, any_bytes), any_bytes},
                  {{answer(200, "ok").bytes + "more"}, "ok"},
                  {{"HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nok"}, "ok"}});
}

TEST(ControlAnswer, with_any_other_status_gives_the_empty_text) {
  for (const int status : {201, 202, 203, 206, 299, 300, 301, 302, 307, 400, 401, 403, 404, 418,
                           429, 500, 502, 503, 599}) {
    EXPECT_EQ(result_for(answer(status, R"({"error": "body"})")), "") << status;
  }
  expect_results({{{"HTTP/1.1 204 No Content\r\n\r\n"}, ""},
                  {{"HTTP/1.1 304 Not Modified\r\n\r\n"}, ""},
                  {answer(301, "moved", "Location: /v1/other\r\n"), ""},
                  {answer(401, "token?", "WWW-Authenticate: Bearer\r\n"), ""},
                  {{"HTTP/1.1 100 Continue\r\n\r\n" + answer(200, "ok").bytes}, ""}});
}

TEST(ControlAnswer, with_a_length_or_in_chunks_needs_no_end_of_the_connection) {
  expect_results({{{answer(200, "ok").bytes, Ending::hang}, "ok"},
                  {{chunked(chunk("ok")).bytes, Ending::hang}, "ok"}});
}

TEST(ControlAnswer, without_a_length_lasts_until_the_connection_ends) {
  expect_results({{{"HTTP/1.1 200 OK\r\n\r\nuntil the end"}, "until the end"},
                  {{"HTTP/1.0 200 OK\r\n\r\nuntil the end"}, "until the end"}});
}

TEST(ControlAnswer, in_chunks_is_put_together) {
  expect_results({{chunked(chunk("{\"a\":") + chunk("1") + chunk("}")), "{\"a\":1}"},
                  {chunked(""), ""},
                  {{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                    "2;name=value\r\nok\r\n0\r\nX-After: 1\r\n\r\n"},
                   "ok"}});
}

TEST(ControlAnswer, may_come_byte_by_byte) {
  for (Row row :
       std::vector<Row>{{answer(200, "slow but steady"), "slow but steady"},
                        {chunked(chunk("slow") + chunk(" but steady")), "slow but steady"},
                        {chunked(""), ""}}) {
    row.reply.pause = milliseconds(2);
    expect_results({row});
  }
}

TEST(ControlAnswer, may_have_eight_megabytes_and_not_one_byte_more) {
  const std::string closed = "HTTP/1.1 200 OK\r\n\r\n";
  for (const std::size_t size : {body_limit, body_limit + 1}) {
    const std::string body = numbered_body(size);
    const std::string expected = size == body_limit ? body : "";
    expect_body(answer(200, body), expected);
    expect_body({closed + body}, expected);
    expect_body(chunked(chunk(body)), expected);
    expect_body(chunked(chunk(body.substr(0, 4'000'000)) + chunk(body.substr(4'000'000))),
                expected);
  }
}

TEST(ControlAnswer, that_announces_more_than_any_memory_holds_gives_the_empty_text) {
  for (const std::string length :
       {"1099511627776", "9223372036854775807", "18446744073709551615", "18446744073709551616"}) {
    EXPECT_EQ(result_for({"HTTP/1.1 200 OK\r\nContent-Length: " + length + "\r\n\r\nok"}), "");
  }
}

TEST(ControlAnswer, may_have_a_header_up_to_the_limit) {
  for (const std::size_t size : {8000U, 8192U, 100'000U}) {
    EXPECT_EQ(result_for(answer(200, "ok", "X-Pad: " + std::string(size, 'x') + "\r\n")),
              size == 8000U ? "ok" : "");
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
