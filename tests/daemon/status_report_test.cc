#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "daemon/status.h"
#include "tests/support/report_server.h"

namespace velun::test {
namespace {

// An answer without a mode, and the lines between the mode and the dashboard.
struct Row {
  std::string answer;
  std::string lines;
};

void expect_lines(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(status_report(row.answer, 8902),
              "mode:      ?\n" + row.lines + "dashboard: http://127.0.0.1:8902/\n")
        << row.answer.substr(0, 200);
  }
}

void expect_none(const std::vector<std::string>& answers) {
  for (const std::string& answer : answers) {
    EXPECT_EQ(status_report(answer, 8902), std::nullopt) << answer.substr(0, 200);
  }
}

TEST(StatusReport, shows_all_members_in_a_fixed_order) {
  EXPECT_EQ(status_report(R"({"intercept": {"port": 8903, "enabled": true},
                              "listeners": [{"app": "anthropic", "port": 8900},
                                            {"port": 8901, "app": "openai"}],
                              "model_endpoint": "http://engine:9000", "model_status": "endpoint",
                              "mode": "protect", "version": "1.2"})",
                          8902),
            "mode:      protect\n"
            "engine:    self-hosted (http://engine:9000)\n"
            "listener:  anthropic on port 8900\n"
            "listener:  openai on port 8901\n"
            "intercept: port 8903\n"
            "dashboard: http://127.0.0.1:8902/\n");
}

TEST(StatusReport, takes_the_dashboard_port_from_the_configuration) {
  EXPECT_EQ(status_report(R"({"control_port":7})", 65535),
            "mode:      ?\ndashboard: http://127.0.0.1:65535/\n");
}

TEST(StatusReport, calls_the_monitor_mode_watch_and_leaves_every_other_word_alone) {
  const std::pair<std::string, std::string> words[] = {{"monitor", "watch"},
                                                       {"watch", "watch"},
                                                       {"protect", "protect"},
                                                       {"off", "off"},
                                                       {"Monitor", "Monitor"},
                                                       {"monitor ", "monitor "},
                                                       {"", ""},
                                                       {R"(\"a\" \\ \/)", "\"a\" \\ /"}};
  for (const auto& [word, shown] : words) {
    EXPECT_EQ(status_report(R"({"mode":")" + word + "\"}", 8902),
              "mode:      " + shown + "\ndashboard: http://127.0.0.1:8902/\n");
  }
}

TEST(StatusReport, has_an_engine_line_for_every_state_but_the_empty_one) {
  expect_lines({
      {"{}", ""},
      {R"({"model_status":"","model_endpoint":"http://e"})", ""},
      {R"({"model_status":"loaded"})", "engine:    model loaded (on-device)\n"},
      {R"({"model_status":"loaded","model_endpoint":"http://e"})",
       "engine:    model loaded (on-device)\n"},
      {R"({"model_status":"endpoint","model_endpoint":"http://e:1/x"})",
       "engine:    self-hosted (http://e:1/x)\n"},
      {R"({"model_status":"endpoint"})", "engine:    self-hosted ()\n"},
      {R"({"model_status":"Loaded","model_endpoint":"http://e"})", "engine:    Loaded\n"},
      {R"({"model_status":"zwei\nZeilen\t\u00e4\ud83d\ude00"})", "engine:    zwei\nZeilen\tä😀\n"},
      // Control sequences reach the terminal.
      {R"({"model_status":"\u001b[2J\u0007"})", "engine:    \x1b[2J\a\n"},
  });
}

TEST(StatusReport, lists_the_listeners_in_the_order_of_the_answer) {
  expect_lines({
      {R"({"listeners":[]})", ""},
      {R"({"listeners":[{"app":"b","port":2},{"app":"a","port":1,"ports":"x"},
                        {"app":"b","port":2}]})",
       "listener:  b on port 2\nlistener:  a on port 1\nlistener:  b on port 2\n"},
      {R"({"listeners":[{},{"app":""},{"port":8901}]})",
       "listener:  ? on port 0\nlistener:   on port 0\nlistener:  ? on port 8901\n"},
      {R"({"listeners":[{"port":8900.9},{"port":4294967297},{"port":1e300}]})",
       "listener:  ? on port 8900\nlistener:  ? on port 1\nlistener:  ? on port -2147483648\n"},
  });
}

TEST(StatusReport, has_an_intercept_line_only_while_interception_is_enabled) {
  expect_lines({
      {R"({"intercept":{"enabled":true,"port":8903,"apps":[1]}})", "intercept: port 8903\n"},
      {R"({"intercept":{"enabled":true,"port":4294967297}})", "intercept: port 1\n"},
      {R"({"intercept":{"enabled":true}})", "intercept: port 0\n"},
      {R"({"intercept":{"enabled":false,"port":8903}})", ""},
      {R"({"intercept":{"port":8903}})", ""},
  });
}

TEST(StatusReport, ignores_white_space_and_members_that_it_does_not_know) {
  expect_lines({{" \n\t{ }\r\n", ""},
                {R"({"Mode":1,"listener":null,"intercepts":[],"control_port":"x","":{}})", ""}});
}

TEST(StatusReport, does_not_exist_for_an_answer_that_is_no_json_or_of_an_unexpected_shape) {
  expect_none(not_json);
  expect_none({"null", "true", "0", "1.5", "\"mode\"", "[]", R"([{"mode":"watch"}])",
               R"({"mode":1})", R"({"mode":null})", R"({"model_status":[]})",
               R"({"model_status":null})"});
  for (const std::string listeners :
       {"null", "true", "1", "\"\"", "{}", R"({"a":{"app":"a","port":1}})", "[null]", "[8900]",
        "[[]]", R"([{"app":"a","port":1},"a"])", R"([{"app":null}])", R"([{"app":1}])",
        R"([{"port":"8900"}])", R"([{"port":null}])"}) {
    expect_none({"{\"listeners\":" + listeners + "}"});
  }
  for (const std::string intercept :
       {"null", "true", "false", "8903", "\"on\"", "[]", "[{}]", R"({"enabled":null})",
        R"({"enabled":1})", R"({"enabled":"true"})", R"({"enabled":true,"port":"8903"})"}) {
    expect_none({"{\"intercept\":" + intercept + "}"});
  }
  // The report would not show these members.
  expect_none({R"({"model_status":"loaded","model_endpoint":null})",
               R"({"model_status":"","model_endpoint":1})", R"({"model_endpoint":[]})",
               R"({"intercept":{"enabled":false,"port":null}})", R"({"intercept":{"port":[]}})"});
}

TEST(StatusReport, may_come_from_an_answer_with_a_hundred_thousand_levels) {
  for (const std::string& deep : {nested_arrays(100'000), nested_objects(100'000)}) {
    expect_lines(
        {{R"({"listeners":[{"extra":)" + deep + "}]}", "listener:  ? on port 0\n"},
         {R"({"intercept":{"enabled":true,"extra":)" + deep + "}}", "intercept: port 0\n"}});
    expect_none({"[" + deep + "]", "{\"mode\":" + deep + "}", "{\"listeners\":[" + deep + ",1]}",
                 R"({"intercept":{"port":)" + deep + "}}"});
  }
}

}  // namespace
}  // namespace velun::test
