#include "config/validator.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/config_text.h"

namespace velun::test {
namespace {

const std::string exclusion =
    "! model_dir and endpoint_url exclude each other — the daemon runs one detection engine per "
    "launch\n";

TEST(Validator, an_empty_file_gives_the_defaults) {
  Problems problems;
  EXPECT_EQ(fields_of(validate_config({}, problems)),
            "mode=watch\nmodel_dir=\nendpoint_url=\nanthropic_port=8900\nopenai_port=8901\n"
            "control_port=8902\nstate_dir=\nnames=true\nintercept_apps=\nintercept_port=8903\n");
  EXPECT_TRUE(problems.empty());
}

// Every value differs from all others and from every default.
TEST(Validator, every_key_is_stored_in_its_field_even_two_that_exclude_each_other) {
  const std::string judgement = judgement_of(
      "intercept_port: 9104\nintercept_apps: [chatgpt, claude-desktop]\nnames: false\n"
      "state_dir: /srv/state\ncontrol_port: 9103\nopenai_port: 9102\nanthropic_port: 9101\n"
      "endpoint_url: http://e\nmodel_dir: /srv/model\nmode: protect\n");
  EXPECT_EQ(judgement,
            "mode=protect\nmodel_dir=/srv/model\nendpoint_url=http://e\nanthropic_port=9101\n"
            "openai_port=9102\ncontrol_port=9103\nstate_dir=/srv/state\nnames=false\n"
            "intercept_apps=chatgpt|claude-desktop\nintercept_port=9104\n" +
                exclusion);
  const std::string all = fields_of(Config());
  EXPECT_EQ(std::count(judgement.begin(), judgement.end(), '\n'),
            std::count(all.begin(), all.end(), '\n') + 1)
      << "a key has no line above";
}

TEST(Validator, only_values_that_were_stored_exclude_each_other) {
  expect_judgements({{"model_dir: \"\"\nendpoint_url: http://e\n", "endpoint_url=http://e\n"},
                     {"model_dir: /m\nendpoint_url:\n", "model_dir=/m\n"},
                     {"model_dir: /m\nendpoint_url: ftp://e\n",
                      "model_dir=/m\n! line 2: endpoint_url must start with http:// or https://\n"},
                     {"model_dir: [/m]\nendpoint_url: http://e\n",
                      "endpoint_url=http://e\n"
                      "! line 1: `model_dir` takes a directory path, not a list\n"}});
}

TEST(Validator, a_mode_is_off_watch_or_protect_or_the_old_word_monitor) {
  expect_judgements(
      {{"mode: off\n", "mode=off\n"},
       {"mode: watch\n", ""},
       {"mode: protect\n", "mode=protect\n"},
       {"mode: monitor\n", ""},
       {"mode: Watch\n", "! line 1: mode must be off, watch or protect (got `Watch`)\n"},
       {"mode: Monitor\n", "! line 1: mode must be off, watch or protect (got `Monitor`)\n"},
       {"\nmode:\n", "! line 2: mode must be off, watch or protect (got ``)\n"},
       {"mode: \" off\"\n", "! line 1: mode must be off, watch or protect (got ` off`)\n"},
       {"mode: off `x`\n", "! line 1: mode must be off, watch or protect (got `off `x``)\n"}});
}

TEST(Validator, an_endpoint_is_empty_or_begins_with_http) {
  EXPECT_EQ(judgement_of("endpoint_url:\n"), "");
  for (const std::string url : {"http", "http://127.0.0.1:8080", "https://e", "httpdocs"}) {
    EXPECT_EQ(judgement_of("endpoint_url: " + url), "endpoint_url=" + url + "\n");
  }
  for (const std::string url : {"ftp://e", "htt", "HTTP://e", "Http", "\" http://e\"", "e.http"}) {
    EXPECT_EQ(judgement_of("endpoint_url: " + url),
              "! line 1: endpoint_url must start with http:// or https://\n")
        << url;
  }
}

TEST(Validator, directories_are_stored_unchecked) {
  EXPECT_EQ(judgement_of("model_dir:\nstate_dir:\n"), "");
  for (const std::string value : {"no/such", "~/x", "\xff\xfe", "none", "http://x", "-"}) {
    EXPECT_EQ(judgement_of("model_dir: " + value + "\nstate_dir: " + value + "\n"),
              "model_dir=" + value + "\nstate_dir=" + value + "\n");
  }
}

const std::vector<std::string> ports = {"anthropic_port", "openai_port", "control_port",
                                        "intercept_port"};

TEST(Validator, a_port_is_digits_between_1_and_65535_with_any_leading_zeros) {
  const std::pair<std::string, std::string> rows[] = {
      {"1", "1"},       {"65535", "65535"},      {"8080", "8080"},
      {"0080", "80"},   {"\"8080\"", "8080"},    {"'8080'", "8080"},
      {" \t80 ", "80"}, {"\"0000000007\"", "7"}, {std::string(60, '0') + "7", "7"}};
  for (const std::string& port : ports) {
    for (const auto& [text, number] : rows) {
      EXPECT_EQ(judgement_of(port + ": " + text), port + "=" + number + "\n") << text;
    }
  }
}

TEST(Validator, any_text_but_a_port_is_a_problem_and_keeps_the_default) {
  for (const std::string& port : ports) {
    for (const std::string text :
         {"",      "0",          "-0",         "00",          "65536",
          "99999", "-1",         "-8080",      "+8080",       "8080x",
          "x8080", "80 80",      "8080.0",     "8e3",         "0x50",
          "8'080", "\"8080 \"",  "\" 8080\"",  "-",           "--1",
          "auto",  "2147483648", "4294967297", "-4294967295", "18446744073709551617"}) {
      EXPECT_EQ(judgement_of(port + ": " + text),
                "! line 1: " + port + " must be a port between 1 and 65535\n")
          << text;
    }
  }
}

TEST(Validator, names_takes_three_words_for_each_of_true_and_false) {
  for (const std::string word : {"true", "yes", "on"}) {
    EXPECT_EQ(judgement_of("names: " + word), "") << word;
  }
  for (const std::string word : {"false", "no", "off"}) {
    EXPECT_EQ(judgement_of("names: " + word), "names=false\n") << word;
  }
  for (const std::string word : {"", "True", "NO", "1", "0", "\"true \"", "truee", "tru"}) {
    EXPECT_EQ(judgement_of("names: " + word), "! line 1: names must be true or false\n") << word;
  }
}

TEST(Validator, intercept_apps_takes_a_list_in_its_order_even_an_empty_one) {
  EXPECT_EQ(judgement_of("intercept_apps: [b, a, b]"), "intercept_apps=b|a|b\n");
  EXPECT_EQ(judgement_of("intercept_apps: []"), "");
  for (const std::string value : {"", "chatgpt", "\"[chatgpt]\"", "a, b", "none"}) {
    EXPECT_EQ(judgement_of("intercept_apps: " + value),
              "! line 1: intercept_apps is a list, e.g. [claude-desktop, chatgpt]\n")
        << value;
  }
}

TEST(Validator, a_key_that_takes_a_scalar_takes_no_list_and_keeps_its_default) {
  const std::pair<std::string, std::string> rows[] = {
      {"mode", "off, watch or protect"},   {"endpoint_url", "a URL"},
      {"model_dir", "a directory path"},   {"state_dir", "a directory path"},
      {"anthropic_port", "a port number"}, {"openai_port", "a port number"},
      {"control_port", "a port number"},   {"intercept_port", "a port number"},
      {"names", "true or false"},
  };
  for (const auto& [key, description] : rows) {
    for (const std::string value : {": [off]\n", ": []\n"}) {
      EXPECT_EQ(judgement_of(key + value),
                "! line 1: `" + key + "` takes " + description + ", not a list\n");
    }
  }
}

TEST(Validator, an_unknown_key_stores_nothing) {
  EXPECT_EQ(judgement_of("zzqxw: [a]\nMODE: off\n\"mode\": off\nmode off: x\n"),
            "! line 3: unknown key `\"mode\"` — did you mean `mode`?\n"
            "! line 2: unknown key `MODE`\n"
            "! line 4: unknown key `mode off`\n"
            "! line 1: unknown key `zzqxw`\n");
}

TEST(Validator, problems_come_in_byte_order_of_the_keys_and_valid_keys_still_apply) {
  EXPECT_EQ(
      judgement_of("zzqxw: 1\nstate_dir: []\nopenai_port: 0\nnames: 2\nmodel_dir: /m\nmode: x\n"
                   "logging: y\nintercept_port: 9104\nintercept_apps: x\nendpoint_url: http\n"
                   "control_port: 0\nanthropic_port: 0\nZ: 1\nmode: off\n bad: x\n"),
      "model_dir=/m\nendpoint_url=http\nintercept_port=9104\n"
      "! line 14: duplicate key `mode`\n"
      "! line 15: indentation is not part of this file's format (flat keys only)\n"
      "! line 13: unknown key `Z`\n"
      "! line 12: anthropic_port must be a port between 1 and 65535\n"
      "! line 11: control_port must be a port between 1 and 65535\n"
      "! line 9: intercept_apps is a list, e.g. [claude-desktop, chatgpt]\n"
      "! line 7: unknown key `logging`\n"
      "! line 6: mode must be off, watch or protect (got `x`)\n"
      "! line 4: names must be true or false\n"
      "! line 3: openai_port must be a port between 1 and 65535\n"
      "! line 2: `state_dir` takes a directory path, not a list\n"
      "! line 1: unknown key `zzqxw`\n" +
          exclusion);
}

void expect_suggestions(const std::vector<TextCase>& rows) {
  for (const TextCase& row : rows) {
    EXPECT_EQ(suggest_key(row.text), row.expected) << "for the key " << row.text;
  }
}

TEST(Suggestion, is_a_known_key_at_most_three_edits_away) {
  expect_suggestions({{"node", "mode"},
                      {"moode", "mode"},
                      {"m", "mode"},
                      {"xxxmode", "mode"},
                      {"name", "names"},
                      {"endpointurl", "endpoint_url"},
                      {"moodel_dir", "model_dir"},
                      {"anthropic-ports", "anthropic_port"},
                      {"openport", "openai_port"},
                      {"controlport", "control_port"},
                      {"state-dir", "state_dir"},
                      {"intercept_app", "intercept_apps"},
                      {"interceptport", "intercept_port"},
                      // four edits or more
                      {"", ""},
                      {"x", ""},
                      {"xxxxmode", ""},
                      {"zzqxw", ""},
                      {"intercept_", ""},
                      {"proxy_url", ""}});
}

TEST(Suggestion, counts_an_edit_for_each_byte_that_differs_and_two_for_swapped_ones) {
  expect_suggestions({{"mdoe", "mode"},
                      {"ocntrol_port", "control_port"},
                      {"ocntrol_prot", ""},
                      {"MODe", "mode"},
                      {"MODE", ""},
                      {"NAMES", ""},
                      {"\xef\xbb\xbfmode", "mode"},
                      {"m\xc3\xb6\xc3\xb6"
                       "e",
                       ""},
                      {"m\xc3\xb6"
                       "de",
                       "mode"}});
}

TEST(Suggestion, is_the_nearest_key_and_of_equally_near_ones_the_first_documented) {
  expect_suggestions({{"nomes", "names"},
                      {"nodes ", "mode"},
                      {"intercept_porps", "intercept_port"},
                      {"intercept_abpt", "intercept_apps"},
                      // equally near
                      {"mame", "mode"},
                      {"nodes", "mode"},
                      {"motte_dir", "model_dir"},
                      {"operol_port", "openai_port"},
                      {"intercept_pprs", "intercept_apps"}});
}

}  // namespace
}  // namespace velun::test
