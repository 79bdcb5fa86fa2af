#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "tests/support/report_server.h"
#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

// What the everyday commands ask of the kernel, without what the C and C++ libraries ask to start,
// to get memory and to know their thread.
class SystemCalls : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!VELUN_IS_STATIC) {
      GTEST_SKIP() << "a loader, a sanitizer or counters would ask for more";
    }
    sandbox.configure();
  }

  /// The names of the calls, each behind a blank, from the first that velun makes itself.
  std::string of(const std::string& command) {
    RunOptions traced;
    traced.program = "/usr/bin/strace";
    sandbox.velun({"-qq", "-otrace", VELUN_BINARY, command}, traced);
    std::istringstream lines(read_file(sandbox.root() / "trace"));
    std::string names;
    for (std::string line; std::getline(lines, line);) {
      const std::string name = line.substr(0, line.find('('));
      // LLVM's C++ library asks which thread it is in before it makes a function's static variable.
      const bool of_libraries =
          name == "brk" || name == "mmap" || name == "munmap" || name == "gettid";
      if (!of_libraries && (!names.empty() || line.starts_with("fcntl(0, F_GETFD)"))) {
        names += " " + (name == "newfstatat" ? "fstat" : name);
      }
    }
    return names;
  }

  // Whether all three streams are open; that children can be waited for and readers may leave.
  const std::string entry = " fcntl fcntl fcntl rt_sigaction rt_sigaction";
  // The config file: how large it is, and all of it at once.
  const std::string load = " openat fstat read close";
  // The C library looks once what kind of file its output is.
  const std::string print = " fstat write exit_group";

  Sandbox sandbox;
};

TEST_F(SystemCalls, of_help_are_those_of_its_entry_and_its_output) {
  EXPECT_EQ(of("help"), entry + print);
}

TEST_F(SystemCalls, of_config_add_those_that_read_the_file) {
  EXPECT_EQ(of("config"), entry + load + print);
}

TEST_F(SystemCalls, of_config_are_no_more_for_a_long_file) {
  sandbox.configure("# " + std::string(1'000'000, 'c') + "\n");
  EXPECT_EQ(of("config"), entry + load + print);
}

TEST_F(SystemCalls, of_status_add_one_refused_connection) {
  EXPECT_EQ(of("status"), entry + load + " socket connect sendto close" + print);
}

TEST_F(SystemCalls, of_a_report_are_two_connections_and_the_token_between_them) {
  const LoopbackServer daemon(sandbox.control_port(), healthy_with("{}"));
  std::filesystem::create_directories(sandbox.state_dir());
  write_file(sandbox.state_dir() / "control.token", "token\n");
  const std::string token = " openat fstat read close";
  const std::string ask = " socket connect sendto poll recvfrom close";
  EXPECT_EQ(of("stats"), entry + load + ask + token + ask + print);
}

}  // namespace
}  // namespace velun::test
