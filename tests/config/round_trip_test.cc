#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "config/writer.h"
#include "tests/support/config_text.h"

namespace velun::test {
namespace {

Judged reread(const Config& config) {
  return judge(render_config(config));
}

// Records as the validator makes them, with texts that are mostly made of troublesome characters.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  // Every field by name, so that an eleventh one stops the build instead of going untested.
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
    const Judged judged = reread(config);
    ASSERT_EQ(judged.problems, "") << "seed " << seed << ":\n" << render_config(config);
    ASSERT_EQ(fields_of(judged.config), fields_of(config)) << "seed " << seed;
    ASSERT_EQ(judged.config, config) << "seed " << seed;
  }
}

// Whoever adds a field adds it to the generator as well.
TEST(RoundTrip, is_tried_with_more_than_the_default_of_every_field) {
  std::istringstream defaults(fields_of(Config()));
  for (std::string line; std::getline(defaults, line);) {
    bool varied = false;
    for (unsigned seed = 1; seed <= 100 && !varied; ++seed) {
      varied = ("\n" + fields_of(Generator(seed).config())).find("\n" + line + "\n") ==
               std::string::npos;
    }
    EXPECT_TRUE(varied) << line;
  }
}

TEST(RoundTrip, outer_blanks_tabs_and_text_that_looks_quoted_survive) {
  for (const char* directory : {" /srv/state", "/srv/state ", " ", "\t", "/srv/st\tate", "\t/s\t",
                                "'/srv/state'", "\"/srv/state\"", "'", "\"", "\"\"", "''", "'a"}) {
    Config config;
    config.state_dir = directory;
    EXPECT_EQ(reread(config).problems, "");
    EXPECT_EQ(reread(config).config, config) << directory;
  }
}

TEST(RoundTrip, a_model_and_an_endpoint_read_back_with_the_exclusion_problem) {
  Config config;
  config.model_dir = "/m";
  config.endpoint_url = "http://e";
  EXPECT_EQ(reread(config).problems,
            "model_dir and endpoint_url exclude each other — the daemon runs one detection engine "
            "per launch\n");
  EXPECT_EQ(reread(config).config, config);
}

TEST(RoundTripLoss, an_interception_port_without_apps_is_lost) {
  Config config;
  config.intercept_port = 9104;
  EXPECT_EQ(reread(config).problems, "");
  EXPECT_EQ(reread(config).config, Config());
}

TEST(RoundTripLoss, an_item_with_a_comma_is_split_there) {
  Config config;
  config.intercept_apps = {"a,b", "c, d", ","};
  EXPECT_EQ(reread(config).problems, "");
  EXPECT_EQ(reread(config).config.intercept_apps,
            (std::vector<std::string>{"\"a", "b\"", "\"c", "d\"", "\"", "\""}));
}

TEST(RoundTripLoss, an_empty_item_is_dropped) {
  Config config;
  config.intercept_apps = {"", "a", ""};
  EXPECT_EQ(reread(config).problems, "");
  EXPECT_EQ(reread(config).config.intercept_apps, std::vector<std::string>{"a"});
}

TEST(RoundTripLoss, a_bare_value_loses_one_carriage_return_at_its_end) {
  Config config;
  config.state_dir = "/srv/state\r";
  config.model_dir = "/srv/model\r\r";
  EXPECT_EQ(reread(config).problems, "");
  EXPECT_EQ(reread(config).config.state_dir, "/srv/state");
  EXPECT_EQ(reread(config).config.model_dir, "/srv/model\r");
}

TEST(RoundTripLoss, blanks_before_that_carriage_return_are_lost_with_it) {
  Config config;
  config.state_dir = "/srv/state  \r";
  config.model_dir = "/srv/model \r\r";
  EXPECT_EQ(reread(config).problems, "");
  EXPECT_EQ(reread(config).config.state_dir, "/srv/state");
  EXPECT_EQ(reread(config).config.model_dir, "/srv/model \r");
}

TEST(RoundTripLoss, an_apostrophe_in_a_bare_item_can_hide_a_quote_and_bare_a_comment_sign) {
  Config config;
  config.intercept_apps = {"it's", "Ada's #1"};
  EXPECT_EQ(reread(config).problems, "line 7: unterminated list\n");
  EXPECT_EQ(reread(config).config.intercept_apps, std::vector<std::string>{});
}

TEST(RoundTripLoss, an_apostrophe_in_a_bare_item_can_move_the_end_of_the_quotes) {
  Config config;
  config.intercept_apps = {"a'b", ":'", "#"};
  EXPECT_EQ(reread(config).problems, "line 7: unterminated list\n");
}

TEST(RoundTripLoss, an_apostrophe_in_a_bare_item_often_does_no_harm) {
  Config config;
  config.intercept_apps = {"it's", "all #1", "fine"};
  EXPECT_EQ(reread(config).problems, "");
  EXPECT_EQ(reread(config).config.intercept_apps, config.intercept_apps);
}

}  // namespace
}  // namespace velun::test
