// An HTTP server on 127.0.0.1 that records every request byte for byte. The test chooses the bytes
// of each answer, well-formed or not, and their pace.
#pragma once

#include <openssl/types.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velun::test {

/// The end of the connection, after the bytes of a reply.
enum class Ending { close, hang, reset };

/// The bytes of an answer. A pause above zero comes before each byte.
struct Reply {
  std::string bytes;
  Ending ending = Ending::close;
  std::chrono::milliseconds pause{0};
};

/// A well-formed answer: status line, Content-Length, the extra header lines ("Name: value\r\n"
/// each) and the body.
Reply answer(int status, const std::string& body, const std::string& headers = "");

/// The path of a recorded request.
std::string path_of(const std::string& request);

class LoopbackServer {
 public:
  using Handler = std::function<Reply(const std::string& request)>;

  /// Listens on `port` (0: a free one) and answers every request through `handler`, one connection
  /// after the other. A certificate (PEM file with its key) makes it a TLS server.
  explicit LoopbackServer(int port, Handler handler, const std::string& certificate = "");
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  int port() const { return port_; }
  /// Every complete request so far, in order.
  std::vector<std::string> requests() const;
  /// The paths of those requests.
  std::vector<std::string> paths() const;

 private:
  struct Connection;

  void serve();
  void answer_on(const Connection& connection);
  std::string receive(const Connection& connection) const;
  bool send(const Connection& connection, const Reply& reply) const;

  Handler handler_;
  int socket_;
  int port_;
  SSL_CTX* tls_ = nullptr;
  std::atomic<bool> stopping_ = false;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

}  // namespace velun::test
