#include "cli/setup.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdio>

#include "tests/support/dialogue.h"
#include "tests/support/terminal.h"

namespace velun::test {
namespace {

TEST_F(SetupDialogue, asks_two_questions_and_writes_the_first_file) {
  expect_dialogue("off\n/data/m\n", transcript("watch", "none"),
                  written("off", "model_dir: /data/m\n"));
}

TEST_F(SetupDialogue, each_mode_word_is_an_answer) {
  for (const std::string mode : {"off", "watch", "protect"}) {
    expect_dialogue(mode + "\nhttp\n", transcript("watch", "none"),
                    written(mode, "endpoint_url: http\n"));
    std::filesystem::remove(sandbox.config_file());
  }
}

TEST_F(SetupDialogue, an_input_without_a_line_takes_both_offers) {
  expect_dialogue("", transcript("watch", "none"), written("watch"));
}

TEST_F(SetupDialogue, a_closed_or_unreadable_input_takes_both_offers) {
  give_file("mode: protect\nmodel_dir: /data/m\n");
  for (const bool closed : {false, true}) {
    RunOptions options;
    options.in_child = [&] { closed ? close(0) : dup2(open("/", O_RDONLY), 0); };
    EXPECT_EQ(seen(sandbox.velun({"setup"}, options)), success(transcript("protect", "/data/m")));
    EXPECT_EQ(file(), written("protect", "model_dir: /data/m\n"));
  }
}

TEST_F(SetupDialogue, an_input_that_ends_behind_the_first_answer_takes_the_second_offer) {
  give_file("endpoint_url: http://engine\n");
  expect_dialogue("off\n", transcript("watch", "http://engine"),
                  written("off", "endpoint_url: \"http://engine\"\n"));
}

TEST_F(SetupDialogue, a_last_line_without_its_newline_is_an_answer) {
  expect_dialogue("off", transcript("watch", "none"), written("off"));
  expect_dialogue("watch\n/data/m", transcript("off", "none"),
                  written("watch", "model_dir: /data/m\n"));
}

TEST_F(SetupDialogue, an_answer_that_is_not_exactly_a_mode_is_refused_and_asked_again) {
  for (const std::string& word :
       {std::string(" watch"), std::string("watch "), std::string("\twatch"),
        std::string("watch\t"), std::string("watch\r"), std::string("\r"), std::string(" "),
        std::string("Watch"), std::string("OFF"), std::string("Protect"), std::string("monitor"),
        std::string("none"), std::string("off|watch"), std::string("watchx"), std::string("wat"),
        std::string("`"), std::string("\xff\xfe"), std::string("off\0", 4)}) {
    expect_dialogue(word + "\noff\nnone\n",
                    greeting + mode_question("watch") + refusal(word) + mode_question("watch") +
                        detection_question("none") + sandbox.wrote() + next_step,
                    written("off"));
    std::filesystem::remove(sandbox.config_file());
  }
}

TEST_F(SetupDialogue, a_refused_answer_leaves_the_offer_as_it_was) {
  give_file("mode: protect\n");
  expect_dialogue("watch off\n\n/data/m\n",
                  greeting + mode_question("protect") + refusal("watch off") +
                      mode_question("protect") + detection_question("none") + sandbox.wrote() +
                      next_step,
                  written("protect", "model_dir: /data/m\n"));
}

TEST_F(SetupDialogue, the_mode_is_asked_for_as_often_as_it_takes) {
  std::string input;
  std::string out = greeting;
  for (int i = 0; i < 500; ++i) {
    input += "no" + std::to_string(i) + "\n";
    out += mode_question("watch") + refusal("no" + std::to_string(i));
  }
  out += mode_question("watch") + detection_question("none") + sandbox.wrote() + next_step;
  expect_dialogue(input + "off\n\n", out, written("off"));
}

TEST_F(SetupDialogue, an_input_that_ends_behind_a_refused_answer_takes_the_offer) {
  expect_dialogue("quiet",
                  greeting + mode_question("watch") + refusal("quiet") + mode_question("watch") +
                      detection_question("none") + sandbox.wrote() + next_step,
                  written("watch"));
}

struct Detection {
  std::string answer;
  std::string line;  // of the written file
};

const std::vector<Detection> detections = {
    {"none", ""},
    {"None", "model_dir: None\n"},
    {"NONE", "model_dir: NONE\n"},
    {"none ", "model_dir: \"none \"\n"},
    {" none", "model_dir: \" none\"\n"},
    {"none\r", "model_dir: none\r\n"},
    {"`none`", "model_dir: `none`\n"},
    {"off", "model_dir: off\n"},
    {" ", "model_dir: \" \"\n"},
    {"\t", "model_dir: \"\\t\"\n"},
    {"/data/m", "model_dir: /data/m\n"},
    {"/no/such/place", "model_dir: /no/such/place\n"},
    {"a bundle", "model_dir: a bundle\n"},
    {"C:\\m \"1\" #2", "model_dir: \"C:\\\\m \\\"1\\\" #2\"\n"},
    {"\xff\xfe", "model_dir: \xff\xfe\n"},
    {std::string("a\0b", 3), std::string("model_dir: a\0b\n", 15)},
    {"http://engine:9000", "endpoint_url: \"http://engine:9000\"\n"},
    {"https://engine", "endpoint_url: \"https://engine\"\n"},
    {"http", "endpoint_url: http\n"},
    {"httpdocs", "endpoint_url: httpdocs\n"},
    {"http ", "endpoint_url: \"http \"\n"},
    {"http\r", "endpoint_url: http\r\n"},
    {" http://engine", "model_dir: \" http://engine\"\n"},
    {"HTTP://engine", "model_dir: \"HTTP://engine\"\n"},
    {"HTTP", "model_dir: HTTP\n"},
    {"Http", "model_dir: Http\n"},
    {"htt", "model_dir: htt\n"},
    {"htt p", "model_dir: htt p\n"},
    {"ftp://engine", "model_dir: \"ftp://engine\"\n"},
};

TEST_F(SetupDialogue, the_detection_answer_is_told_apart_by_its_first_four_characters) {
  for (const Detection& row : detections) {
    expect_dialogue("watch\n" + row.answer + "\n", transcript("watch", "none"),
                    written("watch", row.line));
    std::filesystem::remove(sandbox.config_file());
  }
}

TEST_F(SetupDialogue, a_long_answer_is_kept_whole) {
  const std::string path = "/" + std::string(200000, 'm');
  EXPECT_EQ(given("watch\n" + path + "\n").status, 0);
  EXPECT_EQ(file(), written("watch", "model_dir: " + path + "\n"));
}

TEST_F(SetupDialogue, protect_without_detection_is_warned_about_and_written) {
  expect_dialogue("protect\nnone\n", transcript("watch", "none", protect_warning),
                  written("protect"));
}

TEST_F(SetupDialogue, protect_with_either_detection_is_not_warned_about) {
  EXPECT_EQ(given("protect\n/data/m\n").out, transcript("watch", "none"));
  expect_dialogue("protect\nhttp://engine\n", transcript("protect", "/data/m"),
                  written("protect", "endpoint_url: \"http://engine\"\n"));
}

TEST_F(SetupDialogue, lines_behind_the_two_answers_are_not_read) {
  expect_dialogue("off\nnone\nprotect\nhttp://engine\n", transcript("watch", "none"),
                  written("off"));
}

TEST_F(SetupDialogue, a_question_is_out_before_its_answer_is_read) {
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
  EXPECT_FALSE(std::filesystem::exists(sandbox.config_file()));
  close(ends[1]);
  EXPECT_EQ(wait_for(pid, std::chrono::seconds(10)), 0);
  EXPECT_TRUE(shown(transcript("watch", "none")));
}

// Answers and questions as the cursor meets them.
class SetupOnATerminal : public SetupDialogue {
 protected:
  Terminal terminal;

  pid_t begin(const std::function<void()>& prepare = [] {}) {
    RunOptions options;
    options.in_child = [prepare, take_streams = terminal.as_streams()] {
      take_streams();
      prepare();
    };
    return sandbox.start_velun({"setup"}, options);
  }

  void expect_success(pid_t pid) { EXPECT_EQ(wait_for(pid, std::chrono::seconds(10)), 0); }

  /// The text as the terminal shows it.
  static std::string shown(const std::string& text) {
    std::string result;
    for (const char c : text) {
      result += c == '\n' ? "\r\n" : std::string(1, c);
    }
    return result;
  }
};

TEST_F(SetupOnATerminal, the_cursor_waits_behind_each_question) {
  const pid_t pid = begin();
  ASSERT_TRUE(terminal.shows(mode_question("watch")));
  EXPECT_EQ(terminal.screen(), shown(greeting) + mode_question("watch"));
  terminal.type("protect\n");
  ASSERT_TRUE(terminal.shows(detection_question("none")));
  terminal.type("none\n");
  EXPECT_EQ(terminal.screen_at_the_end(),
            shown(greeting + mode_question("watch") + "protect\n" + detection_question("none") +
                  "none\n" + protect_warning + sandbox.wrote() + next_step));
  expect_success(pid);
  EXPECT_EQ(file(), written("protect"));
}

TEST_F(SetupOnATerminal, the_end_of_input_key_takes_the_offers) {
  const pid_t pid = begin();
  ASSERT_TRUE(terminal.shows(mode_question("watch")));
  terminal.type("\x04");
  EXPECT_EQ(terminal.screen_at_the_end(), shown(transcript("watch", "none")));
  expect_success(pid);
  EXPECT_EQ(file(), written("watch"));
}

// The bare file name leaves nothing to be done before the save, at which velun is ended here.
TEST_F(SetupOnATerminal, the_end_of_input_leaves_no_question_unseen) {
  sandbox.environment["VELUN_CLI_CONFIG"] = "velun.yaml";
  const pid_t pid = begin([] {
    const rlimit no_files{0, 0};
    setrlimit(RLIMIT_FSIZE, &no_files);
    signal(SIGXFSZ, SIG_DFL);
  });
  ASSERT_TRUE(terminal.shows(mode_question("watch")));
  terminal.type("\x04");
  EXPECT_EQ(terminal.screen_at_the_end(),
            shown(greeting) + mode_question("watch") + detection_question("none"));
  EXPECT_EQ(wait_for(pid, std::chrono::seconds(10)) & 0x7f, SIGXFSZ);
}

struct Prompt {
  std::string label;
  std::string fallback;
  std::string input;
  std::string out;
  std::string answer;
};

const std::vector<Prompt> prompts = {
    {"Name", "x", "y\n", "Name [x]: ", "y"},
    {"Name", "", "y\n", "Name: ", "y"},
    {"Name", "", "\n", "Name: ", ""},
    {"Name", "", "", "Name: ", ""},
    {"Name", "x", "\n", "Name [x]: ", "x"},
    {"Name", "x", "", "Name [x]: ", "x"},
    {"Name", "x", "y", "Name [x]: ", "y"},
    {"Name", "x", " y \n", "Name [x]: ", " y "},
    {"Name", "x", "\ty\r\n", "Name [x]: ", "\ty\r"},
    {"Name", "x", "\r\n", "Name [x]: ", "\r"},
    {"Name", " ", " \n", "Name [ ]: ", " "},
    {"", "x", "y\nz\n", " [x]: ", "y"},
};

TEST(PromptValue, shows_label_and_offer_and_returns_the_line_untouched) {
  const Sandbox sandbox;
  for (const Prompt& row : prompts) {
    write_file(sandbox.root() / "input", row.input);
    ASSERT_NE(std::freopen((sandbox.root() / "input").c_str(), "r", stdin), nullptr);
    testing::internal::CaptureStdout();
    const std::string answer = prompt_value(row.label, row.fallback);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), row.out);
    EXPECT_EQ(answer, row.answer) << row.out;
  }
  ASSERT_NE(std::freopen("/dev/null", "r", stdin), nullptr);
}

}  // namespace
}  // namespace velun::test
