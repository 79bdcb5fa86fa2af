#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "cli/reports.h"
#include "tests/support/report_server.h"

namespace velun::test {
namespace {

struct Row {
  std::string answer;
  std::string report;
};

// The report with these values behind its labels.
std::string stats_text(const std::string& requests, const std::string& entities,
                       const std::string& blocked, const std::string& cost) {
  return "requests:            " + requests + "\nentities protected:  " + entities +
         "\nblocked requests:    " + blocked + "\ncost (list prices):  $" + cost + "\n";
}

TEST(StatsReport, shows_the_four_counters_in_their_order) {
  EXPECT_EQ(stats_report(R"({"cost_micros": 1500000, "blocked_requests": 3,
                             "entities_protected": 57, "requests": 128})"),
            "requests:            128\n"
            "entities protected:  57\n"
            "blocked requests:    3\n"
            "cost (list prices):  $1.5\n");
}

TEST(StatsReport, takes_zero_for_each_counter_that_is_missing_and_ignores_other_members) {
  const Row rows[] = {
      {"{}", stats_text("0", "0", "0", "0")},
      {R"({"requests":7,"Requests":"x"})", stats_text("7", "0", "0", "0")},
      {R"({"entities_protected":7,"since":null})", stats_text("0", "7", "0", "0")},
      {R"({"blocked_requests":7,"":{}})", stats_text("0", "0", "7", "0")},
      {R"({"cost_micros":7000000,"cost":[1]})", stats_text("0", "0", "0", "7")},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(stats_report(row.answer), row.report) << row.answer;
  }
}

TEST(StatsReport, counts_in_32_bits) {
  EXPECT_EQ(stats_report(R"({"requests":4294967295,"entities_protected":2147483649,
                             "blocked_requests":2147483648})"),
            stats_text("-1", "-2147483647", "-2147483648", "0"));
}

TEST(StatsReport, shows_the_cost_of_64_bits_with_at_most_six_significant_digits) {
  const Row costs[] = {
      {"1", "1e-06"},
      {"12.9", "1.2e-05"},
      {"99", "9.9e-05"},
      {"100", "0.0001"},
      {"123", "0.000123"},
      {"500000", "0.5"},
      {"1000025", "1.00002"},
      {"1000045", "1.00005"},
      {"1234567", "1.23457"},
      {"100000000", "100"},
      {"123456789012", "123457"},
      {"999999400000", "999999"},
      {"999999500000", "1e+06"},
      {"2000000000000", "2e+06"},
      {"9223372036854775807", "9.22337e+12"},
      {"-1", "-1e-06"},
      {"-1500000", "-1.5"},
      {"-9223372036854775808", "-9.22337e+12"},
      {"4294967296.5", "4294.97"},
      {"true", "1e-06"},
      {"1e300", "-9.22337e+12"},
  };
  for (const Row& cost : costs) {
    EXPECT_EQ(stats_report(R"({"cost_micros":)" + cost.answer + "}"),
              stats_text("0", "0", "0", cost.report));
  }
}

TEST(StatsReport, does_not_exist_for_text_that_is_not_json) {
  for (const std::string& body : not_json) {
    EXPECT_EQ(stats_report(body), std::nullopt) << body;
  }
}

TEST(StatsReport, of_json_that_is_no_object_raises_the_librarys_type_error) {
  expect_type_error(stats_report, {"null", "1", "\"text\"", "[]", R"([{"requests":1}])"});
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

}  // namespace
}  // namespace velun::test
