#include "cli/setup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/bystander.h"
#include "tests/support/dialogue.h"
#include "tests/support/loopback_server.h"
#include "tests/support/scripted_program.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

struct Dialogue {
  std::string content;  // of the file before; empty: none
  std::string input;
  std::vector<std::string> refused;  // answers to the first question
  std::string mode_offer;
  std::string detection_offer;
  std::string mode;  // in the written file
  std::string line;  // of the detection in the written file
};

const std::string model = "model_dir: /data/m\n";
const std::string engine = "endpoint_url: http://engine\n";
const std::string engine_saved = "endpoint_url: \"http://engine\"\n";

const std::vector<Dialogue> dialogues = {
    {"", "off\n/data/m\n", {}, "watch", "none", "off", model},
    {"", "watch\nhttp\n", {}, "watch", "none", "watch", "endpoint_url: http\n"},
    {"", "protect\nhttp\n", {}, "watch", "none", "protect", "endpoint_url: http\n"},
    {"", "protect\n/data/m\n", {}, "watch", "none", "protect", model},
    // An input that ends early takes the offers.
    {"", "", {}, "watch", "none", "watch", ""},
    {engine, "off\n", {}, "watch", "http://engine", "off", engine_saved},
    {"", "quiet", {"quiet"}, "watch", "none", "watch", ""},
    // A last line without its newline is an answer, and no further line is read.
    {"", "off", {}, "watch", "none", "off", ""},
    {"mode: off\n", "watch\n/data/m", {}, "off", "none", "watch", model},
    {"", "off\nnone\nprotect\nhttp://engine\n", {}, "watch", "none", "off", ""},
    // The values of the file are offered, and kept or replaced.
    {"mode: protect\n" + model, "\n\n", {}, "protect", "/data/m", "protect", model},
    {"mode: protect\n",
     "watch off\n\n/data/m\n",
     {"watch off"},
     "protect",
     "none",
     "protect",
     model},
    {"mode: monitor\n", "\n\n", {}, "watch", "none", "watch", ""},
    {engine, "\n\n", {}, "watch", "http://engine", "watch", engine_saved},
    {model, "\nnone\n", {}, "watch", "/data/m", "watch", ""},
    {engine, "\nnone\n", {}, "watch", "http://engine", "watch", ""},
    {model, "\nhttp://engine\n", {}, "watch", "/data/m", "watch", engine_saved},
    {engine, "\n/data/m\n", {}, "watch", "http://engine", "watch", model},
    // An offer that is taken is treated like a typed answer.
    {"model_dir: none\n", "\n\n", {}, "watch", "none", "watch", ""},
    {"model_dir: httpdocs/m\n",
     "\n\n",
     {},
     "watch",
     "httpdocs/m",
     "watch",
     "endpoint_url: httpdocs/m\n"},
};

class Setup : public SetupDialogue {
 protected:
  void expect(const Dialogue& row) {
    SCOPED_TRACE("a file with:\n" + row.content + "\nthe input:\n" + row.input);
    fs::remove(sandbox.config_file());
    if (!row.content.empty()) {
      give_file(row.content);
    }
    std::string out = greeting;
    for (const std::string& word : row.refused) {
      out += mode_question(row.mode_offer) + refusal(word);
    }
    out += mode_question(row.mode_offer) + detection_question(row.detection_offer) +
           sandbox.wrote() + next_step;
    EXPECT_EQ(seen(given(row.input)), success(out));
    EXPECT_EQ(file(), written(row.mode, row.line));
  }
};

TEST_F(Setup, asks_two_questions_with_offers_and_writes_the_answers) {
  for (const Dialogue& row : dialogues) {
    expect(row);
  }
}

TEST_F(Setup, an_answer_that_is_not_exactly_a_mode_is_refused_and_asked_again) {
  for (const std::string& word :
       {std::string(" watch"), std::string("watch "), std::string("watch\r"), std::string(" "),
        std::string("OFF"), std::string("monitor"), std::string("watchx"), std::string("wat"),
        std::string("\xff\xfe"), std::string("off\0", 4)}) {
    expect({"", word + "\noff\nnone\n", {word}, "watch", "none", "off", ""});
  }
}

TEST_F(Setup, the_mode_is_asked_for_until_an_answer_is_a_mode) {
  std::string input;
  std::vector<std::string> refused;
  for (int i = 0; i < 500; ++i) {
    refused.push_back("no" + std::to_string(i));
    input += refused.back() + "\n";
  }
  expect({"", input + "off\n\n", refused, "watch", "none", "off", ""});
}

// A file with problems, their report, the two offers, and the file that is saved if both are taken.
const std::string faulty_files[][5] = {
    {"mode: loud\n", "  line 1: mode must be off, watch or protect (got `loud`)\n", "watch", "none",
     written("watch")},
    {"mode: protect\nmodel_dir: /data/m\ncontrol_port: 0\nopenai_port: 9002\ncolour: red\n",
     ("  line 5: unknown key `colour`\n"
      "  line 3: control_port must be a port between 1 and 65535\n"),
     "protect", "/data/m",
     ("# Velun CLI configuration. `velun help config` documents every key.\n"
      "mode: protect\nmodel_dir: /data/m\nanthropic_port: 8900\nopenai_port: 9002\n"
      "control_port: 8902\nnames: true\n")},
    {"model_dir: /data/m\nendpoint_url: http://engine\n",
     ("  model_dir and endpoint_url exclude each other — the daemon runs one detection engine per "
      "launch\n"),
     "watch", "/data/m", written("watch", "model_dir: /data/m\n")},
};

TEST_F(Setup, reports_the_problems_of_a_file_and_offers_its_valid_values) {
  for (const auto& [content, problems, mode, detection, saved] : faulty_files) {
    give_file(content);
    EXPECT_EQ(seen(given("\n\n")),
              ended(0, transcript(mode, detection),
                    sandbox.config_file().string() + " has problems:\n" + problems));
    EXPECT_EQ(file(), saved);
  }
}

TEST_F(Setup, a_closed_or_unreadable_input_takes_both_offers) {
  give_file("mode: protect\nmodel_dir: /data/m\n");
  for (const bool closed : {false, true}) {
    RunOptions options;
    options.in_child = [&] { closed ? close(0) : dup2(open("/", O_RDONLY), 0); };
    EXPECT_EQ(seen(sandbox.velun({"setup"}, options)), success(transcript("protect", "/data/m")));
    EXPECT_EQ(file(), written("protect", "model_dir: /data/m\n"));
  }
}

// Answers, each with its line of the written file.
const std::pair<std::string, std::string> detections[] = {
    {"none", ""},
    {"None", "model_dir: None\n"},
    {"none ", "model_dir: \"none \"\n"},
    {" none", "model_dir: \" none\"\n"},
    {"none\r", "model_dir: none\r\n"},
    {" ", "model_dir: \" \"\n"},
    {"/no/such/place", "model_dir: /no/such/place\n"},
    {"C:\\m \"1\" #2", "model_dir: \"C:\\\\m \\\"1\\\" #2\"\n"},
    {"\xff\xfe", "model_dir: \xff\xfe\n"},
    {std::string("a\0b", 3), std::string("model_dir: a\0b\n", 15)},
    {"http://engine:9000", "endpoint_url: \"http://engine:9000\"\n"},
    {"https://engine", "endpoint_url: \"https://engine\"\n"},
    {"httpdocs", "endpoint_url: httpdocs\n"},
    {"http ", "endpoint_url: \"http \"\n"},
    {"http\r", "endpoint_url: http\r\n"},
    {" http://engine", "model_dir: \" http://engine\"\n"},
    {"HTTP://engine", "model_dir: \"HTTP://engine\"\n"},
    {"htt", "model_dir: htt\n"},
    {"ftp://engine", "model_dir: \"ftp://engine\"\n"},
    {"/" + std::string(200000, 'm'), "model_dir: /" + std::string(200000, 'm') + "\n"},
};

TEST_F(Setup, the_first_four_characters_of_an_answer_make_it_a_url_or_a_path) {
  for (const auto& [answer, line] : detections) {
    expect({"", "watch\n" + answer + "\n", {}, "watch", "none", "watch", line});
  }
}

TEST_F(Setup, warns_of_protect_without_detection_and_writes_it) {
  expect_dialogue("protect\nnone\n", transcript("watch", "none", protect_warning),
                  written("protect"));
  // A kept `none` counts like a typed one.
  give_file("mode: protect\nmodel_dir: none\n");
  expect_dialogue("\n\n", transcript("protect", "none", protect_warning), written("protect"));
}

TEST_F(Setup, a_question_is_flushed_before_its_answer_is_read) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  RunOptions options;
  options.in_child = [&] { dup2(ends[0], 0); };
  const pid_t pid = sandbox.start_velun({"setup"}, options);
  close(ends[0]);
  const auto shown = [&](const std::string& text) {
    return eventually([&] { return read_file(sandbox.output_file()) == text; });
  };
  EXPECT_TRUE(shown(greeting + mode_question("watch")));
  EXPECT_EQ(write(ends[1], "off\n", 4), 4);
  EXPECT_TRUE(shown(greeting + mode_question("watch") + detection_question("none")));
  EXPECT_FALSE(fs::exists(sandbox.config_file()));
  close(ends[1]);
  EXPECT_EQ(wait_for(pid, std::chrono::seconds(10)), 0);
  EXPECT_TRUE(shown(transcript("watch", "none")));
}

// script(1) gives velun a terminal and types the key once, as its own input is empty.
TEST_F(Setup, one_end_of_input_key_at_a_terminal_takes_both_offers) {
  RunOptions options;
  options.program = "/usr/bin/script";
  Outcome run = sandbox.velun({"-qec", "'" VELUN_BINARY "' setup", "/dev/null"}, options);
  std::erase(run.out, '\r');
  EXPECT_EQ(seen(run), success(transcript("watch", "none")));
  EXPECT_EQ(file(), written("watch"));
}

TEST_F(Setup, the_keys_that_are_not_asked_about_are_written_back) {
  give_file(
      "# mine\nintercept_port: 9004\nintercept_apps: [claude-desktop, chatgpt]\nnames: no\n"
      "state_dir: '/srv/a b #1'\ncontrol_port: 9003\nopenai_port: 9002\nanthropic_port: 9001\n"
      "mode: watch\n");
  expect_dialogue("off\n/data/m\n", transcript("watch", "none"),
                  "# Velun CLI configuration. `velun help config` documents every key.\n"
                  "mode: off\nmodel_dir: /data/m\n"
                  "anthropic_port: 9001\nopenai_port: 9002\ncontrol_port: 9003\n"
                  "state_dir: \"/srv/a b #1\"\nnames: false\n"
                  "intercept_apps: [claude-desktop, chatgpt]\nintercept_port: 9004\n");
}

TEST_F(Setup, an_unreadable_file_offers_the_defaults_without_a_report) {
  give_file("mode: protect\n");
  fs::permissions(sandbox.config_file(), fs::perms::owner_write);
  RunOptions options;
  options.as_nobody = true;
  EXPECT_EQ(seen(sandbox.velun({"setup"}, options)), success(transcript("watch", "none")));
  fs::permissions(sandbox.config_file(), fs::perms::owner_all);
  EXPECT_EQ(file(), written("watch"));
}

TEST_F(Setup, the_daemon_is_left_alone) {
  sandbox.configure("mode: protect\nmodel_dir: /data/m\n");
  const ScriptedProgram daemon(sandbox.root() / "daemon", "forever");
  sandbox.environment["VELUND"] = daemon.path();
  const Bystander recorded;
  sandbox.write_pid_file(recorded.pid());
  const LoopbackServer control(sandbox.control_port(),
                               [](const std::string&) { return answer(200, "ok"); });
  EXPECT_EQ(given("off\nnone\n").status, 0);
  EXPECT_EQ(control.requests(), std::vector<std::string>());
  EXPECT_EQ(daemon.runs().size(), 0U);
  EXPECT_TRUE(recorded.alive());
  EXPECT_EQ(read_file(sandbox.pid_file()), recorded.pid_text() + "\n");
  EXPECT_EQ(file(), sandbox.rendering("off"));
}

// Label, offer, input, output and return value.
const std::string prompts[][5] = {
    {"Name", "", "y\n", "Name: ", "y"},
    {"Name", "", "", "Name: ", ""},
    {"Name", "x", "\n", "Name [x]: ", "x"},
    {"Name", "x", " y \n", "Name [x]: ", " y "},
    {"Name", "x", "\ty\r\n", "Name [x]: ", "\ty\r"},
    {"Name", " ", " \n", "Name [ ]: ", " "},
    {"", "x", "y\nz\n", " [x]: ", "y"},
};

TEST(PromptValue, shows_label_and_offer_and_returns_the_line_untouched) {
  const Sandbox sandbox;
  for (const auto& [label, offer, input, out, returned] : prompts) {
    write_file(sandbox.root() / "input", input);
    ASSERT_NE(std::freopen((sandbox.root() / "input").c_str(), "r", stdin), nullptr);
    testing::internal::CaptureStdout();
    const std::string answer = prompt_value(label, offer);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), out);
    EXPECT_EQ(answer, returned) << out;
  }
  ASSERT_NE(std::freopen("/dev/null", "r", stdin), nullptr);
}

}  // namespace
}  // namespace velun::test
