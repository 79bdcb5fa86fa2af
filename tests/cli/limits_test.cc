// With too little memory or too few descriptors velun aborts, reports a failure, or treats a file
// or a daemon as missing. It leaves no work half done.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "tests/support/last_words.h"
#include "tests/support/lifecycle.h"
#include "tests/support/report_server.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

using Words = std::vector<std::string>;

RunOptions with_limit(__rlimit_resource resource, rlim_t value) {
  RunOptions options;
  options.in_child = [resource, value] {
    const rlimit limit{value, value};
    setrlimit(resource, &limit);
  };
  return options;
}

class FewDescriptors : public Lifecycle {
 protected:
  void SetUp() override {
    if (!VELUN_IS_STATIC) {
      GTEST_SKIP() << "a loader, a sanitizer or counters need more memory and descriptors";
    }
    sandbox.configure();
  }

  /// The result of a run that may have `count` descriptors open, with its three streams.
  std::string with(rlim_t count, const Words& words) {
    return seen(sandbox.velun(words, with_limit(RLIMIT_NOFILE, count)));
  }
};

TEST_F(FewDescriptors, three_leave_none_for_the_config_file) {
  const std::string missing = failure("no configuration at " + sandbox.config_file().string() +
                                      " — run `velun setup` first\n");
  for (const Words& words : {Words{"config"}, Words{"start"}, Words{"status"}, Words{"mode", "off"},
                             Words{"model", "fetch"}}) {
    EXPECT_EQ(with(3, words), missing) << words[0];
  }
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

TEST_F(FewDescriptors, three_are_enough_for_help_and_keep_setup_from_changing_the_file) {
  EXPECT_EQ(with(3, {"help"}), seen(sandbox.velun({"help"})));
  const std::string before = read_file(sandbox.config_file());
  EXPECT_EQ(sandbox.velun({"setup"}, with_limit(RLIMIT_NOFILE, 3)).status, 0);
  EXPECT_EQ(read_file(sandbox.config_file()), before);
}

TEST_F(FewDescriptors, four_are_enough_for_the_config_and_the_list_of_models) {
  fs::create_directories(sandbox.models_dir() / "one");
  EXPECT_EQ(with(4, {"config"}), seen(sandbox.velun({"config"})));
  EXPECT_EQ(with(4, {"model", "list"}), success("  one  (incomplete)\n"));
}

TEST_F(FewDescriptors, seven_are_enough_for_every_command_that_asks_the_daemon) {
  const LoopbackServer control(sandbox.control_port(), healthy_with("{}"));
  for (const Words& words : {Words{"status"}, Words{"stats"}, Words{"log"}, Words{"start"},
                             Words{"stop"}, Words{"restart"}, Words{"mode", "watch"}}) {
    EXPECT_EQ(with(7, words), seen(sandbox.velun(words))) << words[0];
  }
}

TEST_F(FewDescriptors, four_to_six_leave_too_few_to_ask_which_counts_as_no_daemon) {
  const LoopbackServer control(sandbox.control_port(), healthy_with("{}"));
  for (rlim_t count = 4; count <= 6; ++count) {
    EXPECT_EQ(with(count, {"status"}), success("not running (configured mode: watch)\n")) << count;
  }
}

TEST_F(FewDescriptors, seven_are_enough_to_start_and_stop_a_daemon) {
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  const std::string start = with(7, {"start"});
  ASSERT_EQ(daemon.runs().size(), 1U);
  EXPECT_EQ(start, success(running_text(daemon.runs()[0].pid, "watch")));
  EXPECT_EQ(with(7, {"stop"}), success("stopped\n"));
}

TEST_F(FewDescriptors, seven_are_enough_to_fetch_a_model) {
  const ScriptedProgram curl = install_curl(sandbox, "output []");
  EXPECT_EQ(with(7, {"model", "fetch"}),
            success("fetching velun-pii-m-v1.3 (full)\n"
                    "  tokenizer.json (~34 MB)\n"
                    "  calibration.json (~0 MB)\n"
                    "  model.fp32.onnx (~1.200000 GB)\n"
                    "done. activate it with: velun model use velun-pii-m-v1.3\n"));
  EXPECT_EQ(curl.runs().size(), 3U);
}

class LittleMemory : public FewDescriptors {
 protected:
  const RunOptions six_megabytes = with_limit(RLIMIT_AS, 6'000'000);
};

TEST_F(LittleMemory, is_enough_for_commands_that_start_no_other_program) {
  const LoopbackServer control(sandbox.control_port(), healthy_with("{}"));
  for (const Words& words :
       {Words{"help"}, Words{"setup"}, Words{"config"}, Words{"start"}, Words{"stop"},
        Words{"status"}, Words{"stats"}, Words{"log"}, Words{"mode", "watch"},
        Words{"model", "list"}, Words{"model", "use", "x"}}) {
    EXPECT_EQ(seen(sandbox.velun(words, six_megabytes)), seen(sandbox.velun(words))) << words[0];
  }
}

TEST_F(LittleMemory, ends_every_command_that_reads_a_config_file_that_does_not_fit) {
  const std::string large = "# " + std::string(8'000'000, 'c') + "\n";
  write_file(sandbox.config_file(), large);
  for (const Words& words : {Words{"config"}, Words{"setup"}, Words{"start"}, Words{"stop"},
                             Words{"mode", "off"}, Words{"model", "fetch"}}) {
    const Outcome run = sandbox.velun(words, six_megabytes);
    EXPECT_EQ(run.signal, SIGABRT) << words[0];
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, no_memory);
  }
  EXPECT_EQ(read_file(sandbox.config_file()), large);
  EXPECT_FALSE(fs::exists(sandbox.state_dir()));
}

TEST_F(LittleMemory, treats_an_answer_that_does_not_fit_as_no_answer) {
  const LoopbackServer control(sandbox.control_port(), healthy_with(std::string(7'000'000, ' ')));
  EXPECT_EQ(seen(sandbox.velun({"status"}, six_megabytes)),
            failure("the daemon answers /healthz but refused /v1/status — token mismatch?\n"));
  EXPECT_EQ(seen(sandbox.velun({"stats"}, six_megabytes)), failure("could not read /v1/stats\n"));
  EXPECT_EQ(seen(sandbox.velun({"log"}, six_megabytes)),
            failure("could not read /v1/transcript\n"));
}

}  // namespace
}  // namespace velun::test
