#include "tests/matrix/player.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <optional>

#include "tests/support/raw_listener.h"

namespace velun::test {
namespace {

pid_t dead_child() {
  const pid_t child = fork();
  if (child == 0) {
    _exit(0);
  }
  siginfo_t info{};
  waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
  return child;
}

// Blocks every signal that can be blocked but SIGCHLD, and returns a descriptor to read them.
int watch_signals() {
  sigset_t watched;
  sigfillset(&watched);
  sigdelset(&watched, SIGCHLD);
  sigprocmask(SIG_BLOCK, &watched, nullptr);
  return signalfd(-1, &watched, SFD_CLOEXEC);
}

[[noreturn]] void end(int test, const std::string& last_word) {
  send(test, last_word.data(), last_word.size(), MSG_NOSIGNAL);
  _exit(0);
}

// Runs in the child until a signal or the test ends it.
[[noreturn]] void play(const Part& part, int test) {
  const int signals = watch_signals();
  if (setpgid(0, part.group) != 0 ||
      (part.user != 0 && (setgid(part.user) != 0 || setuid(part.user) != 0))) {
    _exit(1);
  }
  // After the change of the user, which would reset this.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const pid_t pid = part.zombie ? dead_child() : getpid();
  std::optional<LoopbackServer> server;
  if (part.port != 0) {
    server.emplace(part.port, [&part](const std::string&) { return part.reply; });
  }
  send(test, &pid, sizeof pid, MSG_NOSIGNAL);
  int rest_ms = -1;
  pollfd wanted[] = {{signals, POLLIN, 0}, {test, POLLIN, 0}};
  while (poll(wanted, 2, rest_ms) > 0) {
    if (wanted[0].revents == 0) {
      end(test, "there");
    }
    signalfd_siginfo info{};
    if (read(signals, &info, sizeof info) != sizeof info) {
      _exit(1);
    }
    const std::string number = std::to_string(info.ssi_signo) + " ";
    send(test, number.data(), number.size(), MSG_NOSIGNAL);
    rest_ms = part.lasts_ms;
  }
  end(test, "ended");
}

}  // namespace

Player::Player(const Part& part) {
  int ends[2] = {-1, -1};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const pid_t child = fork();
  if (child == 0) {
    play(part, ends[1]);
  }
  close(ends[1]);
  socket_ = ends[0];
  const bool told = has_input(socket_, std::chrono::seconds(10)) &&
                    recv(socket_, &pid_, sizeof pid_, 0) == static_cast<ssize_t>(sizeof pid_);
  EXPECT_TRUE(told) << "a player did not start";
}

Player::~Player() {
  close(socket_);
}

std::string Player::fate() const {
  // Unlike close, this reaches the process even if other processes have a copy of the socket.
  shutdown(socket_, SHUT_WR);
  return RawListener::read_to_end(socket_);
}

}  // namespace velun::test
