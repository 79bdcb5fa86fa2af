// Any bytes as the daemon's answer, in any pieces: the client never throws, and what it gives does
// not depend on where the answer was cut.
//
// The first byte of an input chooses what the bytes are: a whole answer as it goes over the wire,
// or the body of one that is put together around it; and how the connection ends. The second is the
// number of cuts, the next ones are the sizes of the pieces, and the bytes follow.
#include <chrono>
#include <cstdio>

#include "daemon/control_client.h"
#include "fuzz/reply_server.h"
#include "fuzz/target.h"

namespace velun::fuzz {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t most_cuts = 8;

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

void check_call(const Input& input) {
  static ReplyServer server;
  const std::string path = "/v1/stats";
  const auto call = [&](const std::vector<std::string>& pieces, Ending ending) {
    // A mute peer costs the whole limit. With the others, time is never to be up first, on however
    // busy a machine.
    const milliseconds limit(ending == Ending::hang ? 10 : 60'000);
    server.answer_with({pieces, ending, control_request(server.port(), path, "token")});
    return control_get(server.port(), path, "token", limit);
  };
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
