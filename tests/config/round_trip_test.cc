#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "config/writer.h"
#include "tests/support/config_text.h"

namespace velun::test {
namespace {

// Records as the validator makes them, with texts that are mostly made of troublesome characters.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  // Every field by name, so that a new one stops the build instead of going untested.
  Config config() {
    Config result;
    auto& [mode, model_dir, endpoint_url, anthropic_port, openai_port, control_port, state_dir,
           names, intercept_apps, intercept_port] = result;
    mode = pick({"off", "watch", "protect"});
    for (int* port : {&anthropic_port, &openai_port, &control_port}) {
      *port = number(1, 65535);
    }
    names = number(0, 1) == 1;
    state_dir = scalar("");
    switch (number(0, 2)) {
      case 0:
        model_dir = scalar("");
        break;
      case 1:
        endpoint_url = scalar("http");
        break;
      default:
        break;
    }
    if (number(0, 1) == 1) {
      intercept_apps = items();
      intercept_port = number(1, 65535);
    }
    return result;
  }

 private:
  int number(int low, int high) { return std::uniform_int_distribution(low, high)(random_); }

  std::string pick(const std::vector<std::string>& choices) {
    return choices[static_cast<std::size_t>(number(0, static_cast<int>(choices.size()) - 1))];
  }

  std::string text(const std::string& beginning, const std::vector<std::string>& pieces) {
    std::string result = beginning;
    for (int left = number(beginning.empty() ? 1 : 0, 8); left > 0; --left) {
      result += pick(pieces);
    }
    return result;
  }

  // A carriage return at the end of a bare value is lost, so there is always something behind one.
  std::string scalar(const std::string& beginning) {
    return text(beginning,
                {" ",   "\t", "\n",   "\"",  "'",  "\\", "#", ",",        ":",    "[",   "]",
                 "\ra", "a",  "/srv", "\\n", ": ", " #", "-", "\xc3\xa4", "\xff", "\x01"});
  }

  // An apostrophe in a bare item can hide a later "#" or quote, so a list has one or the other, or
  // a character in every item that calls for quotes.
  std::vector<std::string> items() {
    const std::vector<std::string> apostrophes = {" ", "\t", "\n", "'", "\\", ":",   "[",
                                                  "]", "\r", "a",  "-", "\"", "\xff"};
    const std::vector<std::string> comments = {" ", "\t", "\n", "#", "\\", ":",   "[",
                                               "]", "\r", "a",  "-", "\"", "\xff"};
    const std::vector<std::string> both = {"'", "#", "a", " ", "\\", "\"", "'#", "\n"};
    const int kind = number(0, 2);
    std::vector<std::string> result;
    for (int left = number(1, 5); left > 0; --left) {
      result.push_back(kind == 0   ? text("", apostrophes)
                       : kind == 1 ? text("", comments)
                                   : text(":", both));
    }
    return result;
  }

  std::mt19937 random_;
};

TEST(RoundTrip, a_rendered_record_reads_back_to_the_same_record) {
  for (unsigned seed = 1; seed <= 5000; ++seed) {
    const Config config = Generator(seed).config();
    const Judged judged = judge(render_config(config));
    ASSERT_EQ(judged.problems, "") << "seed " << seed << ":\n" << render_config(config);
    ASSERT_EQ(fields_of(judged.config), fields_of(config)) << "seed " << seed;
  }
}

// Whoever adds a field adds it to the generator as well.
TEST(RoundTrip, is_tried_with_more_than_the_default_of_every_field) {
  std::string changed;
  for (unsigned seed = 1; seed <= 100; ++seed) {
    changed += "\n" + changed_fields_of(Generator(seed).config());
  }
  std::istringstream fields(fields_of(Config()));
  for (std::string field; std::getline(fields, field);) {
    EXPECT_NE(changed.find("\n" + field.substr(0, field.find('=') + 1)), std::string::npos)
        << field;
  }
}

TEST(RoundTrip, outer_blanks_tabs_and_text_that_looks_quoted_survive) {
  for (const char* directory : {" /srv/state", "/srv/state ", " ", "\t", "/srv/st\tate", "\t/s\t",
                                "'/srv/state'", "\"/srv/state\"", "'", "\"", "\"\"", "''", "'a"}) {
    Config config;
    config.state_dir = directory;
    EXPECT_EQ(judgement_of(render_config(config)), changed_fields_of(config));
  }
}

TEST(RoundTripLoss, of_an_interception_port_without_apps) {
  Config config;
  config.intercept_port = 9104;
  EXPECT_EQ(judgement_of(render_config(config)), "");
}

TEST(RoundTripLoss, of_a_carriage_return_at_the_end_of_a_bare_value_with_the_blanks_before_it) {
  const TextCase rows[] = {
      {"/s\r", "/s"}, {"/s\r\r", "/s\r"}, {"/s  \r", "/s"}, {"/s \r\r", "/s \r"}};
  for (const TextCase& row : rows) {
    Config config;
    config.state_dir = row.text;
    EXPECT_EQ(judgement_of(render_config(config)), "state_dir=" + std::string(row.expected) + "\n");
  }
}

// The items of a list, and what becomes of it: a comma splits, an empty item is dropped, and an
// apostrophe in a bare item can hide a quote or bare a comment sign behind it, but often does no
// harm.
TEST(RoundTripLoss, of_items_with_commas_of_empty_ones_and_by_apostrophes) {
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"a,b", "c, d", ","},
       R"(intercept_apps="a|b"|"c|d"|"|")"
       "\n"},
      {{"", "a", ""}, "intercept_apps=a\n"},
      {{"it's", "Ada's #1"}, "! line 7: unterminated list\n"},
      {{"a'b", ":'", "#"}, "! line 7: unterminated list\n"},
      {{"it's", "all #1", "fine"}, "intercept_apps=it's|all #1|fine\n"}};
  for (const auto& [items, judgement] : rows) {
    Config config;
    config.intercept_apps = items;
    EXPECT_EQ(judgement_of(render_config(config)), judgement);
  }
}

}  // namespace
}  // namespace velun::test
