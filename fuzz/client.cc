// Any bytes as the daemon's answer, sent in any pieces: the client never throws, and its result
// does not depend on the pieces.
//
// The first byte of an input chooses how the connection ends, and whether the text of the input is
// a whole answer or only the body of one. The second byte is the number of cuts, the next bytes are
// the sizes of the pieces, and the text follows.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "daemon/control_client.h"
#include "fuzz/target.h"
#include "tests/support/raw_listener.h"

namespace velun::fuzz {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t most_cuts = 8;

// How the connection ends after the last piece.
enum class Ending { close, reset, hang };

struct Input {
  int form = 0;
  Ending ending = Ending::close;
  std::vector<std::size_t> sizes;  // of all pieces but the last
  std::string bytes;
};

Input input_of(const std::string& text) {
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  Input input;
  input.form = byte(0) % 4;
  // Hangs are rare, because each one takes time.
  input.ending = byte(0) == 0xff ? Ending::hang : byte(0) >= 0xf0 ? Ending::reset : Ending::close;
  std::size_t next = 2;
  for (std::size_t cuts = byte(1) % (most_cuts + 1); cuts > 0 && next < text.size(); --cuts) {
    input.sizes.push_back(std::size_t{1} + byte(next++));
  }
  input.bytes = text.substr(next);
  return input;
}

// Cuts `bytes` into pieces of the given sizes; the last piece is the rest.
std::vector<std::string> cut(const std::string& bytes, const std::vector<std::size_t>& sizes) {
  std::vector<std::string> pieces;
  std::size_t begin = 0;
  for (const std::size_t size : sizes) {
    if (begin + size < bytes.size()) {
      pieces.push_back(bytes.substr(begin, size));
      begin += size;
    }
  }
  pieces.push_back(bytes.substr(begin));
  return pieces;
}

std::string in_chunks(const std::vector<std::string>& pieces) {
  std::ostringstream text;
  for (const std::string& piece : pieces) {
    if (!piece.empty()) {
      text << std::hex << piece.size() << "\r\n" << piece << "\r\n";
    }
  }
  return text.str() + "0\r\n\r\n";
}

// The text of the input as an answer, or as a body whose length is given in one of three ways.
std::string answer_of(const Input& input) {
  const std::string heads[] = {
      "", "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(input.bytes.size()) + "\r\n\r\n",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n", "HTTP/1.1 200 OK\r\n\r\n"};
  return heads[input.form] +
         (input.form == 2 ? in_chunks(cut(input.bytes, input.sizes)) : input.bytes);
}

bool says_200(const std::string& answer) {
  return answer.starts_with("HTTP/1.0 200") || answer.starts_with("HTTP/1.1 200");
}

constexpr const char* path = "/v1/stats";

// Reads the request and sends the answer. The request may be cut short if the client's time is up.
void serve(int connection, const std::vector<std::string>& pieces, Ending ending) {
  const std::string expected = control_request(test::port_of(connection), path, "token");
  std::string request(expected.size(), '\0');
  const ssize_t count = recv(connection, request.data(), request.size(), MSG_WAITALL);
  request.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  check(expected.starts_with(request), "the request is the expected one");
  const int at_once = 1;
  setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
  for (const std::string& piece : pieces) {
    send(connection, piece.data(), piece.size(), MSG_NOSIGNAL);
    // Gives the client time to read this piece alone.
    std::this_thread::sleep_for(std::chrono::microseconds(pieces.size() > 1 ? 20 : 0));
  }
  if (ending == Ending::hang) {
    test::has_input(connection, milliseconds(10'000));
  }
  if (ending == Ending::reset) {
    const linger abort_on_close{1, 0};
    setsockopt(connection, SOL_SOCKET, SO_LINGER, &abort_on_close, sizeof abort_on_close);
  }
}

// Returns the client's result for an answer in these pieces.
std::string call(const std::vector<std::string>& pieces, Ending ending) {
  const test::RawListener daemon([&](int connection) { serve(connection, pieces, ending); });
  // If the peer hangs, the call takes the whole limit. Otherwise the limit must never be reached,
  // not even on a busy machine.
  const milliseconds limit(ending == Ending::hang ? 10 : 60'000);
  return control_get(daemon.port(), path, "token", limit);
}

void check_call(const Input& input) {
  const std::string answer = answer_of(input);
  const std::string whole = input.form == 0 ? call({answer}, Ending::close) : input.bytes;
  check(whole.empty() || says_200(answer), "only an answer with status 200 has a body to give");
  const std::string result = call(cut(answer, input.sizes), input.ending);
  if (input.ending == Ending::close) {
    check_equal(result, whole, "the same answer is understood in whatever pieces it comes");
  } else {
    check(result.empty() || result == whole, "an answer is understood as it is, or not at all");
  }
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  if (size >= 2) {
    check_call(input_of(text_of(data, size)));
  }
  return 0;
}
