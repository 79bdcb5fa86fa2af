#include "daemon/control_client.h"

#include <exception>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/system/error_code.hpp>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;

namespace velun {
namespace {

// Starts one asynchronous step and runs it to its end; false when it fails or time is up.
template <typename Start>
bool run_step(asio::io_context& io, const Start& start) {
  boost::system::error_code result;
  start([&result](const boost::system::error_code& error, auto&&...) { result = error; });
  io.restart();
  io.run();
  return !result;
}

std::string fetch_body(int port, const std::string& request, std::chrono::milliseconds limit) {
  const asio::ip::tcp::endpoint daemon(asio::ip::make_address_v4("127.0.0.1"),
                                       static_cast<unsigned short>(port));
  asio::io_context io;
  beast::tcp_stream stream(io);
  beast::flat_buffer buffer;
  http::response_parser<http::string_body> parser;
  stream.expires_after(limit);  // for all steps together
  if (!run_step(io, [&](auto done) { stream.async_connect(daemon, done); }) ||
      !run_step(io, [&](auto done) { asio::async_write(stream, asio::buffer(request), done); }) ||
      // Reads the header by itself. Otherwise the library would not check the announced length of a
      // body that arrives with the header.
      !run_step(io, [&](auto done) { http::async_read_header(stream, buffer, parser, done); })) {
    return "";
  }
  // A larger buffer needs fewer reads. It is reserved after the header, because the library's limit
  // on headers depends on the buffer's capacity.
  buffer.reserve(65536);
  if (!run_step(io, [&](auto done) { http::async_read(stream, buffer, parser, done); }) ||
      parser.get().result() != http::status::ok) {
    return "";
  }
  return std::move(parser.get().body());
}

}  // namespace

// Built by hand: the library would trim the token's blanks.
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
    // Out of memory or descriptors: reported like a daemon that does not answer.
    return "";
  }
}

bool daemon_healthy(int port, std::chrono::milliseconds limit) {
  return !control_get(port, "/healthz", "", limit).empty();
}

}  // namespace velun
