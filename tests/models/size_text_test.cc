#include <gtest/gtest.h>

#include <limits>

#include "models/download.h"

namespace velun::test {
namespace {

TEST(SizeText, is_in_megabytes_or_gigabytes_truncated) {
  const std::pair<std::int64_t, const char*> rows[] = {
      {0, "0 MB"},
      {400, "0 MB"},
      {999999, "0 MB"},
      {1000000, "1 MB"},
      {1999999, "1 MB"},
      {34400000, "34 MB"},
      {309000000, "309 MB"},
      {999999999, "999 MB"},
      {1000000000, "1.000000 GB"},
      {1099999999, "1.000000 GB"},
      {1100000000, "1.100000 GB"},
      {1231000000, "1.200000 GB"},
      {9999999999, "9.900000 GB"},
      {123456789012, "123.400000 GB"},
      {std::numeric_limits<std::int64_t>::max(), "9223372036.799999 GB"},
      {-1, "0 MB"},
      {-1999999, "-1 MB"},
      {-2000000000, "-2000 MB"},
  };
  for (const auto& [bytes, text] : rows) {
    EXPECT_EQ(size_text(bytes), text) << bytes;
  }
}

}  // namespace
}  // namespace velun::test
