// The scripted program itself, see scripted_program.h: records how it was started, then walks
// through its steps.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

// Handlers have nothing but globals to work with.
char terms_file[4096];
volatile sig_atomic_t late_ms = 0;

void log_term(int) {
  const int file = open(terms_file, O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (file < 0 || write(file, "TERM\n", 5) != 5) {
    _exit(99);
  }
  close(file);
}

void end_late(int) {
  timespec rest{late_ms / 1000, late_ms % 1000 * 1000000L};
  nanosleep(&rest, nullptr);
  _exit(0);
}

// Copies what the system knows of this process. Written under another name first, so that a record
// that can be seen is whole.
void record(const std::string& self) {
  const fs::path process = "/proc/self";
  const fs::path draft = self + ".draft." + std::to_string(getpid());
  fs::create_directories(draft / "fd");
  for (const auto& entry : fs::directory_iterator(process / "fd")) {
    fs::copy_symlink(entry.path(), draft / "fd" / entry.path().filename());
  }
  fs::copy_symlink(process / "cwd", draft / "cwd");
  for (const char* name : {"cmdline", "environ", "status"}) {
    std::ofstream(draft / name) << std::ifstream(process / name).rdbuf();
  }
  // Two that run at once cannot both have a name: nothing is renamed to a directory with content.
  std::error_code taken;
  int number = 0;
  do {
    fs::rename(draft, self + ".run." + std::to_string(++number), taken);
  } while (taken && number < 1000);
}

void write_output(const std::string& text, int argc, char* argv[]) {
  for (int i = 1; i + 1 < argc; ++i) {
    if (std::string(argv[i]) == "-o") {
      std::ofstream(argv[i + 1]) << text;
    }
  }
}

void sleep_ms(int duration) {
  std::this_thread::sleep_for(std::chrono::milliseconds(duration));
}

struct Step {
  std::string word;
  std::string rest;
};

std::vector<Step> read_steps(const std::string& file) {
  std::vector<Step> steps;
  std::ifstream lines(file);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t blank = std::min(line.find(' '), line.size());
    steps.push_back({line.substr(0, blank), line.substr(std::min(blank + 1, line.size()))});
  }
  return steps;
}

// Returns whether the step was about SIGTERM.
bool handle_term(const Step& step) {
  if (step.word == "ignore-term") {
    signal(SIGTERM, SIG_IGN);
  } else if (step.word == "log-term") {
    signal(SIGTERM, log_term);
  } else if (step.word == "late-term") {
    late_ms = std::atoi(step.rest.c_str());
    signal(SIGTERM, end_late);
  } else {
    return false;
  }
  return true;
}

void perform(const Step& step, const std::string& self, int argc, char* argv[]) {
  const int number = std::atoi(step.rest.c_str());
  if (step.word == "exit") {
    _exit(number);
  } else if (step.word == "kill") {
    kill(getpid(), number);
  } else if (step.word == "fork") {
    if (fork() != 0) {
      _exit(0);
    }
    record(self);
  } else if (step.word == "sleep") {
    sleep_ms(number);
  } else if (step.word == "forever") {
    for (int i = 0; i < 1200; ++i) {
      sleep_ms(100);  // two minutes, should nobody end it before
    }
  } else if (step.word == "print") {
    std::cout << step.rest << '\n' << std::flush;
  } else if (step.word == "complain") {
    std::cerr << step.rest << '\n';
  } else if (step.word == "output") {
    write_output(step.rest, argc, argv);
  } else if (step.word == "fail-on" &&
             std::string(argv[argc - 1]).find(step.rest) != std::string::npos) {
    _exit(22);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::string self = fs::read_symlink("/proc/self/exe").string();
  std::snprintf(terms_file, sizeof terms_file, "%s.terms", self.c_str());
  const std::vector<Step> steps = read_steps(self + ".steps");
  auto step = steps.begin();
  // Handlers are in place before anyone can see that the program runs.
  while (step != steps.end() && handle_term(*step)) {
    ++step;
  }
  record(self);
  for (; step != steps.end(); ++step) {
    perform(*step, self, argc, argv);
  }
  return 0;
}
