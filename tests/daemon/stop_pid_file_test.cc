#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "daemon/lifecycle.h"
#include "tests/support/bystander.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

TEST(RecordedPid, is_one_decimal_number_up_to_the_first_other_character) {
  for (const std::string text : {"4711", "4711\n", "+4711", "0004711", " \t\n\v\f\r4711", "4711x",
                                 "4711 1\n2", "4711.9", "4711,000", "4711e3", "4711-"}) {
    EXPECT_EQ(recorded_pid(text), 4711) << testing::PrintToString(text);
  }
  EXPECT_EQ(recorded_pid(std::string("4711\0001", 6)), 4711);
  EXPECT_EQ(recorded_pid("1"), 1);
  EXPECT_EQ(recorded_pid("2147483647"), 2147483647);
}

TEST(RecordedPid, is_none_without_a_positive_number_that_fits_a_pid) {
  for (const std::string text :
       {"", " \t\r\n\n", "0\n", "-0", "-4711", "+ 4711", "++4711", "0x1267", "x4711", ".4711",
        "\357\273\2774711", "2147483648", "4294972007", "123456789012345678901234567890",
        "-123456789012345678901234567890"}) {
    EXPECT_EQ(recorded_pid(text), std::nullopt) << testing::PrintToString(text);
  }
  EXPECT_EQ(recorded_pid(std::string("\0004711", 5)), std::nullopt);
}

// Where `stop` looks for the pid file, and what it may not signal or remove.
class StopPidFile : public Lifecycle {
 protected:
  StopPidFile() { sandbox.configure(); }

  Bystander bystander;
};

TEST_F(StopPidFile, is_the_one_in_the_configured_state_directory) {
  const fs::path elsewhere = sandbox.root() / "elsewhere";
  sandbox.configure("state_dir: " + elsewhere.string() + "\n");
  sandbox.write_pid_file(bystander.pid());
  write_file(elsewhere / "velun-cli.pid", "stale");
  EXPECT_EQ(seen(sandbox.velun({"stop"})), success("not running\n"));
  EXPECT_FALSE(fs::exists(elsewhere / "velun-cli.pid"));
  EXPECT_EQ(read_file(sandbox.pid_file()), bystander.pid_text() + "\n");
}

// The matrix plays this as well, but only for root.
TEST_F(StopPidFile, of_a_process_of_another_user_is_that_of_one_that_is_gone) {
  const pid_t others = geteuid() == 0 ? bystander.pid() : 1;
  if (geteuid() != 0 && kill(others, 0) == 0) {
    GTEST_SKIP() << "every process may be signalled here";
  }
  sandbox.write_pid_file(others);
  {
    const LoopbackServer control = answering_port();
    EXPECT_EQ(seen(sandbox.velun({"stop"}, without_powers())), failure(foreign_text()));
    EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(others) + "\n");
  }
  EXPECT_EQ(seen(sandbox.velun({"stop"}, without_powers())), success("not running\n"));
  EXPECT_FALSE(fs::exists(sandbox.pid_file()));
  EXPECT_TRUE(bystander.alive());
}

TEST_F(StopPidFile, that_cannot_be_removed_goes_unreported) {
  sandbox.write_pid_file("stale");
  fs::permissions(sandbox.state_dir(), fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(seen(sandbox.velun({"stop"}, without_powers())), success("not running\n"));
  EXPECT_EQ(read_file(sandbox.pid_file()), "stale");
}

}  // namespace
}  // namespace velun::test
