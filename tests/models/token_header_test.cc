#include "models/token_header.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

// Files of this process grow no further while this lives.
class FullDisk {
 public:
  explicit FullDisk(rlim_t size) : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit now{size, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &now);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  sighandler_t handler_;
  rlimit before_{};
};

TEST(TokenHeaderFile, is_gone_when_the_token_did_not_fit_whole) {
  const Sandbox sandbox;
  const FullDisk disk(std::string("Authorization: Bearer hf_").size());
  const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
  EXPECT_EQ(names_in(sandbox.root()), std::vector<std::string>{"home"});
}

// Under its other name the file cannot be removed.
TEST(TokenHeaderFile, is_empty_in_the_end_wherever_it_cannot_be_removed) {
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

}  // namespace
}  // namespace velun::test
