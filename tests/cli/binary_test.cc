#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

using Header = ElfW(Ehdr);
using Segment = ElfW(Phdr);
using Entry = ElfW(Dyn);

template <typename Record>
std::vector<Record> records(const std::string& bytes, std::size_t offset, std::size_t count) {
  std::vector<Record> result(count);
  if (offset + count * sizeof(Record) > bytes.size()) {
    ADD_FAILURE() << "the file ends before its records do";
    return {};
  }
  std::memcpy(result.data(), bytes.data() + offset, count * sizeof(Record));
  return result;
}

// The program that was built, as the kernel and the dynamic loader would read it.
class Binary : public ::testing::Test {
 protected:
  Binary() : bytes_(read_file(VELUN_BINARY)) {
    header_ = records<Header>(bytes_, 0, 1).at(0);
    segments_ = records<Segment>(bytes_, header_.e_phoff, header_.e_phnum);
  }

  /// The first segment of a type.
  std::optional<Segment> segment(ElfW(Word) type) const {
    for (const Segment& each : segments_) {
      if (each.p_type == type) {
        return each;
      }
    }
    return std::nullopt;
  }

  /// The values of all dynamic entries with a tag.
  std::vector<ElfW(Xword)> dynamic(ElfW(Sxword) tag) const {
    std::vector<ElfW(Xword)> values;
    if (const auto table = segment(PT_DYNAMIC)) {
      const std::size_t count = table->p_filesz / sizeof(Entry);
      for (const auto& entry : records<Entry>(bytes_, table->p_offset, count)) {
        if (entry.d_tag == tag) {
          values.push_back(entry.d_un.d_val);
        }
      }
    }
    return values;
  }

  std::string bytes_;
  Header header_{};
  std::vector<Segment> segments_;
};

TEST_F(Binary, may_be_loaded_anywhere) {
  EXPECT_EQ(header_.e_type, ET_DYN);
  EXPECT_NE(dynamic(DT_FLAGS_1).at(0) & DF_1_PIE, 0U);
}

TEST_F(Binary, needs_neither_a_loader_nor_a_library) {
  if (!VELUN_IS_STATIC) {
    GTEST_SKIP() << "this build was asked, or had, to link dynamically";
  }
  EXPECT_FALSE(segment(PT_INTERP).has_value());
  EXPECT_EQ(dynamic(DT_NEEDED).size(), 0U);
}

}  // namespace
}  // namespace velun::test
