#include "config/validator.h"

#include <gtest/gtest.h>

#include "tests/support/config_text.h"

namespace velun::test {
namespace {

// A text that no two keys share, so that a value stored in a wrong field shows.
constexpr const char* every_key =
    "intercept_port: 9104\n"
    "intercept_apps: [chatgpt, claude-desktop]\n"
    "names: false\n"
    "state_dir: /srv/state\n"
    "control_port: 9103\n"
    "openai_port: 9102\n"
    "anthropic_port: 9101\n"
    "model_dir: /srv/model\n"
    "mode: protect\n";

TEST(Validator, an_empty_file_gives_the_defaults) {
  const Judged judged = judge("");
  EXPECT_EQ(judged.problems, "");
  EXPECT_EQ(judged.config, Config());
  EXPECT_EQ(fields_of(judged.config),
            "mode=watch\nmodel_dir=\nendpoint_url=\nanthropic_port=8900\nopenai_port=8901\n"
            "control_port=8902\nstate_dir=\nnames=true\nintercept_apps=\nintercept_port=8903\n");
}

TEST(Validator, every_key_is_stored_in_its_field) {
  const Judged judged = judge(every_key);
  EXPECT_EQ(judged.problems, "");
  EXPECT_EQ(fields_of(judged.config),
            "mode=protect\nmodel_dir=/srv/model\nendpoint_url=\nanthropic_port=9101\n"
            "openai_port=9102\ncontrol_port=9103\nstate_dir=/srv/state\nnames=false\n"
            "intercept_apps=chatgpt|claude-desktop\nintercept_port=9104\n");
}

TEST(Validator, modes_are_stored_as_written) {
  for (const char* word : {"off", "watch", "protect"}) {
    const Judged judged = judge("mode: " + std::string(word));
    EXPECT_EQ(judged.problems, "");
    EXPECT_EQ(judged.config.mode, word);
  }
}

TEST(Validator, the_mode_monitor_is_stored_as_watch) {
  const Judged judged = judge("mode: monitor\n");
  EXPECT_EQ(judged.problems, "");
  EXPECT_EQ(judged.config.mode, "watch");
}

TEST(Validator, any_other_mode_is_refused_with_the_word_as_it_was_given) {
  expect_problems(
      {{"mode: Watch\n", "line 1: mode must be off, watch or protect (got `Watch`)\n"},
       {"mode: Monitor\n", "line 1: mode must be off, watch or protect (got `Monitor`)\n"},
       {"\nmode:\n", "line 2: mode must be off, watch or protect (got ``)\n"},
       {"mode: \" off\"\n", "line 1: mode must be off, watch or protect (got ` off`)\n"},
       {"mode: off `x`\n", "line 1: mode must be off, watch or protect (got `off `x``)\n"}});
  EXPECT_EQ(judge("mode: OFF\n").config.mode, "watch");
}

TEST(Validator, an_endpoint_passes_when_it_is_empty_or_begins_with_http) {
  for (const char* url : {"", "http", "http://127.0.0.1:8080", "https://engine.example", "httpdocs",
                          "http//broken url"}) {
    const Judged judged = judge("endpoint_url: " + std::string(url));
    EXPECT_EQ(judged.problems, "") << url;
    EXPECT_EQ(judged.config.endpoint_url, url);
  }
}

TEST(Validator, any_other_endpoint_is_refused) {
  for (const char* url : {"ftp://engine.example", "htt", "HTTP://engine.example", "h", "Http",
                          "\" http://engine.example\"", "engine.example"}) {
    const Judged judged = judge("endpoint_url: " + std::string(url));
    EXPECT_EQ(judged.problems, "line 1: endpoint_url must start with http:// or https://\n") << url;
    EXPECT_EQ(judged.config.endpoint_url, "");
  }
}

TEST(Validator, directories_are_stored_without_a_look_at_them) {
  for (const char* directory : {"", "no/such", "~/x", "\xff\xfe", "none", "http://x", "-"}) {
    const std::string value = directory;
    const Judged judged = judge("model_dir: " + value + "\nstate_dir: " + value + "\n");
    EXPECT_EQ(judged.problems, "") << value;
    EXPECT_EQ(judged.config.model_dir, value);
    EXPECT_EQ(judged.config.state_dir, value);
  }
}

using PortOf = int Config::*;

struct PortField {
  const char* key;
  PortOf field;
};

constexpr PortField port_fields[] = {{"anthropic_port", &Config::anthropic_port},
                                     {"openai_port", &Config::openai_port},
                                     {"control_port", &Config::control_port},
                                     {"intercept_port", &Config::intercept_port}};

TEST(Validator, a_port_is_digits_between_1_and_65535_with_any_leading_zeros) {
  const std::pair<std::string, int> rows[] = {{"1", 1},
                                              {"65535", 65535},
                                              {"8080", 8080},
                                              {"0080", 80},
                                              {std::string(60, '0') + "7", 7},
                                              {"\"8080\"", 8080},
                                              {"'8080'", 8080},
                                              {" \t8080 ", 8080}};
  for (const PortField& port : port_fields) {
    for (const auto& [text, number] : rows) {
      const Judged judged = judge(std::string(port.key) + ": " + text);
      Config expected;
      expected.*port.field = number;
      EXPECT_EQ(judged.problems, "") << port.key << ": " << text;
      EXPECT_EQ(fields_of(judged.config), fields_of(expected));
    }
  }
}

TEST(Validator, anything_else_is_no_port_and_keeps_the_default) {
  for (const PortField& port : port_fields) {
    for (const char* text : {"",
                             "0",
                             "-0",
                             "00",
                             "65536",
                             "99999",
                             "-1",
                             "-8080",
                             "+8080",
                             "8080x",
                             "x8080",
                             "80 80",
                             "8080.0",
                             "8e3",
                             "0x50",
                             "8_080",
                             "8'080",
                             "\"8080 \"",
                             "\" 8080\"",
                             "\"8080\\n\"",
                             "-",
                             "--1",
                             "- 1",
                             "2147483647",
                             "2147483648",
                             "4294967297",
                             "-2147483648",
                             "-2147483649",
                             "-4294967295",
                             "18446744073709551617",
                             "999999999999999999999999999999",
                             "auto"}) {
      const Judged judged = judge(std::string("\n") + port.key + ": " + text);
      EXPECT_EQ(judged.problems,
                "line 2: " + std::string(port.key) + " must be a port between 1 and 65535\n")
          << text;
      EXPECT_EQ(fields_of(judged.config), fields_of(Config())) << port.key << ": " << text;
    }
  }
}

TEST(Validator, names_takes_three_words_for_each_of_true_and_false) {
  for (const char* word : {"true", "yes", "on"}) {
    EXPECT_EQ(judge("names: " + std::string(word)).problems, "") << word;
    EXPECT_TRUE(judge("names: " + std::string(word)).config.names) << word;
  }
  for (const char* word : {"false", "no", "off"}) {
    EXPECT_EQ(judge("names: " + std::string(word)).problems, "") << word;
    EXPECT_FALSE(judge("names: " + std::string(word)).config.names) << word;
  }
}

TEST(Validator, names_takes_nothing_else) {
  for (const char* word : {"", "True", "NO", "1", "0", "y", "\"true \"", "truee", "tru"}) {
    const Judged judged = judge("names: " + std::string(word));
    EXPECT_EQ(judged.problems, "line 1: names must be true or false\n") << word;
    EXPECT_TRUE(judged.config.names) << word;
  }
}

TEST(Validator, intercept_apps_takes_a_list_in_its_order_even_an_empty_one) {
  EXPECT_EQ(judge("intercept_apps: [b, a, b]").config.intercept_apps,
            (std::vector<std::string>{"b", "a", "b"}));
  EXPECT_EQ(judge("intercept_apps: [b, a, b]").problems, "");
  EXPECT_TRUE(judge("intercept_apps: []").config.intercept_apps.empty());
  EXPECT_EQ(judge("intercept_apps: []").problems, "");
}

TEST(Validator, intercept_apps_takes_no_scalar) {
  for (const char* value : {"", "chatgpt", "\"[chatgpt]\"", "a, b", "none"}) {
    const Judged judged = judge("intercept_apps: " + std::string(value));
    EXPECT_EQ(judged.problems,
              "line 1: intercept_apps is a list, e.g. [claude-desktop, chatgpt]\n");
    EXPECT_TRUE(judged.config.intercept_apps.empty());
  }
}

TEST(Validator, a_key_that_takes_a_scalar_takes_no_list_and_keeps_its_default) {
  const std::pair<const char*, const char*> rows[] = {
      {"mode", "off, watch or protect"},   {"endpoint_url", "a URL"},
      {"model_dir", "a directory path"},   {"state_dir", "a directory path"},
      {"anthropic_port", "a port number"}, {"openai_port", "a port number"},
      {"control_port", "a port number"},   {"intercept_port", "a port number"},
      {"names", "true or false"},
  };
  for (const auto& [key, description] : rows) {
    for (const char* value : {": [off]\n", ": []\n"}) {
      const Judged judged = judge(std::string(key) + value);
      EXPECT_EQ(judged.problems,
                "line 1: `" + std::string(key) + "` takes " + description + ", not a list\n");
      EXPECT_EQ(fields_of(judged.config), fields_of(Config()));
    }
  }
}

TEST(Validator, an_unknown_key_stores_nothing_whatever_its_value) {
  const Judged judged = judge("zzqxw: [a]\nMODE: off\n\"mode\": off\nmode off: x\n");
  EXPECT_EQ(judged.problems,
            "line 3: unknown key `\"mode\"` — did you mean `mode`?\n"
            "line 2: unknown key `MODE`\n"
            "line 4: unknown key `mode off`\n"
            "line 1: unknown key `zzqxw`\n");
  EXPECT_EQ(fields_of(judged.config), fields_of(Config()));
}

TEST(Validator, problems_come_in_byte_order_of_the_keys_with_unknown_ones_among_them) {
  const Judged judged = judge(
      "zzqxw: 1\nstate_dir: []\nopenai_port: 0\nnames: 2\nmodel_dir: []\nmode: x\nlogging: y\n"
      "intercept_port: 0\nintercept_apps: x\nendpoint_url: ftp\ncontrol_port: 0\n"
      "anthropic_port: 0\nZ: 1\n");
  EXPECT_EQ(judged.problems,
            "line 13: unknown key `Z`\n"
            "line 12: anthropic_port must be a port between 1 and 65535\n"
            "line 11: control_port must be a port between 1 and 65535\n"
            "line 10: endpoint_url must start with http:// or https://\n"
            "line 9: intercept_apps is a list, e.g. [claude-desktop, chatgpt]\n"
            "line 8: intercept_port must be a port between 1 and 65535\n"
            "line 7: unknown key `logging`\n"
            "line 6: mode must be off, watch or protect (got `x`)\n"
            "line 5: `model_dir` takes a directory path, not a list\n"
            "line 4: names must be true or false\n"
            "line 3: openai_port must be a port between 1 and 65535\n"
            "line 2: `state_dir` takes a directory path, not a list\n"
            "line 1: unknown key `zzqxw`\n");
}

TEST(Validator, a_model_and_an_endpoint_exclude_each_other_and_both_stay_stored) {
  const Judged judged = judge("endpoint_url: http://e\nmodel_dir: /m\n");
  EXPECT_EQ(judged.problems,
            "model_dir and endpoint_url exclude each other — the daemon runs one detection engine "
            "per launch\n");
  EXPECT_EQ(judged.config.model_dir, "/m");
  EXPECT_EQ(judged.config.endpoint_url, "http://e");
}

TEST(Validator, only_values_that_were_stored_exclude_each_other) {
  expect_problems({{"model_dir: \"\"\nendpoint_url: http://e\n", ""},
                   {"model_dir: /m\nendpoint_url:\n", ""},
                   {"model_dir: /m\nendpoint_url: ftp://e\n",
                    "line 2: endpoint_url must start with http:// or https://\n"},
                   {"model_dir: [/m]\nendpoint_url: http://e\n",
                    "line 1: `model_dir` takes a directory path, not a list\n"}});
}

TEST(Validator, a_bad_key_keeps_its_default_and_the_other_keys_apply) {
  const Judged judged = judge(
      "mode: off\nanthropic_port: 70000\ncontrol_port: 9103\nnames: maybe\nstate_dir: /s\n"
      "color: red\nintercept_apps: [a]\nintercept_port: []\n bad: x\nmode: protect\n");
  EXPECT_EQ(fields_of(judged.config),
            "mode=off\nmodel_dir=\nendpoint_url=\nanthropic_port=8900\nopenai_port=8901\n"
            "control_port=9103\nstate_dir=/s\nnames=true\nintercept_apps=a\n"
            "intercept_port=8903\n");
}

TEST(Validator, the_line_of_a_problem_is_the_number_in_the_entry) {
  ConfigEntry entry;
  entry.scalar = "x";
  entry.line = -3;
  Problems problems = {"earlier"};
  validate_config({{"names", entry}}, problems);
  EXPECT_EQ(problems, (Problems{"earlier", "line -3: names must be true or false"}));
}

}  // namespace
}  // namespace velun::test
