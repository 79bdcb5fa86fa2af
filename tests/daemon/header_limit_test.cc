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

// Asks a server for an answer, and reads its header without any setting.
bool library_takes_header(int port) {
  asio::io_context io;
  tcp::socket daemon(io);
  daemon.connect(
      tcp::endpoint(asio::ip::address_v4::loopback(), static_cast<unsigned short>(port)));
  asio::write(daemon, asio::buffer(control_request(port, "/", "")));
  boost::beast::flat_buffer buffer;
  http::response_parser<http::string_body> parser;
  boost::system::error_code error;
  http::read_header(daemon, buffer, parser, error);
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
    const LoopbackServer daemon(0, [&](const std::string&) { return reply; });
    const bool takes = library_takes_header(daemon.port());
    EXPECT_EQ(control_get(daemon.port(), "/v1/stats", ""), takes ? "ok" : "") << fields.size();
    ++(takes ? taken : refused);
  }
  EXPECT_GT(taken, 0);
  EXPECT_GT(refused, 0);
}

}  // namespace
}  // namespace velun::test
