#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "daemon/control_client.h"
#include "tests/support/loopback_server.h"
#include "tests/support/quiet_call.h"
#include "tests/support/raw_listener.h"

namespace velun::test {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;

Timed<std::string> call(int port, const std::string& path = "/v1/stats") {
  return quietly([&] { return control_get(port, path, "token"); });
}

Timed<std::string> call_for(const Reply& reply) {
  const LoopbackServer daemon(0, [&](const std::string&) { return reply; });
  return call(daemon.port());
}

void expect_failure_at_once(const Timed<std::string>& outcome) {
  EXPECT_EQ(outcome.result, "");
  EXPECT_LT(outcome.took, milliseconds(1900));
}

void expect_failure_after_two_seconds(const Timed<std::string>& outcome) {
  EXPECT_EQ(outcome.result, "");
  EXPECT_GE(outcome.took, milliseconds(1900));
  EXPECT_LT(outcome.took, milliseconds(3800));
}

std::size_t open_descriptors() {
  using std::filesystem::directory_iterator;
  return static_cast<std::size_t>(
      std::distance(directory_iterator("/proc/self/fd"), directory_iterator()));
}

TEST(ControlFault, fifty_refused_connections_give_the_empty_text_at_once) {
  const ReservedPort nobody;
  expect_failure_at_once(quietly([&] {
    std::string results;
    for (int i = 0; i < 50; ++i) {
      results += control_get(nobody.number(), "/v1/stats", "token");
      results += daemon_healthy(nobody.number()) ? "healthy" : "";
    }
    return results;
  }));
}

TEST(ControlFault, a_listener_on_the_other_loopback_address_alone_is_not_asked) {
  const ReservedPort number;
  const int listener = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in6 address{};
  address.sin6_family = AF_INET6;
  address.sin6_addr = in6addr_loopback;
  address.sin6_port = htons(static_cast<std::uint16_t>(number.number()));
  if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    GTEST_SKIP() << "no IPv6 here";
  }
  ASSERT_EQ(listen(listener, 8), 0);
  expect_failure_at_once(call(number.number()));
  close(listener);
}

TEST(ControlFault, a_listener_that_closes_gives_the_empty_text) {
  const RawListener without_reading([](int) {});
  expect_failure_at_once(call(without_reading.port()));
  expect_failure_at_once(call_for({""}));
}

TEST(ControlFault, a_listener_that_closes_in_the_middle_of_a_request_raises_no_signal) {
  const RawListener daemon([](int connection) {
    char byte = 0;
    EXPECT_EQ(recv(connection, &byte, 1, 0), 1);
  });
  signal(SIGPIPE, SIG_DFL);
  const auto outcome = call(daemon.port(), "/" + std::string(16 * 1024 * 1024, 'x'));
  signal(SIGPIPE, SIG_IGN);
  expect_failure_at_once(outcome);
}

TEST(ControlFault, a_reset_connection_gives_the_empty_text) {
  expect_failure_at_once(call_for({"", Ending::reset}));
  expect_failure_at_once(call_for({"HTTP/1.1 200 OK\r\nContent-Le", Ending::reset}));
  expect_failure_at_once(call_for({"HTTP/1.1 200 OK\r\n\r\nuntil the", Ending::reset}));
}

TEST(ControlFault, an_answer_that_breaks_off_gives_the_empty_text) {
  for (const std::string begin :
       {"H", "HTTP/1.1 200", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n",
        "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\no",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nok\r\n",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0\r\n"}) {
    SCOPED_TRACE(begin);
    expect_failure_at_once(call_for({begin}));
  }
}

TEST(ControlFault, garbage_gives_the_empty_text) {
  for (const std::string& bytes :
       {"ok"s, "\r\n\r\n"s, "this is not HTTP\r\n\r\n"s, "HTTP/2.0 200 OK\r\n\r\nok"s,
        "HTTP/1.1 twohundred OK\r\n\r\nok"s, "HTTP/1.1 200 OK\r\nno colon\r\n\r\nok"s,
        "HTTP/1.1 200 OK\r\nContent-Length: two\r\n\r\nok"s,
        "HTTP/1.1 200 OK\r\nContent-Length: -2\r\n\r\nok"s,
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nok\r\n0\r\n\r\n"s,
        std::string(1000, '\0'), "\x16\x03\x01\x02\xff"s}) {
    SCOPED_TRACE(bytes);
    expect_failure_at_once(call_for({bytes}));
  }
}

TEST(ControlFault, a_mute_listener_is_not_healthy_after_two_seconds) {
  const LoopbackServer daemon(0, [](const std::string&) { return Reply{"", Ending::hang}; });
  const auto probe = quietly([&] { return daemon_healthy(daemon.port()); });
  EXPECT_FALSE(probe.result);
  EXPECT_GE(probe.took, milliseconds(1900));
  EXPECT_LT(probe.took, milliseconds(3800));
}

TEST(ControlFault, half_an_answer_gives_the_empty_text_after_two_seconds) {
  const std::string begin = "HTTP/1.1 200 OK\r\n";
  for (const Reply& reply :
       {Reply{begin + "Conte", Ending::hang},
        Reply{begin + "Content-Length: 4\r\n\r\nha", Ending::hang},
        Reply{begin + "\r\nall of it", Ending::hang},
        Reply{answer(200, "ok", "X-Pad: 0123456789\r\n").bytes, Ending::close, milliseconds(150)},
        Reply{begin + "\r\n" + std::string(100, 'x'), Ending::close, milliseconds(40)}}) {
    SCOPED_TRACE(reply.bytes);
    expect_failure_after_two_seconds(call_for(reply));
  }
}

TEST(ControlFault, a_request_that_nobody_reads_gives_the_empty_text_after_two_seconds) {
  const int listener = bound_socket(0);
  ASSERT_EQ(listen(listener, 8), 0);
  const std::string more_than_any_buffer_holds(16 * 1024 * 1024, 'x');
  expect_failure_after_two_seconds(call(port_of(listener), "/" + more_than_any_buffer_holds));
  close(listener);
}

TEST(ControlFault, a_connection_that_is_not_taken_up_gives_the_empty_text_after_two_seconds) {
  const int listener = bound_socket(0);
  ASSERT_EQ(listen(listener, 0), 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ASSERT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
  std::vector<int> waiting;  // they fill the queue, so the system drops later connections
  for (int i = 0; i < 4; ++i) {
    waiting.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int result = connect(waiting.back(), reinterpret_cast<const sockaddr*>(&address), size);
    EXPECT_TRUE(result == 0 || errno == EINPROGRESS);
  }
  expect_failure_after_two_seconds(call(port_of(listener)));
  for (const int descriptor : waiting) {
    close(descriptor);
  }
  close(listener);
}

TEST(ControlFault, all_steps_of_a_call_share_the_two_seconds) {
  const RawListener daemon([](int connection) {
    std::this_thread::sleep_for(milliseconds(1500));  // the client is busy writing until then
    RawListener::read_to_end(connection);             // and waits for an answer from then on
  });
  const auto outcome = call(daemon.port(), "/" + std::string(8 * 1024 * 1024, 'x'));
  expect_failure_after_two_seconds(outcome);
  EXPECT_LT(outcome.took, milliseconds(3300));
}

TEST(ControlFault, no_call_leaves_a_descriptor_open) {
  const ReservedPort nobody;
  const int listener = bound_socket(0);
  ASSERT_EQ(listen(listener, 8), 0);
  const std::size_t before = open_descriptors();
  call(nobody.number());
  call(port_of(listener));
  call_for(answer(200, "ok"));
  call_for(answer(500, "no"));
  call_for({"garbage", Ending::reset});
  EXPECT_EQ(open_descriptors(), before);
  close(listener);
}

TEST(ControlFault, a_wait_that_is_interrupted_neither_ends_the_call_nor_prolongs_it) {
  const LoopbackServer daemon(0, [](const std::string&) { return Reply{"", Ending::hang}; });
  signal(SIGUSR1, [](int) {});
  std::thread other([caller = pthread_self()] {
    std::this_thread::sleep_for(milliseconds(300));
    pthread_kill(caller, SIGUSR1);
  });
  const auto outcome = call(daemon.port());
  other.join();
  signal(SIGUSR1, SIG_DFL);
  expect_failure_after_two_seconds(outcome);
}

}  // namespace
}  // namespace velun::test
