#include <gtest/gtest.h>

#include <string>

#include "tests/support/report_server.h"
#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

// The longest body that the control client takes.
constexpr std::size_t body_limit = 8 * 1024 * 1024;
constexpr std::size_t more_than_a_pipe_holds = 1024 * 1024;

// A transcript of exactly `size` bytes, and the report that belongs to it.
struct Transcript {
  std::string body = R"({"entries":[)";
  std::string report;

  explicit Transcript(std::size_t size) {
    for (int number = 0; body.size() < size - 200; ++number) {
      const std::string text = std::to_string(number);
      body += R"({"app":"editor )" + text + R"(","model":"large","outcome":"ok","duration_ms":)" +
              text + "},";
      report += "editor " + text + "  large  ok  " + text + " ms\n";
    }
    body += R"({"app":"last"}],"pad":")";
    report += "last      0 ms\n";
    body += std::string(size - body.size() - 2, 'x') + "\"}";
  }
};

class LargeLog : public ::testing::Test {
 protected:
  LargeLog() { sandbox.configure(); }

  // Runs a shell command line that holds "VELUN" in place of the program.
  Outcome shell(std::string command) {
    command.replace(command.find("VELUN"), 5, "'" VELUN_BINARY "'");
    RunOptions options;
    options.program = "/bin/sh";
    return sandbox.velun({"-c", command}, options);
  }

  // Megabytes in a failure message help nobody.
  static void expect_whole(const Outcome& run, const Transcript& transcript) {
    EXPECT_EQ(run.out.size(), transcript.report.size());
    EXPECT_TRUE(seen(run) == success(transcript.report));
  }

  Sandbox sandbox;
};

TEST_F(LargeLog, just_under_the_limit_goes_to_a_file_whole) {
  const Transcript transcript(body_limit - 1);
  const LoopbackServer daemon(sandbox.control_port(), healthy_with(transcript.body));
  expect_whole(sandbox.velun({"log"}), transcript);
}

TEST_F(LargeLog, goes_through_a_pipe_whole) {
  const Transcript transcript(more_than_a_pipe_holds);
  const LoopbackServer daemon(sandbox.control_port(), healthy_with(transcript.body));
  expect_whole(shell("VELUN log | cat"), transcript);
}

TEST_F(LargeLog, gives_a_reader_that_leaves_early_its_first_line_whole_and_ends_with_0) {
  const Transcript transcript(body_limit - 1);
  const LoopbackServer daemon(sandbox.control_port(), healthy_with(transcript.body));
  const Outcome run = shell("{ VELUN log; echo $? >ended; } | head -1");
  EXPECT_EQ(run.out, "editor 0  large  ok  0 ms\n");
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(read_file(sandbox.root() / "ended"), "0\n");
}

TEST_F(LargeLog, one_byte_over_the_limit_cannot_be_read) {
  const Transcript transcript(body_limit + 1);
  const LoopbackServer daemon(sandbox.control_port(), healthy_with(transcript.body));
  EXPECT_EQ(seen(sandbox.velun({"log"})), failure("could not read /v1/transcript\n"));
}

}  // namespace
}  // namespace velun::test
