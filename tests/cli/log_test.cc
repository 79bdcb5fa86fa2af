#include <gtest/gtest.h>

#include <optional>
#include <sstream>
#include <string>

#include "cli/reports.h"
#include "tests/support/report_server.h"

namespace velun::test {
namespace {

struct Row {
  std::string answer;
  std::string report;
};

TEST(LogReport, has_a_line_for_every_entry_in_the_order_of_the_answer) {
  EXPECT_EQ(log_report(R"({"entries":[
      {"app":"editor","model":"large","outcome":"ok","duration_ms":812},
      {"duration_ms":5,"outcome":"blocked","model":"small","app":"codex"},
      {"app":"editor","model":"large","outcome":"ok","duration_ms":812}]})"),
            "editor  large  ok  812 ms\n"
            "codex  small  blocked  5 ms\n"
            "editor  large  ok  812 ms\n");
}

TEST(LogReport, says_that_there_are_no_requests) {
  for (const std::string answer : {"{}", R"({"other":[{"app":"a"}]})", R"({"entries":[]})",
                                   R"({"entries":null})", R"({"entries":{}})"}) {
    EXPECT_EQ(log_report(answer),
              "no requests yet (the transcript is RAM-only and empties on restart)\n")
        << answer;
  }
}

TEST(LogReport, goes_through_an_object_of_entries_in_the_order_of_its_keys) {
  EXPECT_EQ(log_report(R"({"entries":{"b":{"app":"second"},"a":{"app":"first"},
                                      "B":{"app":"zeroth"},"aa":{"app":"between"}}})"),
            "zeroth      0 ms\nfirst      0 ms\nbetween      0 ms\nsecond      0 ms\n");
}

// Every row is one entry and its line.
TEST(LogReport, separates_the_members_of_an_entry_by_two_blanks_and_escapes_nothing) {
  const Row rows[] = {
      {R"({})", "?      0 ms\n"},
      {R"({"app":"a"})", "a      0 ms\n"},
      {R"({"model":"m","outcome":"o","duration_ms":1})", "?  m  o  1 ms\n"},
      {R"({"app":"a","outcome":"o"})", "a    o  0 ms\n"},
      {R"({"app":"a","model":"m"})", "a  m    0 ms\n"},
      {R"({"app":"","model":"","outcome":"","duration_ms":9})", "      9 ms\n"},
      {R"({"app":"a","App":1,"at":null,"x":{"app":"x"},"y":[{"model":1}]})", "a      0 ms\n"},
      {R"({"app":1,"app":"b"})", "b      0 ms\n"},
      {R"({"duration_ms":812.9})", "?      812 ms\n"},
      {R"({"duration_ms":2147483648})", "?      -2147483648 ms\n"},
      {R"({"duration_ms":1e300})", "?      -2147483648 ms\n"},
      {R"({"app":"\"q\" \\ \/ 'x'","model":"größe 模型 😀","outcome":"two\nlines\r\n\ttab"})",
       "\"q\" \\ / 'x'  größe 模型 😀  two\nlines\r\n\ttab  0 ms\n"},
      {R"({"app":"\u00e9\ud83d\ude00","model":"  padded  ","outcome":"%s %n"})",
       "é😀    padded    %s %n  0 ms\n"},
      {R"({"app":"\u001b[2J\u0007"})", "\x1b[2J\a      0 ms\n"},
      {R"({"app":"a\u0000b"})", std::string("a\0b      0 ms\n", 14)},
      {R"({"app":")" + std::string(5000, 'x') + "\"}", std::string(5000, 'x') + "      0 ms\n"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(log_report(R"({"app":1,"entries":[)" + row.answer + "]}"), row.report) << row.answer;
  }
}

TEST(LogReport, does_not_exist_for_text_that_is_not_json) {
  for (const std::string& body : not_json) {
    EXPECT_EQ(log_report(body), std::nullopt) << body;
  }
}

TEST(LogReport, of_an_unexpected_shape_raises_the_librarys_type_error) {
  expect_type_error(log_report, {"null", "1", "\"entries\"", "[]", R"([{"entries":[]}])"});
  std::istringstream shapes(R"("" "text" 0 1.5 true false {"app":"a"} [null] [true] [1] ["app"] [[]]
      [{"app":"a"},1] {"key":1} [{"app":1}] [{"app":null}] [{"model":1}] [{"outcome":[]}]
      [{"duration_ms":"1"}] [{"duration_ms":null}])");
  for (std::string entries; shapes >> entries;) {
    expect_type_error(log_report, {R"({"entries":)" + entries + "}"});
  }
}

TEST(LogReport, raises_the_error_of_the_first_entry_that_has_one) {
  EXPECT_EQ(error_of(log_report, R"({"entries":[{"app":"a"},{"app":1},{"model":null},"text"]})"),
            "[json.exception.type_error.302] type must be string, but is number");
}

TEST(LogReport, looks_members_up_in_the_order_in_which_they_are_shown) {
  const auto error_for = [](const std::string& members) {
    return error_of(log_report, R"({"entries":[{"duration_ms":"x",)" + members + "}]}");
  };
  const std::string no_string = "[json.exception.type_error.302] type must be string, but is ";
  EXPECT_EQ(error_for(R"("outcome":[],"model":null,"app":1)"), no_string + "number");
  EXPECT_EQ(error_for(R"("outcome":[],"model":null)"), no_string + "null");
  EXPECT_EQ(error_for(R"("outcome":[])"), no_string + "array");
}

TEST(LogReport, may_come_from_an_answer_with_a_hundred_thousand_levels) {
  for (const std::string& deep : {nested_arrays(100'000), nested_objects(100'000)}) {
    EXPECT_EQ(log_report("{\"entries\":[{\"app\":\"a\",\"extra\":" + deep + "}]}"),
              "a      0 ms\n");
    expect_type_error(log_report, {"{\"entries\":[{\"app\":" + deep + "}]}",
                                   "{\"entries\":[[" + deep + "]]}", "[" + deep + "]"});
  }
}

}  // namespace
}  // namespace velun::test
