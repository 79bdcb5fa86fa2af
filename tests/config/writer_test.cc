#include "config/writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tests/support/config_text.h"

namespace velun::test {
namespace {

const std::string head = "# Velun CLI configuration. `velun help config` documents every key.\n";

TEST(Rendering, of_a_full_record_has_a_line_for_every_key_in_a_fixed_order) {
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
  const std::string text = render_config(config);
  EXPECT_EQ(text, head +
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
  EXPECT_EQ(changed_fields_of(config), fields_of(config)) << "a key is not set above";
  const std::string fields = fields_of(config);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'),
            std::count(fields.begin(), fields.end(), '\n') + 1)
      << "a key is not written";
}

// The rendering of the defaults after `change`.
std::string rendering_with(const std::function<void(Config&)>& change) {
  Config config;
  change(config);
  return render_config(config);
}

TEST(Rendering, leaves_out_each_optional_key_that_is_not_set) {
  const std::string ports = "anthropic_port: 8900\nopenai_port: 8901\ncontrol_port: 8902\n";
  EXPECT_EQ(render_config(Config()), head + "mode: watch\n" + ports + "names: true\n");
  EXPECT_EQ(rendering_with([](Config& config) { config.model_dir = "/m"; }),
            head + "mode: watch\nmodel_dir: /m\n" + ports + "names: true\n");
  EXPECT_EQ(rendering_with([](Config& config) { config.endpoint_url = "http"; }),
            head + "mode: watch\nendpoint_url: http\n" + ports + "names: true\n");
  EXPECT_EQ(rendering_with([](Config& config) { config.state_dir = "/s"; }),
            head + "mode: watch\n" + ports + "state_dir: /s\nnames: true\n");
  EXPECT_EQ(rendering_with([](Config& config) { config.intercept_apps = {"chatgpt"}; }),
            head + "mode: watch\n" + ports +
                "names: true\nintercept_apps: [chatgpt]\nintercept_port: 8903\n");
  EXPECT_EQ(rendering_with([](Config& config) { config.intercept_port = 9104; }),
            render_config(Config()));
}

TEST(Rendering, quotes_each_item_of_a_list_separately_and_never_the_mode) {
  EXPECT_EQ(rendering_with([](Config& config) {
              config.mode = "a \"b\": #c";
              config.intercept_apps = {"a b", "", "c,d", " e", "f's"};
            }),
            head +
                "mode: a \"b\": #c\nanthropic_port: 8900\nopenai_port: 8901\ncontrol_port: 8902\n"
                "names: true\nintercept_apps: [a b, \"\", \"c,d\", \" e\", f's]\n"
                "intercept_port: 8903\n");
}

TEST(QuoteValue, leaves_most_text_bare_if_the_reader_takes_it_bare) {
  for (const char* text :
       {"a",  "/a b/c", "it's",    "a'",  "a[b", "a]",           "]",     "{a}", "- a",
        "~",  "a\rb",   "a\r",     "\ra", "\v",  "\xc3\xa4\xff", "$HOME", "`a`", "*",
        "!a", "|",      "\xc2\xa0"}) {
    EXPECT_EQ(quote_value(text), text);
  }
}

TEST(QuoteValue, quotes_text_that_might_be_read_as_something_else) {
  const TextCase rows[] = {
      {"", "\"\""},
      // a space at either end
      {" a", "\" a\""},
      {"a ", "\"a \""},
      {" ", "\" \""},
      // a first character that means something
      {"'", "\"'\""},
      {"'a'", "\"'a'\""},
      {"[", "\"[\""},
      {"\"a", R"("\"a")"},
      // a character that means something anywhere
      {"a\tb", R"("a\tb")"},
      {"a\n", R"("a\n")"},
      {"a\"", R"("a\"")"},
      {"a#b", R"("a#b")"},
      {"a,b", R"("a,b")"},
      {"a:", R"("a:")"},
      {"\\", R"("\\")"},
      {"http://127.0.0.1:8080", R"("http://127.0.0.1:8080")"},
      // only four characters have escapes
      {"\\\"\n\t", R"("\\\"\n\t")"},
      {"\\n", R"("\\n")"},
      {":'[]\r\v\x01\xff", "\":'[]\r\v\x01\xff\""},
      {std::string_view("a\0:", 3), std::string_view("\"a\0:\"", 5)},
  };
  for (const TextCase& row : rows) {
    EXPECT_EQ(quote_value(std::string(row.text)), row.expected) << "for '" << row.text << "'";
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

// A comma splits, and an empty item is dropped. An apostrophe in a bare item can hide a quote
// behind it or let a "#" begin a comment, but often does no harm.
TEST(RoundTripLoss, of_items_that_are_empty_or_hold_a_comma_or_an_apostrophe) {
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
