#include <dlfcn.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <typeinfo>

#include "daemon/control_client.h"
#include "tests/support/loopback_server.h"
#include "tests/support/ports.h"

namespace {

int thrown = 0;

}  // namespace

// Stands before the C++ runtime's own function, through which every throw goes; under another name
// here, for the library declares it too.
[[noreturn]] void count_throw(void* object, std::type_info* type,
                              void (*destroy)(void*)) __asm__("__cxa_throw");

void count_throw(void* object, std::type_info* type, void (*destroy)(void*)) {
  using Throw = void (*)(void*, std::type_info*, void (*)(void*));
  ++thrown;
  reinterpret_cast<Throw>(dlsym(RTLD_NEXT, "__cxa_throw"))(object, type, destroy);
  __builtin_unreachable();
}

namespace velun::test {
namespace {

// Calls that fail are the daily bread of a tool whose daemon is not running.
class ControlFailure : public ::testing::Test {
 protected:
  static int throws_of_call(int port) {
    const int before = thrown;
    EXPECT_EQ(control_get(port, "/healthz", "", std::chrono::milliseconds(50)), "");
    return thrown - before;
  }

  static int throws_of_answer(const Reply& reply) {
    const LoopbackServer server(0, [reply](const std::string&) { return reply; });
    return throws_of_call(server.port());
  }
};

TEST_F(ControlFailure, is_counted_here_when_it_is_thrown) {
  const int before = thrown;
  EXPECT_THROW(throw std::runtime_error("on purpose"), std::runtime_error);
  EXPECT_EQ(thrown, before + 1);
}

TEST_F(ControlFailure, to_reach_anybody_throws_nothing) {
  EXPECT_EQ(throws_of_call(ReservedPort().number()), 0);
}

TEST_F(ControlFailure, to_hear_within_the_limit_throws_nothing) {
  EXPECT_EQ(throws_of_answer({"", Ending::hang}), 0);
}

TEST_F(ControlFailure, of_an_answer_throws_nothing) {
  EXPECT_EQ(throws_of_answer(answer(401, "{}")), 0);
  EXPECT_EQ(throws_of_answer({"no HTTP at all\r\n\r\n"}), 0);
  EXPECT_EQ(throws_of_answer({"HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf"}), 0);
  EXPECT_EQ(throws_of_answer({"", Ending::reset}), 0);
}

}  // namespace
}  // namespace velun::test
