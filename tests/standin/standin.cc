// A stand-in for the daemon, for the tests and the demo. It takes the daemon's command line, serves
// its control API and counts what really arrives on its client ports, but answers every request
// itself: it forwards nothing and protects nothing.

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <iostream>
#include <list>
#include <memory>
#include <system_error>
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
  std::array<unsigned char, 16> bytes{};
  if (getentropy(bytes.data(), bytes.size()) != 0) {
    throw std::system_error(errno, std::generic_category(), "no random bytes");
  }
  std::string token;
  for (const unsigned byte : bytes) {
    token += "0123456789abcdef"[byte / 16];
    token += "0123456789abcdef"[byte % 16];
  }
  return token;
}

// A file from an earlier run is removed first: it would keep its mode and its readers.
void write_token(const std::filesystem::path& directory, const std::string& token) {
  std::filesystem::create_directories(directory);
  const std::filesystem::path path = directory / "control.token";
  unlink(path.c_str());
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
  const std::string line = token + "\n";
  // The mode is set once more because a umask may have taken the owner's own bits away.
  const bool written = file >= 0 && fchmod(file, S_IRUSR | S_IWUSR) == 0 &&
                       write(file, line.data(), line.size()) == static_cast<ssize_t>(line.size());
  const std::system_error failure(errno, std::generic_category(), path.string());
  if (file >= 0) {
    close(file);
  }
  if (!written) {
    throw failure;
  }
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
  // Once the ports are taken, so that a second start leaves the first one's token alone, and before
  // anyone is answered, so that whoever gets an answer finds the token.
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
  if (!standin.flags.contains("--quiet")) {
    std::cout << "velun-standin: anthropic on port " + standin.flags["--anthropic-port"] +
                     ", openai on port " + standin.flags["--openai-port"] + ", control on port " +
                     standin.flags["--control-port"] + "\n"
              << std::flush;
  }
  io.run();
}

constexpr const char* help_text =
    R"(velun-standin takes the place of the daemon in the tests and the demo of velun.
It accepts the daemon's command line, serves its control API and answers every
request on its client ports with the same canned text. It forwards nothing and
protects nothing.
)";

}  // namespace

int main(int argc, char* argv[]) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words == std::vector<std::string>{"--help"}) {
    std::cout << help_text;
    return 0;
  }
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
