// A private home for one test: a directory that the destructor removes, an environment with only
// HOME, PATH and the options of sanitizers, and three reserved ports.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/children.h"
#include "tests/support/ports.h"

namespace velun::test {

/// How a run of velun ended and what it wrote.
struct Outcome {
  int status = -1;  ///< exit status; -1 if a signal ended it
  int signal = 0;   ///< that signal
  std::string out;
  std::string err;
  std::chrono::milliseconds took{0};
};

/// The status or signal and both streams as one text. If it differs from one of the texts below,
/// the failure shows a diff.
std::string seen(const Outcome& run);
/// That text for a run that exits with `status`.
std::string ended(int status, const std::string& out, const std::string& err);
/// For status 0 and a silent standard error.
std::string success(const std::string& out);
/// For status 1 and a silent standard output.
std::string failure(const std::string& err);

/// Everything about a run of velun but its words.
struct RunOptions {
  std::string input;          ///< standard input
  std::string argument_zero;  ///< empty: the path of the program
  std::string program;        ///< empty: the velun that was built
  std::string directory;      ///< working directory; empty: the sandbox
  bool one_output = false;    ///< both streams into one file, which is `Outcome::out`
  bool as_nobody = false;     ///< without root's powers
  std::function<void()> in_child;
};

class Sandbox {
 public:
  Sandbox();
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  std::filesystem::path root() const { return root_; }
  std::filesystem::path home() const { return root_ / "home"; }
  std::filesystem::path config_file() const { return home() / ".config/velun/velun.yaml"; }
  std::filesystem::path state_dir() const { return home() / ".local/share/velun"; }
  std::filesystem::path pid_file() const { return state_dir() / "velun-cli.pid"; }
  std::filesystem::path models_dir() const { return state_dir() / "models"; }
  int anthropic_port() const { return anthropic_.number(); }
  int openai_port() const { return openai_.number(); }
  int control_port() const { return control_.number(); }

  /// Moves the counters of a coverage build, and the messages about them, away from a run whose
  /// writes fail.
  void set_counters_aside() {
    environment["GCOV_PREFIX"] = root_ / "counters";
    environment["GCOV_ERROR_FILE"] = "/dev/null";
  }

  /// The environment of every run; a test adds to it.
  Environment environment;

  /// Writes the config file: the sandbox's three ports, then `lines`.
  void configure(const std::string& lines = "");
  /// The text that `velun config` and a save give for `configure`, with the lines of the optional
  /// keys in their places.
  std::string rendering(const std::string& mode, const std::string& after_mode = "",
                        const std::string& after_ports = "") const;
  /// The lines of the three ports, as in both texts above.
  std::string port_lines() const;
  /// The daemon's flags for the config file of `configure`, with `after_quiet` behind "--quiet" and
  /// `last` at the end.
  std::vector<std::string> daemon_flags(const std::vector<std::string>& after_quiet = {},
                                        const std::vector<std::string>& last = {}) const;
  /// The line with which velun reports a save of the config file.
  std::string wrote() const { return "wrote " + config_file().string() + "\n"; }
  void write_pid_file(const std::string& text) const;
  void write_pid_file(pid_t pid) const;

  /// Runs the built velun to its end, with a limit of 60 seconds.
  Outcome velun(const std::vector<std::string>& words, const RunOptions& options = {});
  /// Starts it and leaves it running, its output in `output_file`.
  pid_t start_velun(const std::vector<std::string>& words, const RunOptions& options = {});
  std::filesystem::path output_file() const { return root_ / "out"; }

 private:
  Launch prepare(const std::vector<std::string>& words, const RunOptions& options);
  // Standard output goes to `output_file`.
  pid_t start(const std::vector<std::string>& words, const RunOptions& options,
              const std::filesystem::path& errors);

  std::filesystem::path root_;
  ReservedPort anthropic_;
  ReservedPort openai_;
  ReservedPort control_;
};

/// Writes a file and creates its directories.
void write_file(const std::filesystem::path& path, const std::string& content);

/// The whole content. Fails the test if the file cannot be read.
std::string read_file(const std::filesystem::path& path);

/// The permission bits, such as 0644.
int mode_of(const std::filesystem::path& path);

/// The sorted names in a directory; empty if it does not exist.
std::vector<std::string> names_in(const std::filesystem::path& directory);

}  // namespace velun::test
