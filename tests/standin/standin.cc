#include "tests/standin/standin.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <random>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using Clock = std::chrono::steady_clock;

namespace {

// A client that sends nothing, or does not read its answer, is dropped after this time.
constexpr std::chrono::seconds session_limit{10};

using AnswerFunction = std::function<Response(const Request& request, int duration_ms)>;

struct Listener {
  tcp::acceptor acceptor;
  AnswerFunction answer;
};

// One connection with its one request and answer. It is closed with the last reference to it: after
// the answer, after an error, or at the time limit.
struct Session {
  explicit Session(tcp::socket socket) : stream(std::move(socket)) {}

  boost::beast::tcp_stream stream;
  Clock::time_point accepted = Clock::now();
  boost::beast::flat_buffer buffer;
  Request request;
  Response response;
};

void serve(tcp::socket socket, const AnswerFunction& answer) {
  const auto session = std::make_shared<Session>(std::move(socket));
  session->stream.expires_after(session_limit);
  const auto received = [session, &answer](error_code error, std::size_t) {
    if (!error) {
      const auto duration = (Clock::now() - session->accepted) / std::chrono::milliseconds(1);
      session->response = answer(session->request, static_cast<int>(duration));
      http::async_write(session->stream, session->response, [session](error_code, std::size_t) {});
    }
  };
  http::async_read(session->stream, session->buffer, session->request, received);
}

// Tries again after a failed accept: sessions free their descriptors at their time limit.
void accept_next(Listener& listener) {
  listener.acceptor.async_accept([&listener](error_code error, tcp::socket socket) {
    if (!error) {
      serve(std::move(socket), listener.answer);
    }
    accept_next(listener);
  });
}

Listener listen_on(asio::io_context& io, const std::string& port, AnswerFunction answer) {
  tcp::acceptor acceptor(io, tcp::v4());
  fcntl(acceptor.native_handle(), F_SETFD, FD_CLOEXEC);
  acceptor.set_option(tcp::acceptor::reuse_address(true));
  acceptor.bind({asio::ip::address_v4::loopback(), static_cast<unsigned short>(std::stoi(port))});
  acceptor.listen();
  return {std::move(acceptor), std::move(answer)};
}

std::string random_token() {
  std::random_device random;
  std::string token;
  while (token.size() < 32) {
    token += "0123456789abcdef"[random() % 16];
  }
  return token;
}

void write_token(const std::filesystem::path& directory, const std::string& token) {
  std::filesystem::create_directories(directory);
  const std::filesystem::path path = directory / "control.token";
  // A file from an earlier run would keep its mode.
  std::filesystem::remove(path);
  umask(S_IRWXG | S_IRWXO);
  std::ofstream file;
  file.exceptions(std::ios::failbit | std::ios::badbit);
  file.open(path);
  file << token << std::endl;
}

// Serves until SIGTERM or SIGINT.
void run(Standin& standin) {
  asio::io_context io;
  asio::signal_set signals(io, SIGTERM, SIGINT);
  const auto client = [&](const std::string& app) {
    return listen_on(io, standin.flags.at("--" + app + "-port"),
                     [&standin, app](const Request& request, int duration_ms) {
                       return answer_client(standin, app, request, duration_ms);
                     });
  };
  Listener listeners[] = {
      client("anthropic"), client("openai"),
      listen_on(io, standin.flags.at("--control-port"), [&standin](const Request& request, int) {
        return answer_control(standin, request);
      })};
  // A second stand-in fails before this, so the token of the first stays. No request is answered
  // before the token is written.
  standin.token = random_token();
  write_token(standin.flags.at("--state-dir"), standin.token);
  for (Listener& listener : listeners) {
    accept_next(listener);
  }
  signals.async_wait([&io](error_code, int) { io.stop(); });
  io.run();
}

}  // namespace

int main(int argc, char* argv[]) {
  try {
    Standin standin;
    const std::string complaint = read_flags({argv + 1, argv + argc}, standin.flags);
    if (!complaint.empty()) {
      std::cerr << "velun-standin: " + complaint + "\n";
      return 2;
    }
    run(standin);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << std::string("velun-standin: ") + error.what() + "\n";
    return 1;
  }
}
