#include "fuzz/reply_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "fuzz/target.h"

namespace velun::fuzz {
namespace {

// As long as the longest call of the client lasts.
constexpr int patience_ms = 60'000;

bool readable(int socket, int wait_ms) {
  pollfd wanted{socket, POLLIN, 0};
  return poll(&wanted, 1, wait_ms) > 0;
}

// As many bytes as are asked for, or those that came before the peer left.
std::string receive(int socket, std::size_t size) {
  std::string text(size, '\0');
  std::size_t count = 0;
  while (count < size && readable(socket, patience_ms)) {
    const ssize_t more = recv(socket, text.data() + count, size - count, 0);
    if (more <= 0) {
      break;
    }
    count += static_cast<std::size_t>(more);
  }
  return text.substr(0, count);
}

// False when the peer has left, as it may as soon as it has seen enough.
bool send_piece(int socket, const std::string& piece) {
  const ssize_t sent = send(socket, piece.data(), piece.size(), MSG_NOSIGNAL);
  return sent == static_cast<ssize_t>(piece.size());
}

void answer(int socket, const PreparedReply& reply) {
  const std::string request = receive(socket, reply.request.size());
  if (request.empty()) {
    return;  // a client in a hurry may be gone before it has asked
  }
  check_equal(request, reply.request, "the request is whole");
  const int at_once = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
  for (const std::string& piece : reply.pieces) {
    if (&piece != &reply.pieces.front()) {
      // Time for the peer to take the last piece by itself.
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    if (!send_piece(socket, piece)) {
      return;
    }
  }
  if (reply.ending == Ending::hang) {
    readable(socket, patience_ms);
  }
  if (reply.ending == Ending::reset) {
    const linger abort_on_close{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &abort_on_close, sizeof abort_on_close);
  }
}

}  // namespace

ReplyServer::ReplyServer() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), port_(0) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* general = reinterpret_cast<sockaddr*>(&address);
  check(bind(socket_, general, size) == 0 && listen(socket_, 8) == 0 &&
            getsockname(socket_, general, &size) == 0,
        "there is a free port");
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { serve(); });
}

ReplyServer::~ReplyServer() {
  stopping_ = true;
  thread_.join();
  close(socket_);
}

void ReplyServer::answer_with(PreparedReply reply) {
  const std::lock_guard lock(mutex_);
  reply_ = std::move(reply);
}

void ReplyServer::serve() {
  while (!stopping_) {
    if (!readable(socket_, 100)) {
      continue;
    }
    const int connection = accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) {
      continue;
    }
    PreparedReply reply;
    {
      const std::lock_guard lock(mutex_);
      reply = reply_;
    }
    answer(connection, reply);
    close(connection);
  }
}

}  // namespace velun::fuzz
