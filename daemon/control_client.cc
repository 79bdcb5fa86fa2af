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
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/system/error_code.hpp>

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;

namespace velun {
namespace {

using Parser = http::response_parser<http::string_body>;

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

// Hands what arrives to the parser until it has the whole answer; false when none comes in time or
// what comes is none.
bool read_answer(const Call& call, Parser& parser) {
  boost::beast::flat_buffer buffer;
  error_code error;
  while (!parser.is_done()) {
    if (buffer.size() == 0 || error == http::error::need_more) {
      const asio::mutable_buffer room = buffer.prepare(65536);
      const ssize_t count =
          wait_for(call, POLLIN) ? recv(call.socket, room.data(), room.size(), 0) : -1;
      if (count == 0 && parser.got_some()) {
        parser.put_eof(error);
        return !error;
      }
      if (count <= 0) {
        return false;
      }
      buffer.commit(static_cast<std::size_t>(count));
    }
    // A step at a time, which is its way unless it is told to be eager: taken at once, a body that
    // arrives together with its header slips past the library's limit on announced lengths.
    buffer.consume(parser.put(buffer.data(), error));
    if (error && error != http::error::need_more) {
      return false;
    }
  }
  return true;
}

std::string fetch_body(int port, const std::string& request, std::chrono::milliseconds limit) {
  const Call call(limit);
  Parser parser;
  if (!send_request(call, port, request) || !read_answer(call, parser) ||
      parser.get().result() != http::status::ok) {
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
