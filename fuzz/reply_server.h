// A server on 127.0.0.1 that gives one prepared answer after the other, in the pieces in which it
// was prepared. Every wait in it is bounded.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velun::fuzz {

/// What happens to the connection after the last piece.
enum class Ending { close, reset, hang };

/// An answer, and the request that it is for: any other one ends the process.
struct PreparedReply {
  std::vector<std::string> pieces;
  Ending ending = Ending::close;
  std::string request;
};

class ReplyServer {
 public:
  /// Listens on a free port; ends the process when there is none.
  ReplyServer();
  ~ReplyServer();
  ReplyServer(const ReplyServer&) = delete;
  ReplyServer& operator=(const ReplyServer&) = delete;

  int port() const { return port_; }
  /// The answer to every connection that is made from now on.
  void answer_with(PreparedReply reply);

 private:
  void serve();

  int socket_;
  int port_;
  std::mutex mutex_;
  PreparedReply reply_;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace velun::fuzz
