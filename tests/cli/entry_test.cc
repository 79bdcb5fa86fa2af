#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/dialogue.h"
#include "tests/support/lifecycle.h"
#include "tests/support/report_server.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

using Words = std::vector<std::string>;

class Entry : public Lifecycle {
 protected:
  /// The whole command line that velun reports for `daemon`.
  std::string command_line(const std::string& daemon) const {
    return daemon + " " + spaced(sandbox.daemon_flags());
  }

  /// Runs with both streams in one file and returns that file.
  std::string one_output(const Words& words) {
    RunOptions options;
    options.one_output = true;
    return sandbox.velun(words, options).out;
  }
};

// One bit for each of the three streams.
void close_streams(int which) {
  for (int descriptor = 0; descriptor < 3; ++descriptor) {
    if ((which & (1 << descriptor)) != 0) {
      close(descriptor);
    }
  }
}

TEST_F(Entry, an_argument_vector_without_even_a_program_name_prints_the_general_help) {
  const fs::path out = sandbox.output_file();
  const int file = open(out.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  Launch launch;
  launch.program = VELUN_BINARY;
  launch.environment = sandbox.environment;
  launch.out = file;
  launch.err = file;
  EXPECT_EQ(wait_for(spawn(launch), std::chrono::seconds(10)), 0);
  close(file);
  EXPECT_EQ(read_file(out), sandbox.velun({"help"}).out);
}

// The first message of mode follows a save, the second one a connection.
TEST_F(Entry, with_any_of_the_streams_closed_no_message_lands_in_the_file_or_the_request) {
  const LoopbackServer control = answering_port();
  for (int closed = 1; closed < 8; ++closed) {
    SCOPED_TRACE("closed streams: " + std::to_string(closed));
    sandbox.configure();
    RunOptions options;
    options.in_child = [closed] { close_streams(closed); };
    EXPECT_EQ(seen(sandbox.velun({"mode", "off"}, options)),
              ended(1, (closed & 2) != 0 ? "" : sandbox.wrote(),
                    (closed & 4) != 0 ? "" : foreign_text()));
    EXPECT_EQ(read_file(sandbox.config_file()), sandbox.rendering("off"));
    EXPECT_EQ(control.requests().back(),
              "GET /healthz HTTP/1.1\r\nHost: 127.0.0.1:" + port_text() + "\r\n\r\n");
  }
}

TEST_F(Entry, a_stream_that_was_closed_is_the_null_device_for_the_daemon) {
  sandbox.configure();
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  RunOptions options;
  options.in_child = [] {
    for (const std::string& descriptor : names_in("/proc/self/fd")) {
      close(std::stoi(descriptor));
    }
  };
  EXPECT_EQ(sandbox.velun({"start"}, options).status, 0);
  ASSERT_EQ(daemon.runs().size(), 1U);
  const fs::path open_files = "/proc/" + std::to_string(daemon.runs()[0].pid) + "/fd";
  EXPECT_EQ(names_in(open_files), Words({"0", "1", "2"}));
  for (const std::string descriptor : {"0", "1", "2"}) {
    EXPECT_EQ(fs::read_symlink(open_files / descriptor), "/dev/null");
    // The permissions of the link show how the file was opened.
    EXPECT_EQ(fs::symlink_status(open_files / descriptor).permissions(), fs::perms::owner_all);
  }
}

// Makes `stream` a pipe without a reader.
void abandon(int stream) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0 || dup2(ends[1], stream) != stream) {
    _exit(126);
  }
}

TEST_F(Entry, a_stream_that_is_full_closed_or_without_a_reader_leaves_the_status_as_it_is) {
  const ScriptedProgram curl = install_curl(sandbox, "output []");
  for (const std::string kind : {"full", "closed", "abandoned"}) {
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
      RunOptions options;
      options.in_child = [&] {
        kind == "closed" ? void(close(stream))
        : kind == "full" ? void(dup2(open("/dev/full", O_WRONLY), stream))
                         : abandon(stream);
      };
      const auto expect_status = [&](int status, const Words& words) {
        EXPECT_EQ(sandbox.velun(words, options).status, status)
            << kind << testing::PrintToString(words);
      };
      expect_status(1, {"status"});
      sandbox.configure();
      expect_status(0, {});
      for (const std::string word :
           {"--help", "-h", "config", "status", "stats", "log", "stop", "model", "setup"}) {
        expect_status(0, {word});
      }
      for (const Words& words :
           {Words{"mode", "off"}, Words{"start"}, Words{"restart"}, Words{"model", "list"},
            Words{"help", "model"}, Words{"model", "fetch"}}) {
        expect_status(0, words);
      }
      EXPECT_EQ(names_in(sandbox.models_dir() / "velun-pii-m-v1.3").size(), 5U);
      fs::remove_all(sandbox.models_dir());
      expect_status(1, {"model", "use", "x"});
      expect_status(2, {"mode", "loud"});
      expect_status(2, {"help", "nonsense"});
      expect_status(2, {"nonsense"});
      EXPECT_EQ(read_file(sandbox.config_file()), sandbox.rendering("off"));
      fs::remove(sandbox.config_file());
    }
  }
}

TEST_F(Entry, restart_starts_the_daemon_even_if_its_output_is_full_or_a_pipe_without_a_reader) {
  sandbox.configure();
  const ScriptedProgram daemon = install_daemon("forever");
  const LoopbackServer control = port_of_daemon(daemon);
  launch_recorded(daemon);
  RunOptions options;
  options.in_child = [] { abandon(STDOUT_FILENO); };
  EXPECT_EQ(seen(sandbox.velun({"restart"}, options)), success(""));
  options.in_child = [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); };
  EXPECT_EQ(seen(sandbox.velun({"restart"}, options)), success(""));
  ASSERT_EQ(daemon.runs().size(), 3U);
  EXPECT_TRUE(is_running(daemon.runs()[2].pid));
}

TEST_F(Entry, an_error_pipe_without_a_reader_leaves_the_status_of_a_failed_exec_at_127) {
  sandbox.configure();
  sandbox.environment["VELUND"] = "/does/not/exist";
  RunOptions traced;
  traced.in_child = [] { abandon(STDERR_FILENO); };
  traced.program = "/usr/bin/strace";
  sandbox.velun({"-f", "-qq", "-o", "trace", "-e", "trace=exit_group", VELUN_BINARY, "start"},
                traced);
  const std::string trace = read_file(sandbox.root() / "trace");
  EXPECT_NE(trace.find("exit_group(127)"), std::string::npos) << trace;
}

// A failed wait would count as a finished download, and the end of a daemon would go unnoticed.
TEST_F(Entry, a_parent_that_ignores_sigchld_does_not_hide_the_failure_of_a_child) {
  sandbox.configure();
  const ScriptedProgram daemon = install_daemon("exit 3");
  const ScriptedProgram curl = install_curl(sandbox, "exit 22");
  RunOptions options;
  options.in_child = [] { signal(SIGCHLD, SIG_IGN); };
  for (const Words& words :
       {Words{"start"}, Words{"restart"}, Words{"mode", "watch"}, Words{"model", "fetch"}}) {
    const Outcome usual = sandbox.velun(words);
    EXPECT_EQ(usual.status, 1) << words[0];
    EXPECT_EQ(seen(sandbox.velun(words, options)), seen(usual));
  }
}

TEST_F(Entry, no_signal_is_handled) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  RunOptions options;
  options.in_child = [&] { dup2(ends[0], 0); };
  const pid_t pid = sandbox.start_velun({"setup"}, options);
  close(ends[0]);
  EXPECT_TRUE(eventually([&] { return !read_file(sandbox.output_file()).empty(); }));
  const std::string status = read_file("/proc/" + std::to_string(pid) + "/status");
  const std::string label = "SigCgt:";
  const auto handled = std::stoull(status.substr(status.find(label) + label.size()), nullptr, 16);
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGCHLD}) {
    EXPECT_EQ(handled & (1ULL << (signal - 1)), 0U) << signal;
  }
  close(ends[1]);
  EXPECT_EQ(wait_for(pid, std::chrono::seconds(10)), 0);
}

TEST_F(Entry, messages_and_the_output_of_other_programs_keep_their_order_in_one_file) {
  write_file(sandbox.config_file(), "names: maybe\n");
  EXPECT_EQ(one_output({"setup"}), sandbox.config_file().string() +
                                       " has problems:\n  line 1: names must be true or false\n" +
                                       dialogue(sandbox.config_file()));
  sandbox.configure();
  const ScriptedProgram daemon = install_daemon("print loud\ncomplain sore\nexit 0");
  EXPECT_EQ(one_output({"restart"}),
            "not running\nloud\nsore\n" + exited_text(command_line(daemon.path())));
  const std::string missing = sandbox.root() / "no-such-program";
  sandbox.environment["VELUND"] = missing;
  EXPECT_EQ(one_output({"mode", "watch"}),
            sandbox.wrote() + exec_failed_text(missing) + exited_text(command_line(missing)));
  const ScriptedProgram curl = install_curl(sandbox, "output []\nprint loud\ncomplain sore");
  EXPECT_EQ(one_output({"model", "fetch"}),
            "fetching velun-pii-m-v1.3 (full)\n"
            "  tokenizer.json (~34 MB)\nloud\nsore\n"
            "  calibration.json (~0 MB)\nloud\nsore\n"
            "  model.fp32.onnx (~1.200000 GB)\nloud\nsore\n"
            "done. activate it with: velun model use velun-pii-m-v1.3\n");
  const LoopbackServer control = answering_port();
  EXPECT_EQ(one_output({"mode", "off"}), sandbox.wrote() + foreign_text());
}

// Makes a locale with a decimal comma, because the system may have none.
TEST_F(Entry, no_number_changes_its_form_in_a_locale) {
  const fs::path locales = sandbox.root() / "locales";
  write_file(locales / "charmap", "<escape_char> /\nCHARMAP\n<U0000>..<U007F> /x00\nEND CHARMAP\n");
  write_file(locales / "source",
             "LC_CTYPE\nEND LC_CTYPE\nLC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\n"
             "grouping 3;3\nEND LC_NUMERIC\n");
  const auto shell = [&](const std::string& command) {
    RunOptions options;
    options.program = "/bin/sh";
    return sandbox.velun({"-c", command}, options).out;
  };
  shell("cd locales && localedef -c -f ./charmap -i ./source ./comma");
  sandbox.configure();
  const LoopbackServer control(sandbox.control_port(),
                               healthy_with(R"({"requests":1234567,"cost_micros":1234567.5})"));
  const ScriptedProgram curl = install_curl(sandbox, "output []");
  const auto numbers = [&] {
    fs::remove_all(sandbox.models_dir());
    return seen(sandbox.velun({"stats"})) + seen(sandbox.velun({"model", "fetch"}));
  };
  const std::string usual = numbers();
  EXPECT_NE(usual.find("$1.23457\n"), std::string::npos) << usual;
  sandbox.environment["LC_ALL"] = "de_DE.UTF-8";
  EXPECT_EQ(numbers(), usual);
  sandbox.environment["LOCPATH"] = locales;
  sandbox.environment["LC_ALL"] = "comma";
  ASSERT_EQ(shell("exec /usr/bin/printf %.1f 1"), "1,0");
  EXPECT_EQ(numbers(), usual);
}

}  // namespace
}  // namespace velun::test
