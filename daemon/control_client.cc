#include "daemon/control_client.h"

#include <chrono>
#include <exception>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/system/error_code.hpp>

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace velun {
namespace {

// One call's socket and the moment by which all of its steps must be done.
struct Call {
  asio::io_context io;
  asio::ip::tcp::socket socket{io};
  std::chrono::steady_clock::time_point deadline;
};

// Starts one asynchronous step and runs it to its end; false when it fails or time is up. In the
// latter case the step stays pending while its result here goes out of scope. That does no harm: no
// later step runs the context again, and destroying it drops the handler without calling it.
template <typename Start>
bool run_step(Call& call, const Start& start) {
  boost::system::error_code result = asio::error::timed_out;
  start([&result](const boost::system::error_code& error, auto&&...) { result = error; });
  call.io.restart();
  call.io.run_until(call.deadline);
  return !result;
}

std::string fetch_body(int port, const std::string& request, std::chrono::milliseconds limit) {
  boost::beast::flat_buffer buffer;
  // The library reads as much at once as there is room for, and 512 bytes when there is none.
  buffer.reserve(65536);
  http::response_parser<http::string_body> parser;
  Call call;
  call.deadline = std::chrono::steady_clock::now() + limit;
  const asio::ip::tcp::endpoint daemon(asio::ip::make_address_v4("127.0.0.1"),
                                       static_cast<unsigned short>(port));
  const bool answered =
      run_step(call, [&](auto done) { call.socket.async_connect(daemon, done); }) &&
      run_step(call,
               [&](auto done) { asio::async_write(call.socket, asio::buffer(request), done); }) &&
      // In two steps: read at once, a body that arrives together with its header slips past the
      // library's limit on announced lengths.
      run_step(call,
               [&](auto done) { http::async_read_header(call.socket, buffer, parser, done); }) &&
      run_step(call, [&](auto done) { http::async_read(call.socket, buffer, parser, done); });
  if (!answered || parser.get().result() != http::status::ok) {
    return "";
  }
  return std::move(parser.get().body());
}

}  // namespace

// Put together here, not by the library, which would trim the token's blanks.
std::string control_request(int port, const std::string& path, const std::string& token) {
  std::string request =
      "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) + "\r\n";
  if (!token.empty()) {
    request += "Authorization: Bearer " + token + "\r\n";
  }
  return request + "\r\n";
}

std::string control_get(int port, const std::string& path, const std::string& token,
                        std::chrono::milliseconds limit) {
  try {
    return fetch_body(port, control_request(port, path, token), limit);
  } catch (const std::exception&) {
    // Out of descriptors or memory: for the caller that is one more daemon that does not answer.
    return "";
  }
}

bool daemon_healthy(int port, std::chrono::milliseconds limit) {
  return !control_get(port, "/healthz", "", limit).empty();
}

}  // namespace velun
