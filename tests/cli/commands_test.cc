#include "cli/commands.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <iterator>
#include <sstream>

#include "tests/support/lifecycle.h"

namespace velun::test {
namespace {

using Words = std::vector<std::string>;

// Every word of the table that needs a configuration.
const Words configured_commands = {"start", "stop",   "restart", "status", "stats",
                                   "log",   "config", "model",   "mode"};

const Words unknown_words = {"",    "Start",  "starts",  "start ", " start", "stop\n",    "HELP",
                             "-H",  "--Help", "-",       "--",     "-v",     "--version", "fetch",
                             "off", "a b",    "--start", "topics", "`",      "\xff\xfe"};

std::string unknown_message(const std::string& word) {
  return "unknown command `" + word + "` — `velun help` lists them\n";
}

class Commands : public Lifecycle {
 protected:
  void expect(const Words& words, int status, const std::string& out, const std::string& err) {
    SCOPED_TRACE(testing::PrintToString(words));
    EXPECT_EQ(seen(sandbox.velun(words)), ended(status, out, err));
  }

  std::string no_configuration() const {
    return "no configuration at " + sandbox.config_file().string() + " — run `velun setup` first\n";
  }
};

TEST_F(Commands, each_word_reaches_its_handler) {
  sandbox.configure("mode: off\n");
  const std::string nothing_to_start = "mode is off — nothing to start (see `velun mode`)\n";
  expect({"start"}, 0, nothing_to_start, "");
  expect({"stop"}, 0, "not running\n", "");
  expect({"restart"}, 0, "not running\n" + nothing_to_start, "");
  expect({"status"}, 0, "not running (configured mode: off)\n", "");
  expect({"stats"}, 0, "not running\n", "");
  expect({"log"}, 0, "not running\n", "");
  expect({"config"}, 0,
         "file: " + sandbox.config_file().string() + "\n\n" + sandbox.rendering("off"), "");
  expect({"model"}, 0, "no models — `velun model fetch` downloads one (~1.2 GB)\n", "");
  expect({"mode", "off"}, 0, sandbox.wrote(), "");
}

TEST_F(Commands, a_word_outside_the_table_is_unknown_and_ends_velun_with_2) {
  sandbox.configure();
  for (const std::string& word : unknown_words) {
    expect({word}, 2, "", unknown_message(word));
  }
}

TEST_F(Commands, a_missing_configuration_is_reported_by_every_word_that_needs_one) {
  const ScriptedProgram daemon = install_daemon("forever");
  const ScriptedProgram curl = install_curl(sandbox, "exit 22");
  Words words = configured_commands;
  words.insert(words.end(), unknown_words.begin(), unknown_words.end());
  for (const std::string& word : words) {
    expect({word}, 1, "", no_configuration());
    expect({word, "fetch"}, 1, "", no_configuration());
  }
  expect({"mode", "off"}, 1, "", no_configuration());
  EXPECT_EQ(daemon.runs().size() + curl.runs().size(), 0U);
  EXPECT_EQ(names_in(sandbox.home()), Words());
}

TEST_F(Commands, an_invalid_configuration_is_reported_by_every_word_that_needs_one) {
  const std::string content = "mode: loud\nnames: maybe\n";
  write_file(sandbox.config_file(), content);
  Words words = configured_commands;
  words.insert(words.end(), {"", "nonsense", "Start", "--verbose"});
  for (const std::string& word : words) {
    expect({word, "off"}, 1, "",
           sandbox.config_file().string() +
               " has problems:\n"
               "  line 1: mode must be off, watch or protect (got `loud`)\n"
               "  line 2: names must be true or false\n");
  }
  EXPECT_EQ(read_file(sandbox.config_file()), content);
}

TEST_F(Commands, words_that_a_command_does_not_read_are_ignored) {
  sandbox.configure("mode: off\n");
  const ScriptedProgram curl = install_curl(sandbox, "exit 22");
  // Each line has all words that its command reads. A second run prints the same.
  for (const std::string line :
       {"start", "stop", "restart", "status", "stats", "log", "config", "mode off", "model list",
        "model use x", "model fetch full", "model fetch compact", "setup", "help modes",
        "--help mode", "nonsense"}) {
    std::istringstream parts(line);
    Words words{std::istream_iterator<std::string>(parts), {}};
    const std::string alone = seen(sandbox.velun(words));
    words.insert(words.end(), {"compact", "", "--help"});
    EXPECT_EQ(seen(sandbox.velun(words)), alone) << line;
  }
}

// velun finds the daemon beside itself through argument zero alone.
TEST_F(Commands, argument_zero_reaches_every_command_that_starts_the_daemon) {
  sandbox.configure();
  const ScriptedProgram neighbour(sandbox.root() / "bin/velund", "exit 0");
  const ScriptedProgram named = install_daemon("exit 0");
  RunOptions options;
  options.argument_zero = "bin/velun";
  options.program = copy_tool();
  for (const Words& words : {Words{"start"}, Words{"restart"}, Words{"mode", "protect"}}) {
    const std::size_t before = neighbour.runs().size();
    EXPECT_EQ(sandbox.velun(words, options).status, 1);
    ASSERT_EQ(neighbour.runs().size(), before + 1) << words[0];
    EXPECT_EQ(neighbour.runs().back().argv[0], neighbour.path());
  }
  EXPECT_EQ(named.runs().size(), 0U);
}

TEST_F(Commands, only_setup_reads_standard_input) {
  sandbox.configure();
  const ScriptedProgram daemon = install_daemon("exit 0");
  const ScriptedProgram curl = install_curl(sandbox, "exit 22");
  write_file(sandbox.root() / "answers", "off\nnone\n");
  const int input = open((sandbox.root() / "answers").c_str(), O_RDONLY | O_CLOEXEC);
  RunOptions options;
  options.in_child = [input] { dup2(input, 0); };
  Words words = configured_commands;
  words.insert(words.end(), {"help", "--help", "-h", "nonsense", ""});
  for (const std::string& word : words) {
    sandbox.velun({word, word == "model" ? "fetch" : "off"}, options);
    EXPECT_EQ(lseek(input, 0, SEEK_CUR), 0) << word;
  }
  sandbox.velun({"setup"}, options);
  EXPECT_GT(lseek(input, 0, SEEK_CUR), 0);
  close(input);
}

}  // namespace
}  // namespace velun::test
