#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "cli/reports.h"
#include "tests/support/report_server.h"

namespace velun::test {
namespace {

const std::string no_requests =
    "no requests yet (the transcript is RAM-only and empties on restart)\n";

struct Row {
  std::string value;
  std::string shown;
};

void expect_report(const std::string& answer, const std::string& report) {
  EXPECT_EQ(log_report(answer).value_or("(nothing)"), report) << answer.substr(0, 200);
}

TEST(LogReport, has_a_line_for_every_entry_in_the_order_of_the_answer) {
  expect_report(R"({"entries":[
      {"app":"editor","model":"large","outcome":"ok","duration_ms":812},
      {"duration_ms":5,"outcome":"blocked","model":"small","app":"codex"},
      {"app":"editor","model":"large","outcome":"ok","duration_ms":812}]})",
                "editor  large  ok  812 ms\n"
                "codex  small  blocked  5 ms\n"
                "editor  large  ok  812 ms\n");
}

TEST(LogReport, says_that_there_are_no_requests) {
  expect_report("{}", no_requests);
  expect_report(R"({"other":[{"app":"a"}]})", no_requests);
  expect_report(R"({"entries":[]})", no_requests);
  expect_report(R"({"entries":null})", no_requests);
  expect_report(R"({"entries":{}})", no_requests);
}

TEST(LogReport, shows_a_missing_application_as_a_question_mark) {
  expect_report(R"({"entries":[{"model":"m","outcome":"o","duration_ms":1}]})", "?  m  o  1 ms\n");
  expect_report(R"({"entries":[{}]})", "?      0 ms\n");
}

TEST(LogReport, leaves_the_separators_of_empty_fields_side_by_side) {
  expect_report(R"({"entries":[{"app":"a"}]})", "a      0 ms\n");
  expect_report(R"({"entries":[{"app":"a","outcome":"o"}]})", "a    o  0 ms\n");
  expect_report(R"({"entries":[{"app":"a","model":"m"}]})", "a  m    0 ms\n");
  expect_report(R"({"entries":[{"app":"","model":"","outcome":"","duration_ms":9}]})",
                "      9 ms\n");
}

TEST(LogReport, goes_through_an_object_of_entries_in_the_order_of_its_keys) {
  expect_report(R"({"entries":{"b":{"app":"second"},"a":{"app":"first"},"B":{"app":"zeroth"},
                               "é":{"app":"last"},"aa":{"app":"between"}}})",
                "zeroth      0 ms\nfirst      0 ms\nbetween      0 ms\nsecond      0 ms\n"
                "last      0 ms\n");
}

TEST(LogReport, ignores_members_that_it_does_not_know) {
  expect_report(R"({"count":"x","entries":[{"app":"a","App":1,"duration":"x","at":null}]})",
                "a      0 ms\n");
}

TEST(LogReport, takes_the_last_of_equal_keys) {
  expect_report(R"({"entries":[{"app":"a","app":"b"}]})", "b      0 ms\n");
  expect_report(R"({"entries":[{"app":1,"app":"b"}]})", "b      0 ms\n");
  expect_report(R"({"entries":[{"app":"a"}],"entries":[]})", no_requests);
  expect_report(R"({"entries":[1],"entries":[{"app":"b"}]})", "b      0 ms\n");
  expect_report(R"({"entries":{"k":{"app":"a"}},"entries":[{"app":"b"}]})", "b      0 ms\n");
  expect_report(R"({"entries":{"k":1,"k":{"app":"b"}}})", "b      0 ms\n");
  expect_type_error(log_report,
                    {R"({"entries":[{"app":"a","app":1}]})", R"({"entries":[{}],"entries":1})",
                     R"({"entries":[{}],"entries":[1]})", R"({"entries":{"k":{},"k":1}})"});
}

TEST(LogReport, reads_members_only_where_they_belong) {
  expect_report(R"({"app":"x","other":[{"app":"x"}],"entries":[{"model":"m"}]})", "?  m    0 ms\n");
  expect_report(R"({"entries":[{"app":"a"}],"app":1,"other":[{"app":1}],"more":{"app":1}})",
                "a      0 ms\n");
  expect_report(R"({"entries":[{"app":"a","x":{"app":"x"},"y":[{"model":1}],"z":{"entries":[]}}]})",
                "a      0 ms\n");
  expect_report(R"({"other":{"entries":[{"app":"a"}]}})", no_requests);
}

TEST(LogReport, converts_durations_as_the_library_does) {
  const std::vector<Row> rows = {
      {"0", "0"},
      {"-7", "-7"},
      {"2147483647", "2147483647"},
      {"812.9", "812"},
      {"-0.5", "0"},
      {"-1.5", "-1"},
      {"8.12e2", "812"},
      {"true", "1"},
      {"false", "0"},
      {"-2147483648", "-2147483648"},
      {"2147483648", "-2147483648"},
      {"4294967298", "2"},
      {"18446744073709551615", "-1"},
      {"-2147483648.9", "-2147483648"},
      {"2147483648.0", "-2147483648"},
      {"1e300", "-2147483648"},
  };
  for (const Row& row : rows) {
    expect_report(R"({"entries":[{"app":"a","duration_ms":)" + row.value + "}]}",
                  "a      " + row.shown + " ms\n");
  }
}

TEST(LogReport, prints_text_as_it_was_received) {
  expect_report(R"({"entries":[{"app":"\"quoted\" \\ \/ 'single'","model":"größe 模型 😀",
                    "outcome":"two\nlines\r\n\ttab","duration_ms":1},
                   {"app":"\u00e9\ud83d\ude00","model":"  padded  ","outcome":"%s %n"}]})",
                "\"quoted\" \\ / 'single'  größe 模型 😀  two\nlines\r\n\ttab  1 ms\n"
                "é😀    padded    %s %n  0 ms\n");
}

TEST(LogReport, hands_control_sequences_on_to_the_terminal) {
  expect_report(R"({"entries":[{"app":"\u001b[2J\u0007"}]})", "\x1b[2J\a      0 ms\n");
}

TEST(LogReport, keeps_a_zero_byte_in_a_text) {
  expect_report(R"({"entries":[{"app":"a\u0000b","model":"\u0000m","outcome":"o\u0000"}]})",
                std::string("a\0b  \0m  o\0  0 ms\n", 18));
}

TEST(LogReport, neither_pads_nor_cuts_a_field) {
  const std::string text(5000, 'x');
  expect_report(R"({"entries":[{"app":")" + text + R"(","model":")" + text + R"(","outcome":")" +
                    text + "\"}]}",
                text + "  " + text + "  " + text + "  0 ms\n");
}

TEST(LogReport, has_no_limit_on_the_number_of_lines) {
  std::string answer = R"({"entries":[{})";
  std::string report = "?      0 ms\n";
  for (int number = 1; number < 10'000; ++number) {
    answer += R"(,{"duration_ms":)" + std::to_string(number) + "}";
    report += "?      " + std::to_string(number) + " ms\n";
  }
  EXPECT_TRUE(log_report(answer + "]}") == report);
}

TEST(LogReport, does_not_exist_for_what_is_not_json) {
  for (const std::string answer :
       {"", " ", "entries", "{", "{}}", "{} x", "// comment\n{}", "{\"entries\":[/* none */]}",
        "{\"entries\":[{}],}", "{\"entries\":[{},]}", "{\"entries\":[{\"app\":\"\xff\"}]}",
        "{\"entries\":[{\"app\":\"a\nb\"}]}"}) {
    EXPECT_EQ(log_report(answer), std::nullopt) << answer;
  }
}

TEST(LogReport, of_json_that_is_no_object_raises_the_librarys_type_error) {
  expect_type_error(log_report,
                    {"null", "true", "1", "1.5", "\"entries\"", "[]", R"([{"entries":[]}])"});
}

TEST(LogReport, of_entries_that_hold_no_objects_raises_the_librarys_type_error) {
  expect_type_error(log_report, {R"({"entries":"text"})", R"({"entries":""})", R"({"entries":1})",
                                 R"({"entries":0})", R"({"entries":1.5})", R"({"entries":true})",
                                 R"({"entries":false})"});
}

TEST(LogReport, of_an_entry_that_is_no_object_raises_the_librarys_type_error) {
  for (const std::string entry :
       {"null", "true", "1", "1.5", "\"app\"", "[]", R"([{"app":"a"}])"}) {
    expect_type_error(log_report,
                      {R"({"entries":[)" + entry + "]}", R"({"entries":{"key":)" + entry + "}}",
                       R"({"entries":[{"app":"a"},)" + entry + "]}"});
  }
}

TEST(LogReport, of_an_entry_that_is_itself_the_value_of_a_key_reads_no_members_of_entries) {
  expect_type_error(log_report, {R"({"entries":{"app":"a","model":"m"}})"});
}

TEST(LogReport, of_a_text_member_of_another_type_raises_the_librarys_type_error) {
  for (const std::string member : {"app", "model", "outcome"}) {
    for (const std::string value : {"null", "true", "1", "1.5", "[]", "{}", "[\"a\"]"}) {
      expect_type_error(log_report, {"{\"entries\":[{\"" + member + "\":" + value + "}]}"});
    }
  }
}

TEST(LogReport, of_a_duration_that_is_no_number_raises_the_librarys_type_error) {
  for (const std::string value : {"null", "\"812\"", "\"\"", "[]", "[812]", "{}"}) {
    expect_type_error(log_report, {"{\"entries\":[{\"duration_ms\":" + value + "}]}"});
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

TEST(LogReport, is_not_troubled_by_a_hundred_thousand_levels) {
  for (const std::string& deep : {nested_arrays(100'000), nested_objects(100'000)}) {
    expect_report("{\"entries\":[{\"app\":\"a\",\"extra\":" + deep + "}]}", "a      0 ms\n");
    expect_report("{\"extra\":" + deep + "}", no_requests);
    expect_report("{\"entries\":[],\"extra\":" + deep + "}", no_requests);
    expect_type_error(log_report, {"{\"entries\":[{\"app\":" + deep + "}]}",
                                   "{\"entries\":[{\"duration_ms\":" + deep + "}]}",
                                   "{\"entries\":[{},[" + deep + "]]}", "[" + deep + "]"});
    EXPECT_EQ(log_report("{\"entries\":" + deep.substr(0, 100'000)), std::nullopt);
  }
  expect_type_error(log_report, {"{\"entries\":" + nested_arrays(100'000) + "}"});
}

TEST(LogReport, takes_a_deeply_nested_object_for_an_entry_like_any_other) {
  expect_report("{\"entries\":[" + nested_objects(100'000) + "]}", "?      0 ms\n");
  expect_report("{\"entries\":" + nested_objects(100'000) + "}", "?      0 ms\n");
}

}  // namespace
}  // namespace velun::test
