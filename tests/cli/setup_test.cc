#include "cli/setup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/dialogue.h"

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
    // The file's values are offered, and kept or replaced.
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

TEST_F(SetupDialogue, asks_two_questions_with_offers_and_writes_the_answers) {
  for (const Dialogue& row : dialogues) {
    SCOPED_TRACE("a file with:\n" + row.content);
    std::filesystem::remove(sandbox.config_file());
    if (!row.content.empty()) {
      give_file(row.content);
    }
    std::string out = greeting;
    for (const std::string& word : row.refused) {
      out += mode_question(row.mode_offer) + refusal(word);
    }
    out += mode_question(row.mode_offer) + detection_question(row.detection_offer) +
           sandbox.wrote() + next_step;
    expect_dialogue(row.input, out, written(row.mode, row.line));
  }
}

TEST_F(SetupDialogue, offers_watch_in_the_place_of_a_word_that_is_no_mode) {
  give_file("mode: loud\n");
  EXPECT_EQ(
      seen(given("\n\n")),
      ended(0, transcript("watch", "none"),
            sandbox.config_file().string() +
                " has problems:\n  line 1: mode must be off, watch or protect (got `loud`)\n"));
  EXPECT_EQ(file(), written("watch"));
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

TEST_F(SetupDialogue, an_answer_that_is_not_exactly_a_mode_is_refused_and_asked_again) {
  for (const std::string& word :
       {std::string(" watch"), std::string("watch "), std::string("watch\r"), std::string(" "),
        std::string("OFF"), std::string("monitor"), std::string("watchx"), std::string("wat"),
        std::string("\xff\xfe"), std::string("off\0", 4)}) {
    expect_dialogue(word + "\noff\nnone\n",
                    greeting + mode_question("watch") + refusal(word) + mode_question("watch") +
                        detection_question("none") + sandbox.wrote() + next_step,
                    written("off"));
    std::filesystem::remove(sandbox.config_file());
  }
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

TEST_F(SetupDialogue, the_detection_answer_is_told_apart_by_its_first_four_characters) {
  for (const auto& [answer, line] : detections) {
    expect_dialogue("watch\n" + answer + "\n", transcript("watch", "none"), written("watch", line));
    std::filesystem::remove(sandbox.config_file());
  }
}

TEST_F(SetupDialogue, protect_without_detection_is_warned_about_and_written) {
  expect_dialogue("protect\nnone\n", transcript("watch", "none", protect_warning),
                  written("protect"));
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

// script(1) gives velun a terminal and types the key once, as its own input is empty.
TEST_F(SetupDialogue, one_end_of_input_key_at_a_terminal_takes_both_offers) {
  RunOptions options;
  options.program = "/usr/bin/script";
  Outcome run = sandbox.velun({"-qec", "'" VELUN_BINARY "' setup", "/dev/null"}, options);
  std::erase(run.out, '\r');
  EXPECT_EQ(seen(run), success(transcript("watch", "none")));
  EXPECT_EQ(file(), written("watch"));
}

// Label, offer, input, what is shown and what is returned.
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
