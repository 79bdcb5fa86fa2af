// Every meeting of a daemon program, a control port, a pid file and a state directory that `start`
// can find, and what it has to do in each: one table, which knows nothing of how velun does it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "tests/matrix/scene.h"
#include "tests/matrix/side_by_side.h"
#include "tests/support/lifecycle.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// What becomes of the child while it has the port to itself, and when it does not get it.
enum class Fate { no_program, ends, answers, is_silent };

struct Program {
  const char* name;
  const char* words;  // how the daemon is played; none: it is no program
  Fate alone;
  Fate without_port;
};

constexpr Program programs[] = {
    {"missing", nullptr, Fate::no_program, Fate::no_program},
    {"a directory", nullptr, Fate::no_program, Fate::no_program},
    {"not executable", nullptr, Fate::no_program, Fate::no_program},
    {"a script of a missing shell", nullptr, Fate::no_program, Fate::no_program},
    // The C library hands it to a shell.
    {"a script without a first line", nullptr, Fate::ends, Fate::ends},
    {"exits with 0", "end=0", Fate::ends, Fate::ends},
    {"exits with 1", "end=1", Fate::ends, Fate::ends},
    {"is killed", "end=kill", Fate::ends, Fate::ends},
    {"exits late", "after=1500 end=0", Fate::ends, Fate::ends},
    {"is healthy", "port=@ answer=healthy", Fate::answers, Fate::ends},
    {"is healthy late", "after=1500 port=@ answer=healthy", Fate::answers, Fate::ends},
    {"goes on as another process", "port=@ fork answer=healthy", Fate::answers, Fate::ends},
    {"never listens", "", Fate::is_silent, Fate::is_silent},
    {"answers 500", "port=@ answer=500", Fate::is_silent, Fate::ends},
    {"answers nothing", "port=@ answer=empty", Fate::is_silent, Fate::ends},
    {"answers garbage", "port=@ answer=garbage", Fate::is_silent, Fate::ends},
    {"answers by halves", "port=@ answer=half", Fate::is_silent, Fate::ends},
    {"is mute", "port=@ answer=mute", Fate::is_silent, Fate::ends},
};

struct Port {
  const char* name;
  const char* answer;  // none: nothing listens
};

constexpr Port ports[] = {
    {"free", nullptr},          {"healthy", "healthy"}, {"500", "500"},
    {"empty 200", "empty"},     {"mute", "mute"},       {"garbage", "garbage"},
    {"half an answer", "half"},
};

// What stands in the state directory under the pid file's name.
struct Pid_file {
  const char* name;
  const char* before;  // as `at` tells it; "%" is a bystander's pid
  const char* after;   // when a child was started, "%" is its pid
};

constexpr Pid_file pid_files[] = {
    {"none", "nothing", "file of %\n"},
    {"of a bystander", "file of %\n", "file of %\n"},
    {"garbage", "file of garbage of some length\nin two lines\n", "file of %\n"},
    {"not writable", "file of old\n", "file of old\n"},
    {"a directory", "directory of inside", "directory of inside"},
    {"a link to a file", "link to file of old\n", "link to file of %\n"},
    {"a link to nothing", "link to nothing", "link to file of %\n"},
    {"a link into no directory", "link to nothing", "link to nothing"},
};

struct State_dir {
  const char* name;
  bool creatable;
};

constexpr State_dir state_dirs[] = {
    {"there", true}, {"missing", true}, {"behind a file", false}, {"not permitted", false}};

struct Rule {
  bool healthy_before;
  bool creatable;
  Fate fate;
  int status;       // -1: ended by the runtime
  const char* out;  // "%" is the child's pid, "@" the port
  const char* err;  // "&" is the command line, "^" the program
};

constexpr bool either = true;
constexpr char exited[] = "velund exited during startup — run it by hand to see why:\n  &\n";

// The first that fits: a healthy port decides all, and so does a directory that cannot be made.
constexpr Rule rules[] = {
    {true, either, Fate::answers, 0, "already running on control port @\n", ""},
    {false, false, Fate::answers, -1, "", "terminated: cannot create directories"},
    {false, true, Fate::no_program, 1, "",
     "could not start ^: exec failed\nvelund exited during startup — run it by hand to see why:\n"
     "  &\n"},
    {false, true, Fate::ends, 1, "", exited},
    {false, true, Fate::answers, 0, "running (pid %, mode watch)\ndashboard: http://127.0.0.1:@/\n",
     ""},
    {false, true, Fate::is_silent, 1, "",
     "started (pid %) but the control port did not answer in 5 s\n"},
};

struct Combination {
  const Program* program;
  const Port* port;
  const Pid_file* pid_file;
  const State_dir* state_dir;

  bool healthy_before() const { return std::string_view(port->name) == "healthy"; }
  bool starts() const { return !healthy_before() && state_dir->creatable; }
  Fate fate() const { return port->answer == nullptr ? program->alone : program->without_port; }
  bool has_listener() const { return port->answer != nullptr; }
  bool is_mute() const {
    return std::string_view(port->name) == "mute" ||
           (port->answer == nullptr && std::string_view(program->name) == "is mute");
  }
  bool is_slow() const { return is_mute() || (starts() && fate() == Fate::is_silent); }
  // A pid file needs a directory that is there.
  bool is_possible() const {
    return std::string_view(state_dir->name) == "there" ||
           std::string_view(pid_file->name) == "none";
  }
  // What a program does to the pid file depends on nothing but whether there is one.
  bool is_for_every_day() const {
    const std::string_view kind = port->name;
    const std::string_view what = program->name;
    return !is_slow() && (kind == "free" || kind == "healthy" || kind == "500") &&
           (std::string_view(pid_file->name) == "none" || what == "exits with 1" ||
            what == "is healthy");
  }
  std::string name() const {
    return std::string("program: ") + program->name + "; control port: " + port->name +
           "; pid file: " + pid_file->name + "; state directory: " + state_dir->name;
  }
};

const Rule& rule_for(const Combination& cell) {
  const auto rule = std::find_if(std::begin(rules), std::end(rules), [&](const Rule& row) {
    if (row.healthy_before || cell.healthy_before()) {
      return row.healthy_before == cell.healthy_before();
    }
    return row.creatable == cell.state_dir->creatable &&
           (!row.creatable || row.fate == cell.fate());
  });
  return *rule;
}

// The combination with real processes.
class Starting {
 public:
  explicit Starting(const Combination& cell) : cell_(cell) {
    scene_.play("neighbour", "leads");
    if (cell.has_listener()) {
      scene_.play("listener", std::string("leads answer=") + cell.port->answer + " port=" + port());
    }
    if (is_pid_file("of a bystander")) {
      bystander_ = scene_.play("process", "leads");
    }
    install_program();
    prepare_state_dir();
    prepare_pid_file();
  }

  void play() {
    RunOptions options = scene_.beside("neighbour");
    options.as_nobody = as_nobody();
    EXPECT_EQ(place(), filled(cell_.pid_file->before, {{'%', std::to_string(bystander_)}}));
    const Outcome run = in_short(scene_.sandbox.velun({"start"}, options));
    allow_all();
    const std::string after = place();
    const std::string got = seen(run) + after + "\n" + scene_.signals();
    EXPECT_EQ(got, expected(after));
  }

 private:
  bool is_program(const char* name) const { return std::string_view(cell_.program->name) == name; }
  bool is_pid_file(const char* name) const {
    return std::string_view(cell_.pid_file->name) == name;
  }
  bool is_state_dir(const char* name) const {
    return std::string_view(cell_.state_dir->name) == name;
  }
  bool as_nobody() const { return is_pid_file("not writable") || is_state_dir("not permitted"); }
  std::string port() const { return std::to_string(scene_.sandbox.control_port()); }
  std::string place() const { return at(scene_.sandbox.pid_file()); }
  fs::path beside() const { return scene_.sandbox.root() / "elsewhere"; }

  void install_program() {
    program_ = scene_.sandbox.root() / "programs/daemon";
    if (cell_.program->words != nullptr) {
      scene_.install_actor("daemon", as_nobody());
      scene_.sandbox.environment["ACTOR"] =
          scene_.part("daemon", filled(cell_.program->words, {{'@', port()}}));
    } else if (is_program("a directory")) {
      fs::create_directories(program_);
    } else if (!is_program("missing")) {
      write_file(program_,
                 is_program("a script of a missing shell") ? "#!/does/not/exist\n" : "exit 7\n");
      fs::permissions(program_, is_program("not executable") ? fs::perms(0644) : fs::perms(0755));
    }
    scene_.sandbox.environment["VELUND"] = program_;
  }

  void prepare_state_dir() const {
    const fs::path parent = scene_.sandbox.home() / ".local";
    if (is_state_dir("there")) {
      fs::create_directories(scene_.sandbox.state_dir());
    } else if (is_state_dir("behind a file")) {
      write_file(parent, "not a directory");
    } else if (is_state_dir("not permitted")) {
      fs::create_directory(parent);
      fs::permissions(parent, fs::perms(0555));
    }
  }

  void prepare_pid_file() const {
    const fs::path file = scene_.sandbox.pid_file();
    const std::string before = filled(cell_.pid_file->before, {{'%', std::to_string(bystander_)}});
    if (is_pid_file("a directory")) {
      fs::create_directories(file / "inside");
    } else if (before.starts_with("file of ")) {
      write_file(file, before.substr(std::string_view("file of ").size()));
    } else if (is_pid_file("a link to a file")) {
      write_file(beside(), "old\n");
    }
    if (is_pid_file("not writable")) {
      fs::permissions(file, fs::perms(0444));
    }
    if (before.starts_with("link to")) {
      fs::create_symlink(is_pid_file("a link into no directory") ? beside() / "none" : beside(),
                         file);
    }
  }

  void allow_all() const {
    std::error_code missing;
    fs::permissions(scene_.sandbox.home() / ".local", fs::perms(0755), missing);
  }

  // The child's pid as the child itself gives it. One that has no program to tell it is known by
  // the pid file only.
  std::string pid_of_child(const std::string& pid_file) const {
    const std::vector<std::string> told = scene_.logged("daemon runs");
    if (!told.empty()) {
      return told.front();
    }
    const std::size_t number = pid_file.find_first_of("0123456789");
    return number == std::string::npos ? "no pid"
                                       : std::to_string(std::stol(pid_file.substr(number)));
  }

  std::string expected(const std::string& pid_file) const {
    const Rule& rule = rule_for(cell_);
    const std::string program = program_.string();
    const std::map<char, std::string> marks = {
        {'%', pid_of_child(pid_file)},
        {'@', port()},
        {'^', program},
        {'&', program + " " + spaced(scene_.sandbox.daemon_flags())}};
    const std::string out = filled(rule.out, marks);
    const std::string err = filled(rule.err, marks);
    Outcome run{
        .status = rule.status, .signal = rule.status < 0 ? SIGABRT : 0, .out = out, .err = err};
    return seen(run) +
           (cell_.starts() ? filled(cell_.pid_file->after, marks)
                           : filled(cell_.pid_file->before, {{'%', std::to_string(bystander_)}})) +
           "\n" + expected_signals();
  }

  std::string expected_signals() const {
    std::string text;
    if (cell_.starts() && cell_.program->words != nullptr) {
      text += cell_.fate() == Fate::ends ? "daemon: ended\n" : untouched("daemon");
    }
    return text + (cell_.has_listener() ? untouched("listener") : "") + untouched("neighbour") +
           (bystander_ != 0 ? untouched("process") : "");
  }

  Combination cell_;
  Scene scene_;
  fs::path program_;
  pid_t bystander_ = 0;
};

// Those that take long come first, so that nothing is left to wait for in the end.
std::vector<Combination> combinations() {
  std::vector<Combination> cells;
  for (const Program& program : programs) {
    for (const Port& port : ports) {
      for (const Pid_file& pid_file : pid_files) {
        for (const State_dir& state_dir : state_dirs) {
          const Combination cell{&program, &port, &pid_file, &state_dir};
          if (cell.is_possible() && (wants_whole_matrix() || cell.is_for_every_day())) {
            cells.push_back(cell);
          }
        }
      }
    }
  }
  std::stable_partition(cells.begin(), cells.end(),
                        [](const Combination& c) { return c.is_slow(); });
  std::stable_partition(cells.begin(), cells.end(),
                        [](const Combination& c) { return c.is_mute(); });
  return cells;
}

TEST(StartMatrix, starts_one_child_where_nobody_answers_and_signals_nobody) {
  const std::vector<Combination> cells = combinations();
  side_by_side(
      "start", cells.size(), [&](std::size_t i) { Starting(cells[i]).play(); },
      [&](std::size_t i) { return cells[i].name(); });
}

}  // namespace
}  // namespace velun::test
