// server PATH=FILE|PATH=+BYTES…
//
// An HTTP server on a free port of 127.0.0.1, whose number it prints. It answers each request for
// PATH from memory, with what stands in FILE or with BYTES of filling, one connection after the
// other: a server that did more for an answer would hide how its clients differ. It ends with its
// parent.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>

namespace {

struct Answer {
  std::string text;              // with what stands in a file
  std::string filling;           // over and over again behind it,
  std::size_t filling_size = 0;  // as long as there is something left of this
};

using Answers = std::map<std::string, Answer>;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "server: %s: %s\n", what, std::strerror(errno));
  std::exit(1);
}

std::string head_of(const char* status, std::size_t length) {
  return std::string("HTTP/1.1 ") + status + "\r\nContent-Length: " + std::to_string(length) +
         "\r\nConnection: close\r\n\r\n";
}

Answer read_answer(const std::string& source) {
  if (source.starts_with('+')) {
    const std::size_t length = std::stoul(source);
    return {head_of("200 OK", length), std::string(std::size_t{1} << 20, 'v'), length};
  }
  std::ifstream file(source, std::ios::binary);
  if (!file) {
    fail(source.c_str());
  }
  std::ostringstream content;
  content << file.rdbuf();
  const std::string body = content.str();
  return {head_of("200 OK", body.size()) + body, "", 0};
}

// The number of the port that the system has chosen.
int port_of(int listener) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    fail("no address");
  }
  return ntohs(address.sin_port);
}

int listen_on_loopback() {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (listener < 0 ||
      bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener, SOMAXCONN) != 0) {
    fail("cannot listen");
  }
  return listener;
}

// The path that the client asks for; the empty text when it breaks off.
std::string read_path(int connection) {
  std::string request;
  char chunk[4096];
  while (request.find("\r\n\r\n") == std::string::npos) {
    const ssize_t count = recv(connection, chunk, sizeof chunk, 0);
    if (count <= 0) {
      return "";
    }
    request.append(chunk, static_cast<std::size_t>(count));
  }
  const std::size_t begin = request.find(' ') + 1;
  return request.substr(begin, request.find(' ', begin) - begin);
}

// False when the client goes away early, which is none of our business.
bool send_all(int connection, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = send(connection, text.data(), text.size(), MSG_NOSIGNAL);
    if (count <= 0) {
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

void send_answer(int connection, const Answer& answer) {
  bool taken = send_all(connection, answer.text);
  for (std::size_t left = answer.filling_size; taken && left > 0;) {
    const std::size_t size = std::min(answer.filling.size(), left);
    taken = send_all(connection, std::string_view(answer.filling).substr(0, size));
    left -= size;
  }
}

// One that stays mute or does not take its answer is dropped after this time.
void limit_waiting(int connection) {
  const timeval limit = {.tv_sec = 10, .tv_usec = 0};
  setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

[[noreturn]] void serve(int listener, const Answers& answers) {
  const Answer unknown = {head_of("404 Not Found", 0), "", 0};
  for (;;) {
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) {
      fail("cannot accept");
    }
    limit_waiting(connection);
    const auto known = answers.find(read_path(connection));
    send_answer(connection, known == answers.end() ? unknown : known->second);
    close(connection);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  Answers answers;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const std::size_t equals = word.find('=');
    answers[word.substr(0, equals)] = read_answer(word.substr(equals + 1));
  }
  const int listener = listen_on_loopback();
  std::printf("%d\n", port_of(listener));
  std::fflush(stdout);
  serve(listener, answers);
}
