#include "config/writer.h"

#include <gtest/gtest.h>

#include "tests/support/config_text.h"

namespace velun::test {
namespace {

// Tests compare what is read back with what was written: a key that did not count would be lost
// unseen.
TEST(ConfigRecord, differs_from_another_by_each_of_its_keys) {
  std::vector<Config> others(10);
  others[0].mode = "off";
  others[1].model_dir = "/m";
  others[2].endpoint_url = "https://e";
  others[3].anthropic_port = 1;
  others[4].openai_port = 1;
  others[5].control_port = 1;
  others[6].state_dir = "/s";
  others[7].names = false;
  others[8].intercept_apps = {"a"};
  others[9].intercept_port = 1;
  EXPECT_EQ(Config(), Config());
  for (const Config& other : others) {
    EXPECT_NE(Config(), other) << render_config(other);
  }
}

TEST(Rendering, of_the_defaults_is_six_lines) {
  EXPECT_EQ(render_config(Config()),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: watch\n"
            "anthropic_port: 8900\n"
            "openai_port: 8901\n"
            "control_port: 8902\n"
            "names: true\n");
}

TEST(Rendering, of_a_full_record_has_a_fixed_order_of_lines) {
  Config config;
  config.mode = "protect";
  config.model_dir = "/srv/model";
  config.endpoint_url = "https://engine.example:8443/v1";
  config.anthropic_port = 1;
  config.openai_port = 65535;
  config.control_port = 9103;
  config.state_dir = "/srv/state";
  config.names = false;
  config.intercept_apps = {"claude-desktop", "chatgpt"};
  config.intercept_port = 9104;
  EXPECT_EQ(render_config(config),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: protect\n"
            "model_dir: /srv/model\n"
            "endpoint_url: \"https://engine.example:8443/v1\"\n"
            "anthropic_port: 1\n"
            "openai_port: 65535\n"
            "control_port: 9103\n"
            "state_dir: /srv/state\n"
            "names: false\n"
            "intercept_apps: [claude-desktop, chatgpt]\n"
            "intercept_port: 9104\n");
}

TEST(Rendering, shows_each_optional_key_only_when_it_is_set) {
  const std::string head = "# Velun CLI configuration. `velun help config` documents every key.\n";
  const std::string ports = "anthropic_port: 8900\nopenai_port: 8901\ncontrol_port: 8902\n";
  Config model;
  model.model_dir = "/m";
  EXPECT_EQ(render_config(model), head + "mode: watch\nmodel_dir: /m\n" + ports + "names: true\n");
  Config endpoint;
  endpoint.endpoint_url = "http";
  EXPECT_EQ(render_config(endpoint),
            head + "mode: watch\nendpoint_url: http\n" + ports + "names: true\n");
  Config state;
  state.state_dir = "/s";
  EXPECT_EQ(render_config(state), head + "mode: watch\n" + ports + "state_dir: /s\nnames: true\n");
}

TEST(Rendering, shows_the_interception_port_only_together_with_apps) {
  Config config;
  config.intercept_port = 9104;
  EXPECT_EQ(render_config(config), render_config(Config()));
  config.intercept_apps = {"chatgpt"};
  EXPECT_EQ(render_config(config),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: watch\nanthropic_port: 8900\nopenai_port: 8901\ncontrol_port: 8902\n"
            "names: true\nintercept_apps: [chatgpt]\nintercept_port: 9104\n");
}

TEST(Rendering, shows_mode_as_it_stands_and_numbers_as_plain_decimals) {
  Config config;
  config.mode = "a \"b\": #c";
  config.anthropic_port = -2147483647 - 1;
  config.openai_port = 0;
  config.control_port = 2147483647;
  EXPECT_EQ(render_config(config),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: a \"b\": #c\nanthropic_port: -2147483648\nopenai_port: 0\n"
            "control_port: 2147483647\nnames: true\n");
}

TEST(Rendering, quotes_every_item_of_a_list_by_itself) {
  Config config;
  config.intercept_apps = {"a b", "", "c,d", " e", "f's"};
  EXPECT_EQ(render_config(config),
            "# Velun CLI configuration. `velun help config` documents every key.\n"
            "mode: watch\nanthropic_port: 8900\nopenai_port: 8901\ncontrol_port: 8902\n"
            "names: true\nintercept_apps: [a b, \"\", \"c,d\", \" e\", f's]\n"
            "intercept_port: 8903\n");
}

void expect_quoted(const std::vector<TextCase>& rows) {
  for (const TextCase& row : rows) {
    EXPECT_EQ(quote_value(std::string(row.text)), row.expected) << "for '" << row.text << "'";
  }
}

TEST(QuoteValue, writes_the_empty_text_as_two_quotes) {
  expect_quoted({{"", "\"\""}});
}

TEST(QuoteValue, leaves_text_bare_that_the_reader_takes_bare) {
  for (const char* text : {"a",      "/srv/model", "/home/ada/my models/m",
                           "it's",   "a'",         "a[b",
                           "a]",     "]",          "x[0]",
                           "{a}",    "- a",        "~",
                           "null",   "a\rb",       "a\r",
                           "\ra",    "\v",         "\xc3\xa4\xff",
                           "a=b;c",  "$HOME",      "`a`",
                           "*",      "!a",         "&a",
                           "%a",     "@a",         "?",
                           "|",      ">",          "\xc2\xa0",
                           "monitor"}) {
    EXPECT_EQ(quote_value(text), text);
  }
}

TEST(QuoteValue, quotes_a_space_at_either_end) {
  expect_quoted({{" a", "\" a\""},
                 {"a ", "\"a \""},
                 {" ", "\" \""},
                 {"  ", "\"  \""},
                 {" a b ", "\" a b \""}});
}

TEST(QuoteValue, quotes_a_first_character_that_means_something) {
  expect_quoted({{"'", "\"'\""},
                 {"'a'", "\"'a'\""},
                 {"[", "\"[\""},
                 {"[a]", "\"[a]\""},
                 {"\"a", R"("\"a")"},
                 {"\"", R"("\"")"}});
}

TEST(QuoteValue, quotes_a_character_that_means_something_anywhere) {
  expect_quoted({{"a\tb", R"("a\tb")"},
                 {"\t", R"("\t")"},
                 {"a\t", R"("a\t")"},
                 {"a\nb", R"("a\nb")"},
                 {"a\n", R"("a\n")"},
                 {"a\"b", R"("a\"b")"},
                 {"a\"", R"("a\"")"},
                 {"a#b", R"("a#b")"},
                 {"#", R"("#")"},
                 {"a,b", R"("a,b")"},
                 {"a:b", R"("a:b")"},
                 {"a:", R"("a:")"},
                 {"a\\b", R"("a\\b")"},
                 {"\\", R"("\\")"},
                 {"http://127.0.0.1:8080", R"("http://127.0.0.1:8080")"}});
}

TEST(QuoteValue, escapes_four_characters_and_no_other) {
  expect_quoted({{"\\\"\n\t", R"("\\\"\n\t")"},
                 {"\\n", R"("\\n")"},
                 {":'[]\r\v\x01\xff", "\":'[]\r\v\x01\xff\""},
                 {std::string_view("a\0:", 3), std::string_view("\"a\0:\"", 5)}});
}

}  // namespace
}  // namespace velun::test
