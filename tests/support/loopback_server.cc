#include "tests/support/loopback_server.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "tests/support/ports.h"
#include "tests/support/raw_listener.h"

namespace velun::test {
namespace {

// How often a blocked step checks whether the server is stopping.
constexpr std::chrono::milliseconds tick{20};

SSL_CTX* tls_context(const std::string& certificate) {
  if (certificate.empty()) {
    return nullptr;
  }
  SSL_CTX* context = SSL_CTX_new(TLS_server_method());
  if (SSL_CTX_use_certificate_chain_file(context, certificate.c_str()) != 1 ||
      SSL_CTX_use_PrivateKey_file(context, certificate.c_str(), SSL_FILETYPE_PEM) != 1) {
    ERR_print_errors_fp(stderr);
    std::abort();
  }
  return context;
}

}  // namespace

// A socket with or without TLS on top, closed with the scope.
struct LoopbackServer::Connection {
  int socket;
  SSL* tls;

  Connection(int descriptor, SSL_CTX* context)
      : socket(descriptor), tls(context != nullptr ? SSL_new(context) : nullptr) {
    // Limits each read and write, so no peer blocks the server for good.
    const timeval limit{10, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (tls != nullptr) {
      SSL_set_fd(tls, socket);
      SSL_accept(tls);
    }
  }
  ~Connection() {
    if (tls != nullptr) {
      SSL_shutdown(tls);
      SSL_free(tls);
    }
    close(socket);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // Only for a readable socket. A TLS record is always read whole.
  long read(char* buffer, std::size_t size) const {
    return tls != nullptr ? SSL_read(tls, buffer, static_cast<int>(size))
                          : recv(socket, buffer, size, 0);
  }
  bool write(const char* bytes, std::size_t size) const {
    return tls != nullptr ? SSL_write(tls, bytes, static_cast<int>(size)) > 0
                          : ::send(socket, bytes, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
  }
};

Reply answer(int status, const std::string& body, const std::string& headers) {
  return {"HTTP/1.1 " + std::to_string(status) + " Answer\r\nContent-Length: " +
          std::to_string(body.size()) + "\r\n" + headers + "\r\n" + body};
}

std::string path_of(const std::string& request) {
  const std::size_t begin = request.find(' ') + 1;
  return request.substr(begin, request.find(' ', begin) - begin);
}

LoopbackServer::LoopbackServer(int port, Handler handler, const std::string& certificate)
    : handler_(std::move(handler)),
      socket_(bound_socket(port)),
      port_(port_of(socket_)),
      tls_(tls_context(certificate)) {
  if (listen(socket_, 64) != 0) {
    std::perror("listen");
    std::abort();
  }
  thread_ = std::thread([this] { serve(); });
}

LoopbackServer::~LoopbackServer() {
  stopping_ = true;
  thread_.join();
  close(socket_);
  SSL_CTX_free(tls_);
}

std::vector<std::string> LoopbackServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<std::string> LoopbackServer::paths() const {
  std::vector<std::string> result;
  for (const std::string& request : requests()) {
    result.push_back(path_of(request));
  }
  return result;
}

void LoopbackServer::serve() {
  while (!stopping_) {
    const int socket =
        has_input(socket_, tick) ? accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC) : -1;
    if (socket >= 0) {
      answer_on(Connection(socket, tls_));
    }
  }
}

void LoopbackServer::answer_on(const Connection& connection) {
  const std::string request = receive(connection);
  if (request.empty()) {
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
  }
  const Reply reply = handler_(request);
  if (!send(connection, reply)) {
    return;
  }
  if (reply.ending == Ending::reset) {
    const linger abort_on_close{1, 0};
    setsockopt(connection.socket, SOL_SOCKET, SO_LINGER, &abort_on_close, sizeof abort_on_close);
  }
  // A hanging connection ends when the peer closes it or the server stops.
  char byte = 0;
  while (reply.ending == Ending::hang && !stopping_ &&
         (!has_input(connection.socket, tick) || connection.read(&byte, 1) > 0)) {
  }
}

// The bytes up to the empty line and those that came with them; empty if the peer closes first.
std::string LoopbackServer::receive(const Connection& connection) const {
  std::string request;
  char buffer[65536];
  while (!stopping_ && request.find("\r\n\r\n") == std::string::npos) {
    if (has_input(connection.socket, tick)) {
      const long count = connection.read(buffer, sizeof buffer);
      if (count <= 0) {
        return "";
      }
      request.append(buffer, static_cast<std::size_t>(count));
    }
  }
  return request;
}

bool LoopbackServer::send(const Connection& connection, const Reply& reply) const {
  if (reply.pause == std::chrono::milliseconds(0)) {
    return reply.bytes.empty() || connection.write(reply.bytes.data(), reply.bytes.size());
  }
  for (const char& byte : reply.bytes) {
    std::this_thread::sleep_for(reply.pause);
    if (stopping_ || !connection.write(&byte, 1)) {
      return false;
    }
  }
  return true;
}

}  // namespace velun::test
