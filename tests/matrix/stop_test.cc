// Every combination of a pid file, a process and a control port that `stop` can find. One table of
// rules, independent of the code of velun, says how it must end in each.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>
#include <optional>

#include "tests/matrix/player.h"
#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// "%" stands for the pid of the process, "#" for that number plus 2^32.
struct Pid_text {
  const char* name;
  const char* text;
  bool names_the_process;
};

constexpr Pid_text pid_texts[] = {
    {"missing", nullptr, false},
    {"a directory", nullptr, false},
    {"unreadable", "%\n", false},
    {"empty", "", false},
    {"an empty line", "\n", false},
    {"a word", "abc", false},
    {"a word in a line", "abc\n", false},
    {"a word before the pid", "pid %\n", false},
    {"0", "0", false},
    {"0 in a line", "0\n", false},
    {"every process", "-1\n", false},
    {"the negative pid", "-%", false},
    {"the negative pid in a line", "-%\n", false},
    {"one more than a pid can be", "2147483648\n", false},
    {"the pid and 2^32", "#", false},
    {"the pid and 2^32 in a line", "#\n", false},
    {"thirty digits", "123456789012345678901234567890\n", false},
    {"the pid", "%", true},
    {"the pid in a line", "%\n", true},
    {"the pid behind blanks", " \t%\n", true},
    {"the pid before a word", "%abc\n", true},
};

constexpr int never = -1;

struct Process {
  const char* name;
  bool exists;
  bool has_port;  // it listens on the control port
  bool alive;     // the user may signal it
  int lasts_ms;   // the time from a signal to its end
  bool zombie;    // its ended child is recorded
};

constexpr Process processes[] = {
    {"none", false, false, false, 0, false},
    {"the daemon", true, true, true, 250, false},
    {"a daemon that dies at once", true, true, true, 0, false},
    {"a daemon that ignores the signal", true, true, true, never, false},
    {"a bystander", true, false, true, 0, false},
    {"another user's", true, false, false, 0, false},
    {"a zombie", true, false, true, never, true},
};

struct Port {
  const char* name = "";
  bool taken = false;
  bool healthy = false;
  Reply reply = {};
};

const Port ports[] = {
    {"free", false, false, {}},
    {"healthy", true, true, answer(200, "ok")},
    {"500", true, false, answer(500, "broken")},
    {"empty 200", true, false, answer(200, "")},
    {"mute", true, false, {"", Ending::hang}},
    {"garbage", true, false, {"\x16\x03\x01 this is another protocol\r\n\r\n"}},
    {"half an answer", true, false, {"HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nok"}},
};

// Whether a condition of a rule must hold.
enum class Is { no, yes, either };

struct Rule {
  Is recorded_and_alive;
  Is healthy;
  Is ending;
  int status;
  const char* out;
  const char* err;  // "%" is the pid, "@" the port
  bool removes_pid_file;
  bool sends_term;
};

constexpr Rule rules[] = {
    {Is::yes, Is::yes, Is::yes, 0, "stopped\n", "", true, true},
    {Is::yes, Is::yes, Is::no, 1, "", "still running after 5 s — `kill -9 %` if you mean it\n",
     false, true},
    {Is::yes, Is::no, Is::either, 1, "",
     "the recorded pid % is alive but no daemon answers on port @ — not killing it; if it is a "
     "stuck daemon, `kill %`\n",
     false, false},
    {Is::no, Is::yes, Is::either, 1, "",
     "a daemon answers on port @ but this CLI did not start it — not touching it\n", false, false},
    {Is::no, Is::no, Is::either, 0, "not running\n", "", true, false},
};

struct Combination {
  const Pid_text* pid_text;
  const Process* process;
  const Port* port;

  bool is(const std::string& pid_text_name) const { return pid_text->name == pid_text_name; }
  bool other_user() const { return process->name == std::string("another user's"); }
  bool recorded_and_alive() const { return pid_text->names_the_process && process->alive; }
  // The ports that make a difference only to the HTTP client are left to the whole matrix.
  bool is_for_every_day() const {
    const std::string_view kind = port->name;
    return (kind == "free" || kind == "healthy" || kind == "500") && !takes_seconds();
  }
  bool takes_seconds() const {
    return port->reply.ending == Ending::hang ||
           (recorded_and_alive() && port->healthy && process->lasts_ms == never);
  }
  std::string name() const {
    return std::string("pid file: ") + pid_text->name + "; process: " + process->name +
           "; control port: " + port->name;
  }
};

const Rule& rule_for(const Combination& cell) {
  const auto fits = [](Is wanted, bool is) {
    return wanted == Is::either || (wanted == Is::yes) == is;
  };
  for (const Rule& rule : rules) {
    if (fits(rule.recorded_and_alive, cell.recorded_and_alive()) &&
        fits(rule.healthy, cell.port->healthy) &&
        fits(rule.ending, cell.process->lasts_ms != never)) {
      return rule;
    }
  }
  throw std::logic_error("no rule for " + cell.name());
}

// The text with each mark replaced.
std::string filled(const std::string& text, const std::map<char, std::string>& marks) {
  std::string result;
  for (const char c : text) {
    const auto mark = marks.find(c);
    result += mark == marks.end() ? std::string(1, c) : mark->second;
  }
  return result;
}

std::string at(const fs::path& path) {
  if (fs::is_directory(path)) {
    return "directory of " + testing::PrintToString(names_in(path));
  }
  return fs::exists(path) ? "file of " + read_file(path) : "nothing";
}

constexpr pid_t larger_than_any_pid = (1 << 22) + 1;

// A combination, made of real processes.
class Stopping {
 public:
  explicit Stopping(const Combination& cell) : cell_(cell) {
    sandbox_.configure();
    neighbour_.emplace(Part());
    if (cell.process->exists) {
      process_.emplace(process_part());
      companion_.emplace(Part{.group = getpgid(process_->pid()), .user = process_part().user});
    }
    if (cell.port->taken && !cell.process->has_port) {
      listener_.emplace(Part{.port = sandbox_.control_port(), .reply = cell.port->reply});
    }
    pid_ = process_ ? process_->pid() : larger_than_any_pid;
    write_pid_file();
  }

  // Puts velun into the process group of the neighbour, which records a signal to that group.
  void start() {
    RunOptions options;
    options.as_nobody = as_nobody();
    options.in_child = [group = neighbour_->pid(), file = err_file()] {
      const int err = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
      if (setpgid(0, group) != 0 || dup2(err, STDERR_FILENO) < 0) {
        _exit(126);
      }
    };
    velun_ = sandbox_.start_velun({"stop"}, options);
  }

  void judge() const {
    const int status = wait_for(velun_, std::chrono::seconds(60));
    Outcome run{.out = read_file(sandbox_.output_file()), .err = read_file(err_file())};
    (WIFEXITED(status) ? run.status : run.signal) =
        WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
    if (cell_.is("unreadable") && fs::exists(sandbox_.pid_file())) {
      fs::permissions(sandbox_.pid_file(), fs::perms::owner_read);
    }
    EXPECT_EQ(seen(run) + at(sandbox_.pid_file()) + "\n" + fates(), expected()) << cell_.name();
  }

 private:
  // Root can read every file and signal every process.
  bool as_nobody() const {
    return geteuid() == 0 && (cell_.is("unreadable") || cell_.other_user());
  }

  fs::path err_file() const { return sandbox_.root() / "err"; }

  Part process_part() const {
    Part part{.zombie = cell_.process->zombie, .lasts_ms = cell_.process->lasts_ms};
    if (as_nobody() && !cell_.other_user()) {
      part.user = nobody;
    }
    if (cell_.port->taken && cell_.process->has_port) {
      part.port = sandbox_.control_port();
      part.reply = cell_.port->reply;
    }
    return part;
  }

  std::string pid_text() const {
    return filled(cell_.pid_text->text,
                  {{'%', std::to_string(pid_)}, {'#', std::to_string((1LL << 32) + pid_)}});
  }

  void write_pid_file() const {
    const fs::path file = sandbox_.pid_file();
    if (cell_.is("a directory")) {
      fs::create_directories(file / "inside");
    } else if (cell_.pid_text->text != nullptr) {
      sandbox_.write_pid_file(pid_text());
    }
    if (cell_.is("unreadable")) {
      fs::permissions(file, fs::perms::none);
    }
  }

  std::string fates() const {
    return "process: " + (process_ ? process_->fate() : "") +
           "\ncompanion: " + (companion_ ? companion_->fate() : "") +
           "\nlistener: " + (listener_ ? listener_->fate() : "") +
           "\nneighbour: " + neighbour_->fate();
  }

  std::string pid_file_afterwards(const Rule& rule) const {
    if (cell_.is("a directory")) {
      return "directory of { \"inside\" }";
    }
    return cell_.pid_text->text == nullptr || rule.removes_pid_file ? "nothing"
                                                                    : "file of " + pid_text();
  }

  std::string expected() const {
    const Rule& rule = rule_for(cell_);
    const std::string err = filled(
        rule.err, {{'%', std::to_string(pid_)}, {'@', std::to_string(sandbox_.control_port())}});
    std::string fate = process_ ? "there" : "";
    if (rule.sends_term && !cell_.process->zombie) {
      fate = cell_.process->lasts_ms == never ? "15 there" : "15 ended";
    }
    return ended(rule.status, rule.out, err) + pid_file_afterwards(rule) + "\nprocess: " + fate +
           "\ncompanion: " + (companion_ ? "there" : "") +
           "\nlistener: " + (listener_ ? "there" : "") + "\nneighbour: there";
  }

  const Combination cell_;
  Sandbox sandbox_;
  std::optional<Player> neighbour_;
  std::optional<Player> process_;
  std::optional<Player> companion_;  // in the same process group
  std::optional<Player> listener_;
  pid_t pid_ = 0;
  pid_t velun_ = 0;
};

// Only root can run processes of two users. A faulty velun could read the dangerous texts as -1 and
// signal every process, so these are tried only in a process namespace of their own.
bool is_wanted(const Combination& cell) {
  if (cell.other_user() && geteuid() != 0) {
    return false;
  }
  const bool is_dangerous = cell.is("every process") || cell.is("thirty digits");
  return is_dangerous ? std::getenv("VELUN_MATRIX_APART") != nullptr
                      : std::getenv("VELUN_WHOLE_MATRIX") != nullptr || cell.is_for_every_day();
}

// Those that take seconds come first, so they wait at the same time.
std::vector<Combination> combinations() {
  std::vector<Combination> cells;
  for (const Pid_text& pid_text : pid_texts) {
    for (const Process& process : processes) {
      for (const Port& port : ports) {
        const Combination cell{&pid_text, &process, &port};
        if (is_wanted(cell)) {
          cells.push_back(cell);
        }
      }
    }
  }
  std::stable_partition(cells.begin(), cells.end(),
                        [](const Combination& cell) { return cell.takes_seconds(); });
  return cells;
}

TEST(StopMatrix, signals_only_the_recorded_process_and_only_while_a_daemon_answers) {
  // Most of them only wait, so many run at a time.
  constexpr std::size_t at_once = 48;
  const std::vector<Combination> cells = combinations();
  for (std::size_t next = 0; next < cells.size() && !HasFailure();) {
    std::deque<Stopping> scenes;
    while (next < cells.size() && scenes.size() < at_once) {
      scenes.emplace_back(cells[next++]);
    }
    for (Stopping& scene : scenes) {
      scene.start();
    }
    for (const Stopping& scene : scenes) {
      scene.judge();
    }
  }
}

}  // namespace
}  // namespace velun::test
