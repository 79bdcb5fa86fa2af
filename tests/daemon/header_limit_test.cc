// Compares the client with a plain reading by the library, which limits the length of headers
// differently from version to version.

#include <gtest/gtest.h>

#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>

#include "daemon/control_client.h"
#include "tests/support/loopback_server.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;

namespace velun::test {
namespace {

bool library_takes(const std::string& bytes) {
  asio::io_context io;
  tcp::acceptor acceptor(io, tcp::endpoint(asio::ip::address_v4::loopback(), 0));
  tcp::socket client(io);
  client.connect(acceptor.local_endpoint());
  tcp::socket server = acceptor.accept();
  asio::write(server, asio::buffer(bytes));
  server.close();
  boost::beast::flat_buffer buffer;
  http::response_parser<http::string_body> parser;
  boost::system::error_code error;
  http::read_header(client, buffer, parser, error);
  return !error;
}

TEST(ControlAnswer, may_have_as_long_a_header_as_the_library_takes) {
  const std::string field = "X-Pad: " + std::string(51, 'x') + "\r\n";
  std::string fields;
  while (fields.size() < 7500) {
    fields += field;
  }
  int taken = 0;
  int refused = 0;
  while (fields.size() < 9000) {
    fields += field;
    const Reply reply = answer(200, "ok", fields);
    const bool takes = library_takes(reply.bytes);
    const LoopbackServer daemon(0, [&](const std::string&) { return reply; });
    EXPECT_EQ(control_get(daemon.port(), "/v1/stats", ""), takes ? "ok" : "") << fields.size();
    ++(takes ? taken : refused);
  }
  EXPECT_GT(taken, 0);
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace velun::test
