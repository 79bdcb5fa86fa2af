#include "tests/support/sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace fs = std::filesystem;

namespace velun::test {
namespace {

constexpr uid_t nobody = 65534;

int open_stream(const fs::path& path, int flags) {
  return open(path.c_str(), flags | O_CLOEXEC, 0666);
}

void give_to_nobody(const fs::path& root) {
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    EXPECT_EQ(lchown(entry.path().c_str(), nobody, nobody), 0);
  }
  EXPECT_EQ(chown(root.c_str(), nobody, nobody), 0);
}

std::string ending_with(const std::string& how, const std::string& out, const std::string& err) {
  return how + "\nstandard output:\n" + out + "\nstandard error:\n" + err;
}

}  // namespace

std::string seen(const Outcome& run) {
  return run.signal == 0 ? ended(run.status, run.out, run.err)
                         : ending_with("signal " + std::to_string(run.signal), run.out, run.err);
}

std::string ended(int status, const std::string& out, const std::string& err) {
  return ending_with("status " + std::to_string(status), out, err);
}

std::string success(const std::string& out) {
  return ended(0, out, "");
}

std::string failure(const std::string& err) {
  return ended(1, "", err);
}

Sandbox::Sandbox() {
  std::string pattern = (fs::temp_directory_path() / "velun-test-XXXXXX").string();
  root_ = fs::canonical(mkdtemp(pattern.data()));
  fs::create_directory(home());
  environment["HOME"] = home();
  environment["PATH"] = "/usr/local/bin:/usr/bin:/bin";
  for (const char* name : {"LSAN_OPTIONS", "ASAN_OPTIONS", "UBSAN_OPTIONS"}) {
    if (const char* value = std::getenv(name)) {
      environment[name] = value;
    }
  }
}

Sandbox::~Sandbox() {
  end_all_children();
  std::error_code ignored;
  for (const auto& entry : fs::recursive_directory_iterator(root_, ignored)) {
    if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
      fs::permissions(entry.path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
  }
  fs::remove_all(root_, ignored);
}

void Sandbox::configure(const std::string& lines) {
  write_file(config_file(), port_lines() + lines);
}

std::string Sandbox::port_lines() const {
  return "anthropic_port: " + std::to_string(anthropic_port()) +
         "\nopenai_port: " + std::to_string(openai_port()) +
         "\ncontrol_port: " + std::to_string(control_port()) + "\n";
}

std::string Sandbox::rendering(const std::string& mode, const std::string& after_mode,
                               const std::string& after_ports) const {
  return "# Velun CLI configuration. `velun help config` documents every key.\nmode: " + mode +
         "\n" + after_mode + port_lines() + after_ports + "names: true\n";
}

std::vector<std::string> Sandbox::daemon_flags(const std::vector<std::string>& after_quiet,
                                               const std::vector<std::string>& last) const {
  std::vector<std::string> flags = {"--anthropic-port", std::to_string(anthropic_port()),
                                    "--openai-port",    std::to_string(openai_port()),
                                    "--control-port",   std::to_string(control_port()),
                                    "--state-dir",      state_dir().string(),
                                    "--quiet"};
  flags.insert(flags.end(), after_quiet.begin(), after_quiet.end());
  flags.insert(flags.end(), {"--detector", "local", "--names"});
  flags.insert(flags.end(), last.begin(), last.end());
  return flags;
}

void Sandbox::write_pid_file(const std::string& text) const {
  write_file(pid_file(), text);
}

void Sandbox::write_pid_file(pid_t pid) const {
  write_pid_file(std::to_string(pid) + "\n");
}

Launch Sandbox::prepare(const std::vector<std::string>& words, const RunOptions& options) {
  Launch launch;
  launch.program = options.program.empty() ? VELUN_BINARY : options.program;
  launch.argv = {options.argument_zero.empty() ? launch.program : options.argument_zero};
  launch.argv.insert(launch.argv.end(), words.begin(), words.end());
  launch.environment = environment;
  launch.directory = options.directory.empty() ? root_.string() : options.directory;
  launch.in_child = options.in_child;
  if (options.as_nobody && geteuid() == 0) {
    // Another user may have no access to the build directory.
    const fs::path copy = root_ / "nobodys/velun";
    fs::create_directories(copy.parent_path());
    fs::copy_file(launch.program, copy, fs::copy_options::overwrite_existing);
    launch.program = copy;
    give_to_nobody(root_);
    // Without this, a coverage build prints that it cannot save its counters.
    launch.environment["GCOV_PREFIX"] = root_;
    launch.in_child = [custom = options.in_child] {
      if (setgid(nobody) != 0 || setuid(nobody) != 0) {
        _exit(126);
      }
      if (custom) {
        custom();
      }
    };
  }
  write_file(root_ / "in", options.input);
  return launch;
}

pid_t Sandbox::start(const std::vector<std::string>& words, const RunOptions& options,
                     const fs::path& errors) {
  Launch launch = prepare(words, options);
  constexpr int to_be_filled = O_WRONLY | O_CREAT | O_TRUNC | O_APPEND;
  launch.in = open_stream(root_ / "in", O_RDONLY);
  launch.out = open_stream(output_file(), to_be_filled);
  launch.err = open_stream(errors, to_be_filled);
  const pid_t pid = spawn(launch);
  for (const int stream : {launch.in, launch.out, launch.err}) {
    close(stream);
  }
  return pid;
}

Outcome Sandbox::velun(const std::vector<std::string>& words, const RunOptions& options) {
  const fs::path errors = options.one_output ? output_file() : root_ / "err";
  const auto begin = std::chrono::steady_clock::now();
  const pid_t pid = start(words, options, errors);
  const int status = wait_for(pid, std::chrono::seconds(60));
  Outcome run;
  run.took = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - begin);
  EXPECT_NE(status, -1) << "velun did not end";
  if (status != -1 && WIFEXITED(status)) {
    run.status = WEXITSTATUS(status);
  } else if (status != -1) {
    run.signal = WTERMSIG(status);
  }
  run.out = read_file(output_file());
  run.err = options.one_output ? "" : read_file(errors);
  return run;
}

pid_t Sandbox::start_velun(const std::vector<std::string>& words, const RunOptions& options) {
  return start(words, options, output_file());
}

void write_file(const fs::path& path, const std::string& content) {
  if (path.has_parent_path()) {
    fs::create_directories(path.parent_path());
  }
  std::ofstream file(path, std::ios::trunc);
  file << content;
  EXPECT_TRUE(file.good()) << "cannot write " << path;
}

std::string read_file(const fs::path& path) {
  std::ifstream file(path);
  EXPECT_TRUE(file.good()) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

int mode_of(const fs::path& path) {
  struct stat status = {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return static_cast<int>(status.st_mode & 07777);
}

std::vector<std::string> names_in(const fs::path& directory) {
  std::vector<std::string> names;
  std::error_code missing;
  for (const auto& entry : fs::directory_iterator(directory, missing)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace velun::test
