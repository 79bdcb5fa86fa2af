#include <gtest/gtest.h>

#include "daemon/command_line.h"
#include "tests/support/environment_variable.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// Which program `start` executes. Every daemon here ends at once, so that a start is over after its
// first try.
class StartProgram : public Lifecycle {
 protected:
  StartProgram() { sandbox.configure(); }

  static constexpr const char* at_once = "exit 3";

  RunOptions with(const fs::path& tool) const {
    RunOptions options;
    options.program = tool;
    return options;
  }

  // The copied tool, started under another name for itself and from another directory.
  RunOptions called(const std::string& argument_zero, const fs::path& directory) const {
    RunOptions options = with(copy_tool());
    options.argument_zero = argument_zero;
    options.directory = directory;
    return options;
  }

  void expect_executed(const ScriptedProgram& daemon, const std::string& argument_zero,
                       const RunOptions& options = {}) {
    EXPECT_EQ(seen(sandbox.velun({"start"}, options)),
              failure(exited_text(argument_zero + " " + spaced(sandbox.daemon_flags()))));
    ASSERT_EQ(daemon.runs().size(), 1U);
    EXPECT_EQ(daemon.runs()[0].argv[0], argument_zero);
  }

  void expect_not_executable(const std::string& program, const RunOptions& options = {}) {
    EXPECT_EQ(seen(sandbox.velun({"start"}, options)),
              failure(exec_failed_text(program) +
                      exited_text(program + " " + spaced(sandbox.daemon_flags()))));
  }
};

TEST_F(StartProgram, is_the_file_beside_the_tool_even_when_velund_names_another) {
  const ScriptedProgram other = install_daemon(at_once);
  const fs::path tool = copy_tool();
  const ScriptedProgram beside(sandbox.root() / "bin/velund", at_once);
  expect_executed(beside, (sandbox.root() / "bin/velund").string(), with(tool));
  EXPECT_EQ(other.runs().size(), 0U);
}

TEST_F(StartProgram, is_a_file_beside_the_tool_though_it_may_not_be_executed) {
  const ScriptedProgram other = install_daemon(at_once);
  const fs::path tool = copy_tool();
  write_file(sandbox.root() / "bin/velund", "plain text");
  expect_not_executable((sandbox.root() / "bin/velund").string(), with(tool));
  EXPECT_EQ(other.runs().size(), 0U);
}

TEST_F(StartProgram, is_looked_for_in_the_working_directory_that_has_a_file_of_the_bare_name) {
  const ScriptedProgram other = install_daemon(at_once);
  const ScriptedProgram beside(sandbox.root() / "bin/velund", at_once);
  const ScriptedProgram here(sandbox.root() / "here/velund", at_once);
  write_file(sandbox.root() / "here/velun", "not the tool");
  expect_executed(here, here.path(), called("velun", sandbox.root() / "here"));
  EXPECT_EQ(beside.runs().size() + other.runs().size(), 0U);
}

TEST_F(StartProgram, is_not_looked_for_beside_a_tool_whose_bare_name_is_not_in_the_directory) {
  const ScriptedProgram named = install_daemon(at_once);
  const ScriptedProgram beside(sandbox.root() / "bin/velund", at_once);
  const ScriptedProgram here(sandbox.root() / "here/velund", at_once);
  expect_executed(named, named.path(), called("velun", sandbox.root() / "here"));
  EXPECT_EQ(beside.runs().size() + here.runs().size(), 0U);
}

TEST_F(StartProgram, named_by_a_bare_word_is_found_on_the_search_path) {
  const ScriptedProgram daemon(sandbox.root() / "path/other-name", at_once);
  sandbox.environment["PATH"] = sandbox.root() / "path";
  sandbox.environment["VELUND"] = "other-name";
  expect_executed(daemon, "other-name");
}

TEST_F(StartProgram, named_with_a_slash_is_found_from_the_working_directory) {
  const ScriptedProgram daemon(sandbox.home() / "programs/daemon", at_once);
  const ScriptedProgram on_the_path(sandbox.root() / "path/programs/daemon", at_once);
  sandbox.environment["PATH"] = sandbox.root() / "path";
  sandbox.environment["VELUND"] = "programs/daemon";
  RunOptions options;
  options.directory = sandbox.home();
  expect_executed(daemon, "programs/daemon", options);
  EXPECT_EQ(on_the_path.runs().size(), 0U);
}

TEST_F(StartProgram, is_velund_on_the_search_path_when_nothing_else_is_known) {
  const ScriptedProgram daemon(sandbox.root() / "path/velund", at_once);
  sandbox.environment["PATH"] = "/does/not/exist:" + (sandbox.root() / "path").string();
  expect_executed(daemon, "velund");
}

TEST_F(StartProgram, is_the_empty_word_when_velund_is_set_but_empty) {
  const ScriptedProgram daemon(sandbox.root() / "path/velund", at_once);
  sandbox.environment["PATH"] = sandbox.root() / "path";
  sandbox.environment["VELUND"] = "";
  expect_not_executable("");
  EXPECT_EQ(daemon.runs().size(), 0U);
}

TEST_F(StartProgram, that_is_nowhere_on_the_search_path_is_named_in_both_messages) {
  sandbox.environment["PATH"] = sandbox.root();
  expect_not_executable("velund");
}

// Where it is looked for, asked of the function: no process is needed to tell.
class FindDaemonProgram : public ::testing::Test {
 protected:
  FindDaemonProgram() { write_file(tool, ""); }

  Sandbox sandbox;
  fs::path tool = sandbox.root() / "bin/velun";
  fs::path beside = sandbox.root() / "bin/velund";
  EnvironmentVariable named{"VELUND", "named"};
};

TEST_F(FindDaemonProgram, takes_a_directory_beside_the_tool) {
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

// An empty one comes from a caller that gives the tool no arguments at all.
TEST_F(FindDaemonProgram, falls_back_when_the_argument_zero_is_empty_or_too_long_to_be_a_path) {
  for (const std::string& argument_zero : {std::string(), "/" + std::string(5000, 'v')}) {
    EXPECT_EQ(find_daemon_program(argument_zero), "named");
    const EnvironmentVariable none("VELUND", nullptr);
    EXPECT_EQ(find_daemon_program(argument_zero), "velund");
  }
}

}  // namespace
}  // namespace velun::test
