// A stand-in for the daemon, for the tests and the demo. It takes the daemon's command line, serves
// its control API and counts what really arrives on its client ports, but answers every request
// itself: it forwards nothing and protects nothing.

#include <fcntl.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <list>
#include <memory>
#include <random>
#include <sstream>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>

#include "tests/standin/answers.h"
#include "tests/standin/flags.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using Clock = std::chrono::steady_clock;

namespace {

// A client that stays mute, or does not take its answer, is dropped after this time.
constexpr std::chrono::seconds session_limit{10};

using AnswerFunction = std::function<Answer(const Question&)>;

struct Listener {
  tcp::acceptor acceptor;
  AnswerFunction answer;
};

// One connection with its one request and answer.
struct Session {
  explicit Session(tcp::socket socket) : stream(std::move(socket)) {}

  boost::beast::tcp_stream stream;
  Clock::time_point accepted = Clock::now();
  boost::beast::flat_buffer buffer;
  http::request<http::string_body> request;
  http::response<http::string_body> response;
};

Question question_of(const Session& session) {
  const auto& request = session.request;
  const auto duration =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - session.accepted);
  return {std::string(request.method_string()), std::string(request.target()),
          std::string(request[http::field::authorization]), request.body(),
          static_cast<int>(duration.count())};
}

http::response<http::string_body> response_of(const Answer& answer) {
  http::response<http::string_body> response;
  response.result(answer.status);
  response.set(http::field::content_type, answer.content_type);
  response.body() = answer.body;
  response.keep_alive(false);
  response.prepare_payload();
  return response;
}

// The connection is closed with the last reference to the session: after the answer, after an
// error, and when time is up.
void serve(tcp::socket socket, const AnswerFunction& answer) {
  const auto session = std::make_shared<Session>(std::move(socket));
  session->stream.expires_after(session_limit);
  const auto written = [session](error_code, std::size_t) {};
  const auto received = [session, &answer, written](error_code error, std::size_t) {
    if (!error) {
      session->response = response_of(answer(question_of(*session)));
      http::async_write(session->stream, session->response, written);
    }
  };
  http::async_read(session->stream, session->buffer, session->request, received);
}

// A failed accept is tried again: descriptors come back as sessions reach their time limit.
void accept_next(Listener& listener) {
  listener.acceptor.async_accept([&listener](error_code error, tcp::socket socket) {
    if (!error) {
      serve(std::move(socket), listener.answer);
    }
    if (listener.acceptor.is_open()) {
      accept_next(listener);
    }
  });
}

tcp::acceptor listen_on(asio::io_context& io, int port) {
  tcp::acceptor acceptor(io, tcp::v4());
  fcntl(acceptor.native_handle(), F_SETFD, FD_CLOEXEC);
  acceptor.set_option(tcp::acceptor::reuse_address(true));
  try {
    acceptor.bind({asio::ip::address_v4::loopback(), static_cast<unsigned short>(port)});
    acceptor.listen();
  } catch (const boost::system::system_error& error) {
    throw std::runtime_error("port " + std::to_string(port) + ": " + error.code().message());
  }
  return acceptor;
}

std::string random_token() {
  std::random_device random;
  std::ostringstream token;
  for (int i = 0; i < 4; ++i) {
    token << std::hex << std::setfill('0') << std::setw(8) << random();
  }
  return token.str();
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
  std::list<Listener> listeners;
  const auto add = [&](const std::string& flag, AnswerFunction answer) {
    listeners.push_back({listen_on(io, port_of(standin.flags, flag)), std::move(answer)});
  };
  add("--anthropic-port", [&](const Question& question) {
    return answer_client(standin.ledger, "anthropic", question);
  });
  add("--openai-port",
      [&](const Question& question) { return answer_client(standin.ledger, "openai", question); });
  add("--control-port",
      [&](const Question& question) { return answer_control(standin, question); });
  // A second start fails before this and leaves the first one's token alone. Nobody is answered
  // before the token is there.
  write_token(standin.flags.at("--state-dir"), standin.token);
  for (Listener& listener : listeners) {
    accept_next(listener);
  }
  signals.async_wait([&](error_code, int) {
    for (Listener& listener : listeners) {
      listener.acceptor.close();
    }
    io.stop();
  });
  io.run();
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  try {
    Standin standin;
    if (const std::string complaint = read_flags(words, standin.flags); !complaint.empty()) {
      std::cerr << "velun-standin: " + complaint + "\n";
      return 2;
    }
    standin.token = random_token();
    run(standin);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << std::string("velun-standin: ") + error.what() + "\n";
    return 1;
  }
}
