#include <gtest/gtest.h>

#include "daemon/command_line.h"
#include "tests/support/environment_variable.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// Which program `start` executes. The daemons here end at once, so a start is over after its first
// try.
class StartProgram : public Lifecycle {
 protected:
  StartProgram() { sandbox.configure(); }

  void expect_executed(const ScriptedProgram& daemon, const std::string& argument_zero,
                       const RunOptions& options = {}) {
    EXPECT_EQ(seen(sandbox.velun({"start"}, options)),
              failure(exited_text(argument_zero + " " + spaced(sandbox.daemon_flags()))));
    ASSERT_EQ(daemon.runs().size(), 1U);
    EXPECT_EQ(daemon.runs()[0].argv[0], argument_zero);
  }
};

TEST_F(StartProgram, is_looked_for_in_the_working_directory_that_has_a_file_of_the_bare_name) {
  const ScriptedProgram other = install_daemon("exit 3");
  const ScriptedProgram beside(sandbox.root() / "bin/velund", "exit 3");
  const ScriptedProgram here(sandbox.root() / "here/velund", "exit 3");
  write_file(sandbox.root() / "here/velun", "not the tool");
  RunOptions options;
  options.program = copy_tool();
  options.argument_zero = "velun";
  options.directory = sandbox.root() / "here";
  expect_executed(here, here.path(), options);
  EXPECT_EQ(beside.runs().size() + other.runs().size(), 0U);
}

TEST_F(StartProgram, named_by_a_bare_word_is_found_on_the_search_path) {
  const ScriptedProgram daemon(sandbox.root() / "path/other-name", "exit 3");
  sandbox.environment["PATH"] = "/does/not/exist:" + (sandbox.root() / "path").string();
  sandbox.environment["VELUND"] = "other-name";
  expect_executed(daemon, "other-name");
}

class FindDaemonProgram : public ::testing::Test {
 protected:
  FindDaemonProgram() { write_file(tool, ""); }

  Sandbox sandbox;
  fs::path tool = sandbox.root() / "bin/velun";
  fs::path beside = sandbox.root() / "bin/velund";
  EnvironmentVariable named{"VELUND", "named"};
};

TEST_F(FindDaemonProgram, takes_a_file_that_may_not_be_executed_or_a_directory_beside_the_tool) {
  write_file(beside, "plain text");
  EXPECT_EQ(find_daemon_program(tool), beside);
  fs::remove(beside);
  fs::create_directory(beside);
  EXPECT_EQ(find_daemon_program(tool), beside);
}

TEST_F(FindDaemonProgram, takes_a_link_beside_the_tool_under_its_own_name_unless_it_dangles) {
  fs::create_symlink(sandbox.root() / "target", beside);
  EXPECT_EQ(find_daemon_program(tool), "named");
  write_file(sandbox.root() / "target", "");
  EXPECT_EQ(find_daemon_program(tool), beside);
}

TEST_F(FindDaemonProgram, looks_beside_the_tool_itself_and_not_beside_a_link_to_it) {
  const fs::path link = sandbox.root() / "links/velun";
  write_file(sandbox.root() / "links/velund", "");
  fs::create_symlink(tool, link);
  EXPECT_EQ(find_daemon_program(link), "named");
  write_file(beside, "");
  EXPECT_EQ(find_daemon_program(link), beside);
}

// The path is empty if the caller gives the tool no arguments at all.
TEST_F(FindDaemonProgram, falls_back_when_the_argument_zero_leads_nowhere) {
  for (const std::string& argument_zero :
       {std::string(), std::string("velun"), "/" + std::string(5000, 'v')}) {
    EXPECT_EQ(find_daemon_program(argument_zero), "named");
    const EnvironmentVariable empty("VELUND", "");
    EXPECT_EQ(find_daemon_program(argument_zero), "");
    const EnvironmentVariable none("VELUND", nullptr);
    EXPECT_EQ(find_daemon_program(argument_zero), "velund");
  }
}

}  // namespace
}  // namespace velun::test
