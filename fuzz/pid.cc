// Any text as a pid file: velun reads the same number as a second reader that goes digit by digit.
#include <limits>
#include <optional>

#include "daemon/lifecycle.h"
#include "fuzz/target.h"

namespace velun::fuzz {
namespace {

constexpr long long largest = std::numeric_limits<pid_t>::max();

std::optional<pid_t> expected_of(const std::string& text) {
  std::size_t at = 0;
  while (at < text.size() && std::string(" \t\n\v\f\r").find(text[at]) != std::string::npos) {
    ++at;
  }
  // A minus is not skipped: no process has a negative number.
  if (at < text.size() && text[at] == '+') {
    ++at;
  }
  long long number = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9' && number <= largest; ++at) {
    number = number * 10 + (text[at] - '0');
  }
  return number >= 1 && number <= largest ? std::optional(static_cast<pid_t>(number))
                                          : std::nullopt;
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const std::string text = text_of(data, size);
  const std::optional<pid_t> pid = velun::recorded_pid(text);
  check_equal(std::to_string(pid.value_or(0)), std::to_string(expected_of(text).value_or(0)),
              "the recorded pid is the positive number at the beginning");
  check(!pid || *pid > 0, "no group is ever recorded");
  check(!pid || velun::recorded_pid(std::to_string(*pid) + "\n") == pid,
        "a pid is read back as it is written");
  return 0;
}
