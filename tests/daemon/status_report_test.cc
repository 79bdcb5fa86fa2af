#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "daemon/status.h"
#include "tests/support/report_server.h"

namespace velun::test {
namespace {

struct Row {
  std::string answer;
  std::string report;
};

void expect_reports(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(status_report(row.answer, 8902).value_or("(nothing)"), row.report) << row.answer;
  }
}

void expect_none(const std::vector<std::string>& answers) {
  for (const std::string& answer : answers) {
    EXPECT_EQ(status_report(answer, 8902), std::nullopt) << answer.substr(0, 200);
  }
}

TEST(StatusReport, shows_everything_a_daemon_can_say_in_a_fixed_order) {
  expect_reports({{R"({"intercept": {"port": 8903, "enabled": true},
                       "listeners": [{"app": "anthropic", "port": 8900},
                                     {"port": 8901, "app": "openai"}],
                       "model_endpoint": "http://engine:9000", "model_status": "endpoint",
                       "mode": "protect", "version": "1.2"})",
                   "mode:      protect\n"
                   "engine:    self-hosted (http://engine:9000)\n"
                   "listener:  anthropic on port 8900\n"
                   "listener:  openai on port 8901\n"
                   "intercept: port 8903\n"
                   "dashboard: http://127.0.0.1:8902/\n"}});
}

TEST(StatusReport, of_an_empty_answer_has_an_unknown_mode_and_the_dashboard) {
  expect_reports({{"{}", "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"}});
}

TEST(StatusReport, calls_the_monitor_mode_watch_and_leaves_every_other_word_alone) {
  expect_reports({
      {R"({"mode":"monitor"})", "mode:      watch\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"mode":"watch"})", "mode:      watch\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"mode":"protect"})", "mode:      protect\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"mode":"off"})", "mode:      off\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"mode":"Monitor"})", "mode:      Monitor\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"mode":"monitor "})", "mode:      monitor \ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"mode":"?"})", "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"mode":""})", "mode:      \ndashboard: http://127.0.0.1:8902/\n"},
  });
}

TEST(StatusReport, says_that_a_model_is_loaded_on_the_device) {
  expect_reports({
      {R"({"mode":"protect","model_status":"loaded"})",
       "mode:      protect\nengine:    model loaded (on-device)\n"
       "dashboard: http://127.0.0.1:8902/\n"},
      {R"({"mode":"protect","model_status":"loaded","model_endpoint":"http://e"})",
       "mode:      protect\nengine:    model loaded (on-device)\n"
       "dashboard: http://127.0.0.1:8902/\n"},
  });
}

TEST(StatusReport, names_the_self_hosted_engine) {
  expect_reports({
      {R"({"mode":"protect","model_status":"endpoint","model_endpoint":"http://e:1/x"})",
       "mode:      protect\nengine:    self-hosted (http://e:1/x)\n"
       "dashboard: http://127.0.0.1:8902/\n"},
      {R"({"mode":"protect","model_status":"endpoint"})",
       "mode:      protect\nengine:    self-hosted ()\ndashboard: http://127.0.0.1:8902/\n"},
  });
}

TEST(StatusReport, shows_any_other_engine_state_as_it_stands) {
  expect_reports({
      {R"({"model_status":"loading"})",
       "mode:      ?\nengine:    loading\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"model_status":"Loaded","model_endpoint":"http://e"})",
       "mode:      ?\nengine:    Loaded\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"model_status":" "})",
       "mode:      ?\nengine:     \ndashboard: http://127.0.0.1:8902/\n"},
  });
}

TEST(StatusReport, has_no_engine_line_without_an_engine_state) {
  expect_reports({
      {R"({"model_status":""})", "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"model_endpoint":"http://e"})", "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"},
  });
}

TEST(StatusReport, lists_the_listeners_in_the_order_of_the_answer) {
  expect_reports({{R"({"listeners":[{"app":"b","port":2},{"app":"a","port":1},
                                    {"app":"b","port":2},{"app":"","port":65535}]})",
                   "mode:      ?\n"
                   "listener:  b on port 2\n"
                   "listener:  a on port 1\n"
                   "listener:  b on port 2\n"
                   "listener:   on port 65535\n"
                   "dashboard: http://127.0.0.1:8902/\n"}});
}

TEST(StatusReport, shows_what_is_missing_of_a_listener_as_a_question_mark_and_zero) {
  expect_reports({{R"({"listeners":[{},{"app":"openai"},{"port":8901},{"other":true}]})",
                   "mode:      ?\n"
                   "listener:  ? on port 0\n"
                   "listener:  openai on port 0\n"
                   "listener:  ? on port 8901\n"
                   "listener:  ? on port 0\n"
                   "dashboard: http://127.0.0.1:8902/\n"}});
}

TEST(StatusReport, has_no_listener_line_for_an_empty_list) {
  expect_reports({{R"({"listeners":[]})", "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"}});
}

TEST(StatusReport, has_an_intercept_line_only_while_interception_is_enabled) {
  expect_reports({
      {R"({"intercept":{"enabled":true,"port":8903}})",
       "mode:      ?\nintercept: port 8903\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"intercept":{"enabled":true}})",
       "mode:      ?\nintercept: port 0\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"intercept":{"enabled":false,"port":8903}})",
       "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"intercept":{"port":8903}})", "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"},
      {R"({"intercept":{}})", "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"},
  });
}

TEST(StatusReport, takes_the_dashboard_port_from_the_configuration) {
  EXPECT_EQ(status_report("{}", 1), "mode:      ?\ndashboard: http://127.0.0.1:1/\n");
  EXPECT_EQ(status_report(R"({"control_port":7})", 65535),
            "mode:      ?\ndashboard: http://127.0.0.1:65535/\n");
}

TEST(StatusReport, prints_text_as_it_was_received) {
  expect_reports({{R"({"mode":"\"quoted\" \\ \/","model_status":"zwei\nZeilen\t\u00e4\ud83d\ude00",
                       "listeners":[{"app":"größe  ","port":1}]})",
                   "mode:      \"quoted\" \\ /\n"
                   "engine:    zwei\nZeilen\tä😀\n"
                   "listener:  größe   on port 1\n"
                   "dashboard: http://127.0.0.1:8902/\n"}});
}

TEST(StatusReport, hands_control_sequences_on_to_the_terminal) {
  expect_reports({{R"({"mode":"\u001b[2J\u0007"})",
                   "mode:      \x1b[2J\a\ndashboard: http://127.0.0.1:8902/\n"}});
}

TEST(StatusReport, ignores_members_that_it_does_not_know) {
  expect_reports({{R"({"Mode":1,"listener":null,"intercepts":[],"control_port":"x","":{}})",
                   "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"},
                  {R"({"listeners":[{"app":"a","port":1,"ports":"x"}],
                       "intercept":{"enabled":true,"port":2,"apps":[1]}})",
                   "mode:      ?\nlistener:  a on port 1\nintercept: port 2\n"
                   "dashboard: http://127.0.0.1:8902/\n"}});
}

TEST(StatusReport, converts_port_numbers_as_the_library_does) {
  const std::vector<Row> ports = {
      {"8900.9", "8900"},
      {"-1.9", "-1"},
      {"0.5", "0"},
      {"8.9e3", "8900"},
      {"true", "1"},
      {"false", "0"},
      {"-3", "-3"},
      {"2147483647", "2147483647"},
      {"2147483648", "-2147483648"},
      {"4294967297", "1"},
      {"18446744073709551615", "-1"},
      {"-9223372036854775808", "0"},
      {"2147483647.9", "2147483647"},
      {"2147483648.0", "-2147483648"},
      {"-1e300", "-2147483648"},
  };
  for (const Row& port : ports) {
    expect_reports({
        {R"({"listeners":[{"app":"a","port":)" + port.answer + "}]}",
         "mode:      ?\nlistener:  a on port " + port.report +
             "\ndashboard: http://127.0.0.1:8902/\n"},
        {R"({"intercept":{"enabled":true,"port":)" + port.answer + "}}",
         "mode:      ?\nintercept: port " + port.report + "\ndashboard: http://127.0.0.1:8902/\n"},
    });
  }
}

TEST(StatusReport, does_not_exist_for_what_is_not_json) {
  expect_none({"", " ", "ok", "{", "{}}", "{} x", "{'mode':'watch'}", "{\"mode\":}",
               "// comment\n{}", "{/* comment */}", "{\"mode\":\"watch\",}", "{\"mode\":\"\xff\"}",
               "<html></html>", "NaN"});
}

TEST(StatusReport, allows_white_space_around_the_answer) {
  expect_reports({{" \n\t{ }\r\n", "mode:      ?\ndashboard: http://127.0.0.1:8902/\n"}});
}

TEST(StatusReport, does_not_exist_for_json_that_is_no_object) {
  expect_none({"null", "true", "0", "1.5", "\"mode\"", "[]", R"([{"mode":"watch"}])"});
}

TEST(StatusReport, does_not_exist_for_a_text_member_of_another_type) {
  for (const std::string member : {"mode", "model_status", "model_endpoint"}) {
    for (const std::string value : {"null", "true", "1", "1.5", "[]", "{}", "[\"watch\"]"}) {
      expect_none({"{\"" + member + "\":" + value + "}"});
    }
  }
}

TEST(StatusReport, does_not_exist_for_a_wrong_engine_address_that_would_not_be_shown) {
  expect_none({R"({"model_status":"loaded","model_endpoint":null})",
               R"({"model_status":"","model_endpoint":1})", R"({"model_endpoint":[]})"});
}

TEST(StatusReport, does_not_exist_for_listeners_that_are_no_array) {
  for (const std::string value :
       {"null", "true", "1", "1.5", "\"\"", "{}", R"({"a":{"app":"a","port":1}})"}) {
    expect_none({"{\"listeners\":" + value + "}"});
  }
}

TEST(StatusReport, does_not_exist_for_a_listener_that_is_no_object) {
  for (const std::string element : {"null", "true", "8900", "1.5", "\"anthropic\"", "[]"}) {
    expect_none({"{\"listeners\":[" + element + "]}",
                 R"({"listeners":[{"app":"a","port":1},)" + element + "]}"});
  }
}

TEST(StatusReport, does_not_exist_for_a_listener_with_a_member_of_another_type) {
  for (const std::string app : {"null", "false", "1", "1.5", "[]", "{}"}) {
    expect_none({R"({"listeners":[{"port":1,"app":)" + app + "}]}"});
  }
  for (const std::string port : {"null", "\"8900\"", "[]", "{}", "[8900]"}) {
    expect_none({R"({"listeners":[{"app":"a","port":)" + port + "}]}"});
  }
}

TEST(StatusReport, does_not_exist_for_an_intercept_member_that_is_no_object) {
  for (const std::string value : {"null", "true", "false", "8903", "\"on\"", "[]", "[{}]"}) {
    expect_none({"{\"intercept\":" + value + "}"});
  }
}

TEST(StatusReport, does_not_exist_for_an_interception_switch_that_is_no_boolean) {
  for (const std::string value : {"null", "1", "0", "1.0", "\"true\"", "[]", "{}"}) {
    expect_none({R"({"intercept":{"port":1,"enabled":)" + value + "}}"});
  }
}

TEST(StatusReport, does_not_exist_for_a_wrong_interception_port_even_when_it_would_not_be_shown) {
  for (const std::string port : {"null", "\"8903\"", "[]", "{}"}) {
    expect_none({R"({"intercept":{"enabled":true,"port":)" + port + "}}",
                 R"({"intercept":{"enabled":false,"port":)" + port + "}}",
                 R"({"intercept":{"port":)" + port + "}}"});
  }
}

TEST(StatusReport, ignores_the_depth_of_members_that_it_does_not_know) {
  for (const std::string& deep : {nested_arrays(100'000), nested_objects(100'000)}) {
    expect_reports({{"{\"mode\":\"off\",\"extra\":" + deep + "}",
                     "mode:      off\ndashboard: http://127.0.0.1:8902/\n"},
                    {"{\"listeners\":[{\"app\":\"a\",\"extra\":" + deep + "}]}",
                     "mode:      ?\nlistener:  a on port 0\ndashboard: http://127.0.0.1:8902/\n"}});
  }
}

TEST(StatusReport, survives_a_hundred_thousand_levels_where_something_flat_is_expected) {
  for (const std::string& deep : {nested_arrays(100'000), nested_objects(100'000)}) {
    expect_none({deep.substr(0, 100'000), "[" + deep + "]", "{\"mode\":" + deep + "}",
                 "{\"model_status\":" + deep + "}", "{\"model_endpoint\":" + deep + "}",
                 "{\"listeners\":[" + deep + ",1]}", "{\"listeners\":[{\"app\":" + deep + "}]}",
                 "{\"listeners\":[{\"port\":" + deep + "}]}",
                 "{\"intercept\":{\"enabled\":" + deep + "}}",
                 "{\"intercept\":{\"port\":" + deep + "}}"});
  }
  expect_none({"{\"listeners\":" + nested_arrays(100'000) + "}",
               "{\"listeners\":" + nested_objects(100'000) + "}",
               "{\"intercept\":" + nested_arrays(100'000) + "}"});
}

}  // namespace
}  // namespace velun::test
