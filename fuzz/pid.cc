// Any text as a pid file: velun reads the same number as the C++ library does.
#include <sstream>

#include "daemon/lifecycle.h"
#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const std::string text = text_of(data, size);
  pid_t expected = 0;
  const bool is_number = !(std::istringstream(text) >> expected).fail();
  const std::optional<pid_t> pid = velun::recorded_pid(text);
  check_equal(std::to_string(pid.value_or(0)),
              std::to_string(is_number && expected > 0 ? expected : 0),
              "the recorded pid is the positive number at the beginning");
  check(!pid || *pid > 0, "no group is ever recorded");
  check(!pid || velun::recorded_pid(std::to_string(*pid) + "\n") == pid,
        "a pid is read back as it is written");
  return 0;
}
