#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/bystander.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

constexpr uid_t nobody = 65534;

// How `stop` reads the pid file, and whom it never signals.
class StopPidFile : public Lifecycle {
 protected:
  StopPidFile() {
    sandbox.configure();
    // The bystander leads a group of its own, which a negative pid would reach.
    setpgid(bystander.pid(), bystander.pid());
  }

  // In a session of its own velun can hit nobody but itself when it signals its group.
  static RunOptions apart() {
    RunOptions options;
    options.in_child = [] { setsid(); };
    return options;
  }

  void expect_no_pid(const std::string& text) {
    sandbox.write_pid_file(text);
    {
      const LoopbackServer control = answering_port();
      EXPECT_EQ(seen(sandbox.velun({"stop"}, apart())), failure(foreign_text()));
      EXPECT_EQ(read_file(sandbox.pid_file()), text);
      EXPECT_TRUE(bystander.alive());
    }
    EXPECT_EQ(seen(sandbox.velun({"stop"}, apart())), success("not running\n"));
    EXPECT_FALSE(fs::exists(sandbox.pid_file()));
  }

  void expect_pid_of_bystander(const std::string& text) {
    sandbox.write_pid_file(text);
    EXPECT_EQ(seen(sandbox.velun({"stop"}, apart())), failure(silent_text(bystander.pid())));
    EXPECT_EQ(read_file(sandbox.pid_file()), text);
    EXPECT_TRUE(bystander.alive());
  }

  Bystander bystander;
};

TEST_F(StopPidFile, is_read_as_one_decimal_number_up_to_the_first_other_character) {
  const std::string pid = bystander.pid_text();
  for (const std::string& text :
       {pid, pid + "\n", "+" + pid, "000" + pid, " \t\n\v\f\r" + pid, pid + "x", pid + " 1\n2",
        pid + ".9", pid + ",000", pid + "e3", pid + "-", pid + '\0' + "1"}) {
    SCOPED_TRACE(testing::PrintToString(text));
    expect_pid_of_bystander(text);
  }
}

TEST_F(StopPidFile, without_a_positive_number_that_fits_a_pid_records_none) {
  const std::string pid = bystander.pid_text();
  char hexadecimal[32];
  std::snprintf(hexadecimal, sizeof hexadecimal, "0x%x", static_cast<unsigned>(bystander.pid()));
  const std::string beyond_32_bits = std::to_string((1LL << 32) + bystander.pid());
  const std::string thirty_digits = "123456789012345678901234567890";
  const std::vector<std::string> texts = {
      "",           " \t\r\n\n",    '\0' + pid,    "0\n",
      "-0",         "-" + pid,      "+ " + pid,    "++" + pid,
      hexadecimal,  "x" + pid,      "." + pid,     "\xef\xbb\xbf" + pid,
      "2147483648", beyond_32_bits, thirty_digits, "-" + thirty_digits};
  for (const std::string& text : texts) {
    SCOPED_TRACE(testing::PrintToString(text));
    expect_no_pid(text);
  }
}

TEST_F(StopPidFile, that_is_a_directory_records_no_pid) {
  fs::create_directories(sandbox.pid_file() / "full");
  EXPECT_EQ(seen(sandbox.velun({"stop"}, apart())), success("not running\n"));
  const LoopbackServer control = answering_port();
  EXPECT_EQ(seen(sandbox.velun({"stop"}, apart())), failure(foreign_text()));
  EXPECT_EQ(names_in(sandbox.pid_file()), std::vector<std::string>{"full"});
}

TEST_F(StopPidFile, is_the_one_in_the_configured_state_directory) {
  const fs::path elsewhere = sandbox.root() / "elsewhere";
  sandbox.configure("state_dir: " + elsewhere.string() + "\n");
  sandbox.write_pid_file(bystander.pid());
  write_file(elsewhere / "velun-cli.pid", "stale");
  EXPECT_EQ(seen(sandbox.velun({"stop"}, apart())), success("not running\n"));
  EXPECT_FALSE(fs::exists(elsewhere / "velun-cli.pid"));
  EXPECT_EQ(read_file(sandbox.pid_file()), bystander.pid_text() + "\n");
}

// Without root's powers: whom velun may not signal and what it may not read or remove.
class StopWithoutPowers : public Lifecycle {
 protected:
  StopWithoutPowers() { sandbox.configure(); }

  // Alive, but owned by another user than the one velun runs as; 0 when there is none.
  pid_t untouchable() const { return geteuid() == 0 ? bystander.pid() : kill(1, 0) == 0 ? 0 : 1; }

  Bystander bystander;
};

TEST_F(StopWithoutPowers, a_process_of_another_user_counts_as_gone) {
  if (untouchable() == 0) {
    GTEST_SKIP() << "every process may be signalled here";
  }
  sandbox.write_pid_file(untouchable());
  {
    const LoopbackServer control = answering_port();
    EXPECT_EQ(seen(sandbox.velun({"stop"}, without_powers())), failure(foreign_text()));
    EXPECT_EQ(read_file(sandbox.pid_file()), std::to_string(untouchable()) + "\n");
  }
  EXPECT_EQ(seen(sandbox.velun({"stop"}, without_powers())), success("not running\n"));
  EXPECT_FALSE(fs::exists(sandbox.pid_file()));
  EXPECT_TRUE(bystander.alive());
}

TEST_F(StopWithoutPowers, an_unreadable_pid_file_records_no_pid) {
  Launch launch;
  launch.program = "/bin/sleep";
  launch.argv = {"sleep", "60"};
  launch.in_child = [] {
    if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) {
      _exit(126);
    }
  };
  const pid_t signalable = spawn(launch);
  sandbox.write_pid_file(signalable);
  fs::permissions(sandbox.pid_file(), fs::perms::none);
  EXPECT_EQ(seen(sandbox.velun({"stop"}, without_powers())), success("not running\n"));
  EXPECT_FALSE(fs::exists(sandbox.pid_file()));
  EXPECT_TRUE(is_running(signalable));
}

TEST_F(StopWithoutPowers, a_pid_file_that_cannot_be_removed_goes_unreported) {
  sandbox.write_pid_file("stale");
  fs::permissions(sandbox.state_dir(), fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(seen(sandbox.velun({"stop"}, without_powers())), success("not running\n"));
  EXPECT_EQ(read_file(sandbox.pid_file()), "stale");
}

}  // namespace
}  // namespace velun::test
