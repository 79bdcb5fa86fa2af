#include "models/token_header.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

TEST(TokenHeaderFile, is_gone_when_the_token_did_not_fit_whole) {
  const Sandbox sandbox;
  signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full{std::string("Authorization: Bearer hf_").size(), before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(names_in(sandbox.root()), std::vector<std::string>{"home"});
}

// The second name stands for a file that cannot be removed.
TEST(TokenHeaderFile, is_emptied_in_the_end_under_any_name) {
  const Sandbox sandbox;
  const std::filesystem::path second_name = sandbox.root() / "second name";
  {
    const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
    std::filesystem::create_hard_link(header.path(), second_name);
    EXPECT_EQ(read_file(second_name), "Authorization: Bearer hf_0123456789\n");
  }
  EXPECT_EQ(read_file(second_name), "");
}

TEST(TokenHeaderFile, is_closed_in_the_end) {
  const Sandbox sandbox;
  const auto descriptors = names_in("/proc/self/fd");
  { const TokenHeader header(sandbox.root() / "header", "hf_0123456789"); }
  EXPECT_EQ(names_in("/proc/self/fd"), descriptors);
}

TEST(TokenHeaderFile, holds_the_token_byte_for_byte) {
  const Sandbox sandbox;
  for (const std::string token :
       {" \tblanks at its ends \t ", "two\nlines", "\n", "\r\xff'\"\\%s$x"}) {
    const TokenHeader header(sandbox.root() / "header", token);
    EXPECT_EQ(read_file(header.path()), "Authorization: Bearer " + token + "\n");
  }
}

TEST(TokenHeaderFile, is_for_the_owner_alone_under_any_mask) {
  const Sandbox sandbox;
  for (const mode_t mask : {0U, 0777U}) {
    const mode_t before = umask(mask);
    const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
    umask(before);
    EXPECT_EQ(mode_of(header.path()), 0600);
  }
}

TEST(TokenHeaderFile, is_not_written_through_a_dangling_link) {
  const Sandbox sandbox;
  std::filesystem::create_symlink(sandbox.root() / "created", sandbox.root() / "header");
  const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
  EXPECT_EQ(read_file(header.path()), "Authorization: Bearer hf_0123456789\n");
  EXPECT_FALSE(std::filesystem::exists(sandbox.root() / "created"));
}

// The second name stands for a descriptor that another process opened in time.
TEST(TokenHeaderFile, never_appears_in_an_older_file_that_somebody_can_still_read) {
  const Sandbox sandbox;
  write_file(sandbox.root() / "older", "older content\n");
  std::filesystem::create_hard_link(sandbox.root() / "older", sandbox.root() / "header");
  {
    const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
    EXPECT_EQ(read_file(sandbox.root() / "older"), "older content\n");
    EXPECT_EQ(read_file(header.path()), "Authorization: Bearer hf_0123456789\n");
  }
  EXPECT_EQ(read_file(sandbox.root() / "older"), "older content\n");
}

}  // namespace
}  // namespace velun::test
