#include "cli/commands.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/dialogue.h"
#include "tests/support/lifecycle.h"

namespace velun::test {
namespace {

using Words = std::vector<std::string>;

// Every word of the table that needs a configuration.
const Words configured_commands = {"start", "stop",   "restart", "status", "stats",
                                   "log",   "config", "model",   "mode"};

const Words unknown_words = {
    "",        "Start",   "START",   "starts",    "star",    "start ", " start", "\tstop",
    "stop\n",  "Setup",   "Help",    "HELP",      "--Help",  "-H",     "-help",  "--verbose",
    "-v",      "-",       "--",      "--version", "version", "velun",  "fetch",  "list",
    "off",     "protect", "topics",  "--setup",   "--start", "`",      "a b",    "\xff\xfe",
    "model\r", "log.",    "statuss", "stat",      "configs", "modes"};

// Every command with as many words as it reads. Done again, each says the same again in a home
// where nothing runs and no download succeeds.
const std::vector<Words> commands_in_full = {{"start"},
                                             {"stop"},
                                             {"restart"},
                                             {"status"},
                                             {"stats"},
                                             {"log"},
                                             {"config"},
                                             {"mode", "off"},
                                             {"model", "list"},
                                             {"model", "use", "x"},
                                             {"model", "fetch", "full"},
                                             {"model", "fetch", "compact"},
                                             {"setup"},
                                             {"help", "modes"},
                                             {"help", "mode"},
                                             {"--help", ""},
                                             {"nonsense"},
                                             {""}};

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

TEST_F(Commands, each_word_reaches_its_handler_while_nothing_runs) {
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

TEST_F(Commands, each_word_reaches_its_handler_while_a_daemon_answers) {
  sandbox.configure();
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(200, "{}"); });
  expect({"start"}, 0, "already running on control port " + port_text() + "\n", "");
  expect({"stop"}, 1, "", foreign_text());
  expect({"restart"}, 1, "", foreign_text());
  expect({"status"}, 0, "mode:      ?\ndashboard: http://127.0.0.1:" + port_text() + "/\n", "");
  expect({"stats"}, 0,
         "requests:            0\nentities protected:  0\nblocked requests:    0\n"
         "cost (list prices):  $0\n",
         "");
  expect({"log"}, 0, "no requests yet (the transcript is RAM-only and empties on restart)\n", "");
  expect({"mode", "watch"}, 1, sandbox.wrote(), foreign_text());
  EXPECT_EQ(control.paths(),
            Words({"/healthz", "/healthz", "/healthz", "/healthz", "/v1/status", "/healthz",
                   "/v1/stats", "/healthz", "/v1/transcript", "/healthz", "/healthz"}));
}

TEST_F(Commands, setup_reaches_the_dialogue) {
  expect({"setup"}, 0, dialogue(sandbox.config_file()), "");
}

TEST_F(Commands, the_status_of_a_handler_is_the_exit_status) {
  sandbox.configure("model_dir: /no/such/bundle\n");
  expect({"start"}, 1, "",
         "model_dir does not exist: /no/such/bundle\n"
         "`velun help model` explains how to get a model.\n");
  expect({"model", "use", " x "}, 1, "", "no bundle at  x  — `velun model list`\n");
  expect({"model", " list"}, 2, "", "usage: velun model [list|fetch [compact]|use <id>]\n");
  expect({"mode", "off "}, 2, "", "usage: velun mode off|watch|protect\n");
}

TEST_F(Commands, any_other_word_is_unknown_and_ends_with_2) {
  sandbox.configure();
  for (const std::string& word : unknown_words) {
    expect({word}, 2, "", unknown_message(word));
  }
}

TEST_F(Commands, without_a_configuration_every_other_command_says_so_and_ends_with_1) {
  const ScriptedProgram daemon = install_daemon("forever");
  for (const std::string& word : configured_commands) {
    expect({word}, 1, "", no_configuration());
  }
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_EQ(names_in(sandbox.home()), Words());
}

TEST_F(Commands, without_a_configuration_an_unknown_word_hears_of_that_first) {
  for (const std::string& word : unknown_words) {
    expect({word}, 1, "", no_configuration());
  }
}

TEST_F(Commands, without_a_configuration_arguments_are_not_looked_at) {
  const ScriptedProgram curl = install_curl(sandbox, "exit 22");
  for (const Words& words :
       {Words{"mode", ""}, Words{"mode", "loud"}, Words{"mode", "off"}, Words{"mode", "watch"},
        Words{"model", "loud"}, Words{"model", "use", "x"}, Words{"model", "fetch"},
        Words{"status", "--help"}}) {
    expect(words, 1, "", no_configuration());
  }
  EXPECT_EQ(curl.runs().size(), 0U);
  EXPECT_EQ(names_in(sandbox.home()), Words());
}

TEST_F(Commands, the_message_names_the_path_that_was_tried) {
  sandbox.configure();
  sandbox.environment["VELUN_CLI_CONFIG"] = "here/it is.yaml";
  expect({"status"}, 1, "", "no configuration at here/it is.yaml — run `velun setup` first\n");
  sandbox.environment["VELUN_CLI_CONFIG"] = "";
  expect({"nonsense"}, 1, "", "no configuration at  — run `velun setup` first\n");
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
  for (const Words& words : commands_in_full) {
    const std::string alone = seen(sandbox.velun(words));
    for (const Words& more : {Words{"config", "--help"}, Words{"compact", "", "off"}}) {
      Words longer = words;
      longer.insert(longer.end(), more.begin(), more.end());
      EXPECT_EQ(seen(sandbox.velun(longer)), alone) << testing::PrintToString(longer);
    }
  }
}

// The neighbour of the tool is found through argument zero alone.
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
  sandbox.configure("mode: off\n");
  write_file(sandbox.root() / "answers", "off\nnone\n");
  const int input = open((sandbox.root() / "answers").c_str(), O_RDONLY | O_CLOEXEC);
  RunOptions options;
  options.in_child = [input] { dup2(input, 0); };
  Words words = configured_commands;
  words.insert(words.end(), {"help", "--help", "-h", "nonsense", ""});
  for (const std::string& word : words) {
    sandbox.velun({word}, options);
    EXPECT_EQ(lseek(input, 0, SEEK_CUR), 0) << word;
  }
  sandbox.velun({"setup"}, options);
  EXPECT_GT(lseek(input, 0, SEEK_CUR), 0);
  close(input);
}

}  // namespace
}  // namespace velun::test
