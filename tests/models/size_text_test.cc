#include <gtest/gtest.h>

#include <limits>

#include "models/download.h"

namespace velun::test {
namespace {

struct SizeCase {
  std::int64_t bytes;
  const char* text;
};

void expect_all(std::initializer_list<SizeCase> cases) {
  for (const SizeCase& size : cases) {
    EXPECT_EQ(size_text(size.bytes), size.text) << size.bytes;
  }
}

TEST(SizeText, of_the_catalogs_files_is_what_the_progress_lines_show) {
  expect_all(
      {{34400000, "34 MB"}, {400, "0 MB"}, {1231000000, "1.200000 GB"}, {309000000, "309 MB"}});
}

TEST(SizeText, is_in_whole_megabytes_cut_not_rounded_below_a_thousand_million_bytes) {
  expect_all({{0, "0 MB"},
              {1, "0 MB"},
              {999999, "0 MB"},
              {1000000, "1 MB"},
              {1999999, "1 MB"},
              {2000000, "2 MB"},
              {99999999, "99 MB"},
              {998999999, "998 MB"},
              {999999999, "999 MB"}});
}

TEST(SizeText, is_in_gigabytes_cut_to_one_decimal_and_shown_with_six_from_there_on) {
  expect_all({{1000000000, "1.000000 GB"},
              {1000000001, "1.000000 GB"},
              {1099999999, "1.000000 GB"},
              {1100000000, "1.100000 GB"},
              {1299999999, "1.200000 GB"},
              {9999999999, "9.900000 GB"},
              {10000000000, "10.000000 GB"},
              {123456789012, "123.400000 GB"},
              {std::numeric_limits<std::int64_t>::max(), "9223372036.799999 GB"}});
}

TEST(SizeText, of_a_negative_size_is_in_megabytes_cut_towards_zero) {
  expect_all({{-1, "0 MB"}, {-1999999, "-1 MB"}, {-2000000000, "-2000 MB"}});
}

}  // namespace
}  // namespace velun::test
