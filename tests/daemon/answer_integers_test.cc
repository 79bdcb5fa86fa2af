#include "daemon/answer_integers.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/support/report_server.h"

using nlohmann::json;

namespace velun::test {
namespace {

constexpr int smallest = std::numeric_limits<int>::min();
constexpr int largest = std::numeric_limits<int>::max();
constexpr long long long_smallest = std::numeric_limits<long long>::min();
constexpr long long long_largest = std::numeric_limits<long long>::max();

struct Row {
  const char* value;
  int as_int;
  long long as_long;
};

TEST(AnswerInteger, is_converted_as_by_the_library_but_a_float_out_of_range_is_the_smallest) {
  const Row rows[] = {
      {"0", 0, 0},
      {"-7", -7, -7},
      {"true", 1, 1},
      {"false", 0, 0},
      {"8.12e2", 812, 812},
      {"812.9", 812, 812},
      {"0.99", 0, 0},
      {"-0.99", 0, 0},
      {"-1.5", -1, -1},
      {"2147483647", largest, 2147483647},
      {"2147483648", smallest, 2147483648},
      {"4294967298", 2, 4294967298},
      {"-2147483648", smallest, -2147483648},
      {"-2147483649", largest, -2147483649},
      {"9223372036854775807", -1, long_largest},
      {"-9223372036854775808", 0, long_smallest},
      {"18446744073709551615", -1, -1},
      {"2147483647.9", largest, 2147483647},
      {"2147483648.0", smallest, 2147483648},
      {"-2147483648.9", smallest, -2147483648},
      {"-2147483647.5", -2147483647, -2147483647},
      {"-2147483649.0", smallest, -2147483649},
      {"9223372036854774784.0", smallest, 9223372036854774784},
      {"9223372036854775808.0", smallest, long_smallest},
      {"1e300", smallest, long_smallest},
      {"-1e300", smallest, long_smallest},
  };
  for (const Row& row : rows) {
    const json object = json::parse(std::string(R"({"n":)") + row.value + "}");
    EXPECT_EQ(integer_member<int>(object, "n"), row.as_int) << row.value;
    EXPECT_EQ(integer_member<long long>(object, "n"), row.as_long) << row.value;
  }
}

TEST(AnswerInteger, is_zero_when_the_object_has_no_such_member) {
  EXPECT_EQ(integer_member<int>(json::parse(R"({"N":1,"m":"x"})"), "n"), 0);
}

TEST(AnswerInteger, of_another_type_or_of_no_object_raises_the_librarys_type_error) {
  expect_type_error([](const std::string& body) { integer_member<int>(json::parse(body), "n"); },
                    {R"({"n":null})", R"({"n":"1"})", R"({"n":[1]})", R"({"n":{}})", "null", "true",
                     "1", "1.5", "\"n\"", "[]", R"([{"n":1}])"});
}

}  // namespace
}  // namespace velun::test
