// Any bytes as the daemon's answer, in any pieces: the client never throws, and what it gives does
// not depend on where the answer was cut.
//
// The first byte of an input chooses what the bytes are: a whole answer as it goes over the wire,
// or the body of one that is put together around it; and how the connection ends. The second is the
// number of cuts, the next ones are the sizes of the pieces, and the bytes follow.
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdio>
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

// What happens to the connection after the last piece.
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
  // Seldom, as a peer that hangs takes its time.
  input.ending = byte(0) == 0xff ? Ending::hang : byte(0) >= 0xf0 ? Ending::reset : Ending::close;
  std::size_t next = 2;
  for (std::size_t cuts = byte(1) % (most_cuts + 1); cuts > 0 && next < text.size(); --cuts) {
    input.sizes.push_back(std::size_t{1} + byte(next++));
  }
  input.bytes = text.substr(next);
  return input;
}

// The pieces of `bytes`: those of the given sizes, then the rest.
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
  std::string text;
  for (const std::string& piece : pieces) {
    char size[32];
    std::snprintf(size, sizeof size, "%zx\r\n", piece.size());
    text += piece.empty() ? "" : size + piece + "\r\n";
  }
  return text + "0\r\n\r\n";
}

// The answer with the bytes of the input as its body, in one of the three ways to say its length.
std::string answer_of(const Input& input) {
  const std::string status = "HTTP/1.1 200 OK\r\n";
  switch (input.form) {
    case 1:
      return status + "Content-Length: " + std::to_string(input.bytes.size()) + "\r\n\r\n" +
             input.bytes;
    case 2:
      return status + "Transfer-Encoding: chunked\r\n\r\n" +
             in_chunks(cut(input.bytes, input.sizes));
    case 3:
      return status + "\r\n" + input.bytes;
    default:
      return input.bytes;
  }
}

bool says_200(const std::string& answer) {
  return answer.starts_with("HTTP/1.0 200") || answer.starts_with("HTTP/1.1 200");
}

constexpr const char* path = "/v1/stats";

// Takes the request, which has to be whole unless the client was in a hurry, and gives the answer.
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
    // Time for the peer to take the piece by itself.
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

// What the client makes of an answer in these pieces.
std::string call(const std::vector<std::string>& pieces, Ending ending) {
  const test::RawListener daemon([&](int connection) { serve(connection, pieces, ending); });
  // A mute peer costs the whole limit. With the others, time is never to be up first, on however
  // busy a machine.
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
