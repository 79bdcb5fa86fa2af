#include "daemon/control_client.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/system/error_code.hpp>

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;

namespace velun {
namespace {

// One call's socket, which never blocks, and the moment by which all of its steps must be done.
struct Call {
  int socket = -1;
  std::chrono::steady_clock::time_point deadline;

  explicit Call(std::chrono::milliseconds limit)
      : socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)),
        deadline(std::chrono::steady_clock::now() + limit) {}
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
  ~Call() { ::close(socket); }

  // The library reads through these; it never calls the second.
  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers, error_code& error);
  template <typename Buffers>
  std::size_t read_some(const Buffers& buffers);
};

// False when time is up, or when the system cannot wait.
bool wait_for(const Call& call, short event) {
  pollfd waited = {.fd = call.socket, .events = event, .revents = 0};
  int ready = 0;
  do {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(
        call.deadline - std::chrono::steady_clock::now());
    ready = left.count() > 0 ? poll(&waited, 1, static_cast<int>(left.count())) : 0;
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

template <typename Buffers>
std::size_t Call::read_some(const Buffers& buffers, error_code& error) {
  const asio::mutable_buffer room = *asio::buffer_sequence_begin(buffers);
  const ssize_t count = wait_for(*this, POLLIN) ? recv(socket, room.data(), room.size(), 0) : -1;
  if (count > 0) {
    return static_cast<std::size_t>(count);
  }
  error = count == 0 ? error_code(asio::error::eof) : error_code(asio::error::timed_out);
  return 0;
}

// A connection to this machine is there at once, unless the daemon has too many waiting: what
// connect has to say of it, the sending says as well.
bool send_request(const Call& call, int port, std::string_view request) {
  sockaddr_in daemon{};
  daemon.sin_family = AF_INET;
  daemon.sin_port = htons(static_cast<std::uint16_t>(port));
  daemon.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  (void)connect(call.socket, reinterpret_cast<const sockaddr*>(&daemon), sizeof daemon);
  while (!request.empty()) {
    const ssize_t count = send(call.socket, request.data(), request.size(), MSG_NOSIGNAL);
    if (count >= 0) {
      request.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EAGAIN || !wait_for(call, POLLOUT)) {
      return false;
    }
  }
  return true;
}

std::string fetch_body(int port, const std::string& request, std::chrono::milliseconds limit) {
  Call call(limit);
  if (!send_request(call, port, request)) {
    return "";
  }
  boost::beast::flat_buffer buffer;
  // The library reads as much at once as there is room for, and 512 bytes when there is none.
  buffer.reserve(65536);
  http::response_parser<http::string_body> parser;
  error_code error;
  // In two steps: read at once, a body that arrives together with its header slips past the
  // library's limit on announced lengths.
  http::read_header(call, buffer, parser, error);
  if (!error) {
    http::read(call, buffer, parser, error);
  }
  if (error || parser.get().result() != http::status::ok) {
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
    // Out of memory: for the caller that is one more daemon that does not answer.
    return "";
  }
}

bool daemon_healthy(int port, std::chrono::milliseconds limit) {
  return !control_get(port, "/healthz", "", limit).empty();
}

}  // namespace velun
