// Every meeting of a pid file, a process and a control port that `stop` can find, and what it has
// to do in each: one table, which knows nothing of how velun does it.

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/matrix/scene.h"
#include "tests/matrix/side_by_side.h"
#include "tests/support/bystander.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// "%" is the process's pid, whatever process it is; "#" is 2^32 more.
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

struct Process {
  const char* name;
  const char* words;  // how it is played; none: there is no such process
  bool has_port;      // it is the one that holds the control port
  bool alive;         // as far as a user can tell by a signal
  bool ends;          // within five seconds of SIGTERM
  bool feels;         // it can be told by a signal at all
};

constexpr Process processes[] = {
    {"none", nullptr, false, false, false, false},
    {"the daemon", "leads term=late", true, true, true, true},
    {"a daemon that dies at once", "leads", true, true, true, true},
    {"a daemon that ignores the signal", "leads term=ignored", true, true, false, true},
    {"a bystander", "leads", false, true, true, true},
    {"another user's", "leads", false, false, true, true},
    {"a zombie", "leads zombie", false, true, false, false},
};

struct Port {
  const char* name;
  const char* answer;  // none: nothing listens
  bool healthy;
};

constexpr Port ports[] = {
    {"free", nullptr, false},          {"healthy", "healthy", true}, {"500", "500", false},
    {"empty 200", "empty", false},     {"mute", "mute", false},      {"garbage", "garbage", false},
    {"half an answer", "half", false},
};

// What the three come to.
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
  // Ports that make no difference but in the HTTP client are left to the whole matrix.
  bool is_for_every_day() const {
    const std::string_view kind = port->name;
    return (kind == "free" || kind == "healthy" || kind == "500") && !is_slow();
  }
  bool is_slow() const { return recorded_and_alive() && port->healthy && !process->ends; }
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
        fits(rule.healthy, cell.port->healthy) && fits(rule.ending, cell.process->ends)) {
      return rule;
    }
  }
  throw std::logic_error("no rule for " + cell.name());
}

// The combination with real processes.
class Stopping {
 public:
  explicit Stopping(const Combination& cell) : cell_(cell) {
    scene_.play("neighbour", "leads");
    pid_ = play_process();
    if (cell.port->answer != nullptr && !cell.process->has_port) {
      scene_.play("listener", listening());
    }
    write_pid_file();
  }

  void play() {
    RunOptions options = scene_.beside("neighbour");
    options.as_nobody = as_nobody();
    const Outcome run = scene_.sandbox.velun({"stop"}, options);
    if (cell_.is("unreadable")) {
      fs::permissions(scene_.sandbox.pid_file(), fs::perms::owner_read, missing_);
    }
    const std::string got = seen(run) + at(scene_.sandbox.pid_file()) + "\n" + scene_.signals();
    EXPECT_EQ(got, expected());
  }

 private:
  // Only without root's powers is there a file that cannot be read or a process not to be
  // signalled.
  bool as_nobody() const {
    return geteuid() == 0 && (cell_.is("unreadable") || cell_.other_user());
  }

  std::string listening() const {
    return "port=" + std::to_string(scene_.sandbox.control_port()) +
           " answer=" + cell_.port->answer;
  }

  // A companion is in its process group.
  pid_t play_process() {
    const Process& process = *cell_.process;
    if (process.words == nullptr) {
      return pid_of_a_dead_process();
    }
    std::string words = process.words;
    if (process.has_port && cell_.port->answer != nullptr) {
      words += " " + listening();
    }
    const bool as_velun = as_nobody() && !cell_.other_user();
    const std::string uid = as_velun ? " uid=" + std::to_string(nobody) : "";
    words += uid;
    const pid_t pid = scene_.play("process", words);
    scene_.play("companion", "group=" + std::to_string(pid) + uid);
    return process.feels ? pid : scene_.pid_of("zombie");
  }

  std::string pid_text() const {
    return filled(cell_.pid_text->text,
                  {{'%', std::to_string(pid_)}, {'#', std::to_string((1LL << 32) + pid_)}});
  }

  void write_pid_file() const {
    const fs::path file = scene_.sandbox.pid_file();
    if (cell_.is("a directory")) {
      fs::create_directories(file / "inside");
    } else if (cell_.pid_text->text != nullptr) {
      scene_.sandbox.write_pid_file(pid_text());
    }
    if (cell_.is("unreadable")) {
      fs::permissions(file, fs::perms::none);
    }
  }

  std::string pid_file_afterwards(const Rule& rule) const {
    if (cell_.is("a directory")) {
      return "directory of inside";
    }
    return cell_.pid_text->text == nullptr || rule.removes_pid_file ? "nothing"
                                                                    : "file of " + pid_text();
  }

  std::string expected() const {
    const Rule& rule = rule_for(cell_);
    const Process& process = *cell_.process;
    const std::string err =
        filled(rule.err,
               {{'%', std::to_string(pid_)}, {'@', std::to_string(scene_.sandbox.control_port())}});
    std::string text = ended(rule.status, rule.out, err) + pid_file_afterwards(rule) + "\n";
    if (process.words != nullptr) {
      text += untouched("companion");
    }
    if (cell_.port->answer != nullptr && !process.has_port) {
      text += untouched("listener");
    }
    text += untouched("neighbour");
    if (process.words == nullptr) {
      return text;
    }
    if (!rule.sends_term || !process.feels) {
      return text + untouched("process");
    }
    return text + "process: 15 " + (process.ends ? "ended\n" : "there\n");
  }

  Combination cell_;
  Scene scene_;
  pid_t pid_ = 0;
  std::error_code missing_;
};

// Texts that a velun gone wrong could take for -1, which stands for every process there is, are
// tried only where there is no other.
bool is_wanted(const Combination& cell) {
  const bool is_dangerous = cell.is("every process") || cell.is("thirty digits");
  return is_dangerous ? runs_apart() : wants_whole_matrix() || cell.is_for_every_day();
}

std::vector<Combination> combinations(bool of_another_user) {
  std::vector<Combination> cells;
  for (const Pid_text& pid_text : pid_texts) {
    for (const Process& process : processes) {
      for (const Port& port : ports) {
        const Combination cell{&pid_text, &process, &port};
        if (cell.other_user() == of_another_user && is_wanted(cell)) {
          cells.push_back(cell);
        }
      }
    }
  }
  return cells;
}

void play_all(const std::string& title, const std::vector<Combination>& cells) {
  side_by_side(
      title, cells.size(), [&](std::size_t i) { Stopping(cells[i]).play(); },
      [&](std::size_t i) { return cells[i].name(); });
}

TEST(StopMatrix, signals_only_what_is_recorded_while_a_daemon_answers) {
  play_all("stop", combinations(false));
}

TEST(StopMatrix, takes_a_process_of_another_user_for_gone) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "takes root, to run processes of two users";
  }
  play_all("stop, another user's process", combinations(true));
}

}  // namespace
}  // namespace velun::test
