#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "cli/reports.h"
#include "tests/support/report_server.h"

namespace velun::test {
namespace {

struct Row {
  std::string value;
  std::string shown;
};

// The report with these values behind its labels.
std::string stats_text(const std::string& requests, const std::string& entities,
                       const std::string& blocked, const std::string& cost) {
  return "requests:            " + requests + "\nentities protected:  " + entities +
         "\nblocked requests:    " + blocked + "\ncost (list prices):  $" + cost + "\n";
}

void expect_report(const std::string& answer, const std::string& report) {
  EXPECT_EQ(stats_report(answer).value_or("(nothing)"), report) << answer;
}

TEST(StatsReport, shows_the_four_counters_in_their_order) {
  EXPECT_EQ(stats_report(R"({"cost_micros": 1500000, "blocked_requests": 3,
                             "entities_protected": 57, "requests": 128})"),
            "requests:            128\n"
            "entities protected:  57\n"
            "blocked requests:    3\n"
            "cost (list prices):  $1.5\n");
}

TEST(StatsReport, of_an_empty_answer_object_is_all_zeros) {
  EXPECT_EQ(stats_report("{}"),
            "requests:            0\n"
            "entities protected:  0\n"
            "blocked requests:    0\n"
            "cost (list prices):  $0\n");
}

TEST(StatsReport, takes_zero_for_each_counter_that_is_missing) {
  expect_report(R"({"requests":7})", stats_text("7", "0", "0", "0"));
  expect_report(R"({"entities_protected":7})", stats_text("0", "7", "0", "0"));
  expect_report(R"({"blocked_requests":7})", stats_text("0", "0", "7", "0"));
  expect_report(R"({"cost_micros":7000000})", stats_text("0", "0", "0", "7"));
}

TEST(StatsReport, ignores_members_that_it_does_not_know) {
  expect_report(R"({"Requests":"x","cost":[1],"since":null,"":{},"requests":1})",
                stats_text("1", "0", "0", "0"));
}

TEST(StatsReport, prints_counters_in_plain_decimal) {
  for (const std::string number :
       {"0", "9", "1000", "1234567", "2147483647", "-1", "-2147483648"}) {
    expect_report(R"({"requests":)" + number + R"(,"entities_protected":)" + number +
                      R"(,"blocked_requests":)" + number + "}",
                  stats_text(number, number, number, "0"));
  }
}

TEST(StatsReport, converts_counters_as_the_library_does) {
  const std::vector<Row> rows = {
      {"12.9", "12"},
      {"-12.9", "-12"},
      {"0.99", "0"},
      {"-0.99", "0"},
      {"1e3", "1000"},
      {"true", "1"},
      {"false", "0"},
      {"2147483648", "-2147483648"},
      {"4294967298", "2"},
      {"-2147483649", "2147483647"},
      {"18446744073709551615", "-1"},
      {"2147483647.9", "2147483647"},
      {"-2147483648.9", "-2147483648"},
  };
  for (const Row& row : rows) {
    expect_report(R"({"requests":)" + row.value + "}", stats_text(row.shown, "0", "0", "0"));
    expect_report(R"({"entities_protected":)" + row.value + "}",
                  stats_text("0", row.shown, "0", "0"));
    expect_report(R"({"blocked_requests":)" + row.value + "}",
                  stats_text("0", "0", row.shown, "0"));
  }
}

TEST(StatsReport, shows_a_real_number_beyond_the_range_as_the_smallest_integer) {
  for (const std::string number : {"2147483648.0", "-2147483649.0", "1e300", "-1e300"}) {
    expect_report(R"({"requests":)" + number + "}", stats_text("-2147483648", "0", "0", "0"));
  }
  for (const std::string number : {"9223372036854775808.0", "1e300", "-1e300"}) {
    expect_report(R"({"cost_micros":)" + number + "}", stats_text("0", "0", "0", "-9.22337e+12"));
  }
  expect_report(R"({"cost_micros":9223372036854774784.0})",
                stats_text("0", "0", "0", "9.22337e+12"));
}

TEST(StatsReport, shows_the_cost_with_at_most_six_significant_digits) {
  const std::vector<Row> rows = {
      {"0", "0"},
      {"1", "1e-06"},
      {"12", "1.2e-05"},
      {"99", "9.9e-05"},
      {"100", "0.0001"},
      {"123", "0.000123"},
      {"10000", "0.01"},
      {"500000", "0.5"},
      {"1000000", "1"},
      {"1000025", "1.00002"},
      {"1000045", "1.00005"},
      {"1234567", "1.23457"},
      {"1500000", "1.5"},
      {"12345678", "12.3457"},
      {"100000000", "100"},
      {"123456789012", "123457"},
      {"999999000000", "999999"},
      {"999999400000", "999999"},
      {"999999500000", "1e+06"},
      {"1000000000000", "1e+06"},
      {"1234567000000", "1.23457e+06"},
      {"2000000000000", "2e+06"},
  };
  for (const Row& row : rows) {
    expect_report(R"({"cost_micros":)" + row.value + "}", stats_text("0", "0", "0", row.shown));
  }
}

TEST(StatsReport, shows_a_negative_cost_behind_the_dollar_sign) {
  const std::vector<Row> rows = {
      {"-1", "-1e-06"},         {"-12", "-1.2e-05"},         {"-1500000", "-1.5"},
      {"-1234567", "-1.23457"}, {"-999999500000", "-1e+06"}, {"-2000000000000", "-2e+06"},
  };
  for (const Row& row : rows) {
    expect_report(R"({"cost_micros":)" + row.value + "}", stats_text("0", "0", "0", row.shown));
  }
}

TEST(StatsReport, shows_a_cost_at_the_ends_of_its_range) {
  expect_report(R"({"cost_micros":9223372036854775807})", stats_text("0", "0", "0", "9.22337e+12"));
  expect_report(R"({"cost_micros":-9223372036854775808})",
                stats_text("0", "0", "0", "-9.22337e+12"));
}

TEST(StatsReport, does_not_cut_the_cost_to_32_bits) {
  expect_report(R"({"cost_micros":4294967296})", stats_text("0", "0", "0", "4294.97"));
  expect_report(R"({"cost_micros":-2147483649})", stats_text("0", "0", "0", "-2147.48"));
  expect_report(R"({"cost_micros":4294967296.5})", stats_text("0", "0", "0", "4294.97"));
}

TEST(StatsReport, truncates_a_cost_with_a_fraction_and_counts_true_as_one) {
  const std::vector<Row> rows = {
      {"12.9", "1.2e-05"}, {"-12.9", "-1.2e-05"}, {"0.9", "0"},   {"-0.9", "0"},
      {"1.5e6", "1.5"},    {"true", "1e-06"},     {"false", "0"},
  };
  for (const Row& row : rows) {
    expect_report(R"({"cost_micros":)" + row.value + "}", stats_text("0", "0", "0", row.shown));
  }
}

TEST(StatsReport, does_not_exist_for_what_is_not_json) {
  for (const std::string answer :
       {"", " ", "requests: 1", "{", "{}}", "{} x", "// comment\n{}", "{/* comment */}",
        "{\"requests\":1,}", "{\"requests\":}", "{'requests':1}", "{\"app\":\"\xff\"}", "NaN"}) {
    EXPECT_EQ(stats_report(answer), std::nullopt) << answer;
  }
}

TEST(StatsReport, of_json_that_is_no_object_raises_the_librarys_type_error) {
  expect_type_error(stats_report,
                    {"null", "true", "1", "1.5", "\"requests\"", "[]", R"([{"requests":1}])"});
}

TEST(StatsReport, of_a_counter_that_is_no_number_raises_the_librarys_type_error) {
  for (const std::string member :
       {"requests", "entities_protected", "blocked_requests", "cost_micros"}) {
    for (const std::string value : {"null", "\"1\"", "\"\"", "[]", "[1]", "{}"}) {
      expect_type_error(stats_report, {"{\"" + member + "\":" + value + "}"});
    }
  }
}

TEST(StatsReport, looks_members_up_in_the_order_in_which_they_are_shown) {
  const std::string no_number = "[json.exception.type_error.302] type must be number, but is ";
  const std::string last = R"("cost_micros":"x")";
  const std::string last_two = last + R"(,"blocked_requests":[])";
  const std::string last_three = last_two + R"(,"entities_protected":{})";
  EXPECT_EQ(error_of(stats_report, "{" + last_three + R"(,"requests":null})"), no_number + "null");
  EXPECT_EQ(error_of(stats_report, "{" + last_three + "}"), no_number + "object");
  EXPECT_EQ(error_of(stats_report, "{" + last_two + "}"), no_number + "array");
  EXPECT_EQ(error_of(stats_report, "{" + last + "}"), no_number + "string");
}

TEST(StatsReport, is_not_troubled_by_a_hundred_thousand_levels) {
  for (const std::string& deep : {nested_arrays(100'000), nested_objects(100'000)}) {
    expect_report("{\"requests\":1,\"extra\":" + deep + "}", stats_text("1", "0", "0", "0"));
    expect_type_error(stats_report,
                      {"{\"requests\":" + deep + "}", "{\"cost_micros\":" + deep + "}"});
    EXPECT_EQ(stats_report(deep.substr(0, 100'000)), std::nullopt);
  }
  expect_type_error(stats_report, {nested_arrays(100'000)});
}

}  // namespace
}  // namespace velun::test
