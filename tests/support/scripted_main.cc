// The program of scripted_program.h: records how it was started, then does its steps one by one.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>

namespace fs = std::filesystem;

namespace {

// A signal handler can use only a global.
int terms_file = -1;

void log_term(int) {
  if (write(terms_file, "T", 1) != 1) {
    _exit(99);
  }
}

// Copies the entries of /proc for this process. The rename comes last, so a record with its final
// name is complete.
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
  // Two processes cannot take the same name: rename fails if the target is a directory with
  // content.
  std::error_code taken;
  int number = 0;
  do {
    fs::rename(draft, self + ".run." + std::to_string(++number), taken);
  } while (taken && number < 1000);
}

void perform(const std::string& word, const std::string& rest, const std::string& self, int argc,
             char* argv[]) {
  const int number = std::atoi(rest.c_str());
  if (word == "exit") {
    _exit(number);
  } else if (word == "kill") {
    kill(getpid(), number);
  } else if (word == "fork") {
    if (fork() != 0) {
      _exit(0);
    }
    record(self);
  } else if (word == "sleep") {
    std::this_thread::sleep_for(std::chrono::milliseconds(number));
  } else if (word == "forever") {
    std::this_thread::sleep_for(std::chrono::minutes(2));  // the limit, if no signal comes
  } else if (word == "print") {
    std::cout << rest << '\n' << std::flush;
  } else if (word == "complain") {
    std::cerr << rest << '\n';
  } else if (word == "output") {
    for (int i = 1; i + 1 < argc; ++i) {
      if (std::string(argv[i]) == "-o") {
        std::ofstream(argv[i + 1]) << rest;
      }
    }
  } else if (word == "fail-on" && std::string(argv[argc - 1]).find(rest) != std::string::npos) {
    _exit(22);
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::string self = fs::read_symlink("/proc/self/exe").string();
  std::stringstream steps;
  steps << std::ifstream(self + ".steps").rdbuf();
  // Installs the handler before the record shows that the program runs.
  if (steps.str().starts_with("log-term")) {
    terms_file = open((self + ".terms").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    signal(SIGTERM, log_term);
  }
  record(self);
  for (std::string word; steps >> word;) {
    std::string rest;
    std::getline(steps, rest);
    perform(word, rest.empty() ? rest : rest.substr(1), self, argc, argv);
  }
  return 0;
}
