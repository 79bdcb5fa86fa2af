#include "tests/matrix/scene.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/last_words.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// How a process that was sent home had fared until then.
std::string ending_of(pid_t pid) {
  const int earlier = wait_for(pid, std::chrono::milliseconds(0));
  if (earlier == -1) {
    kill(pid, SIGUSR1);
    return wait_for(pid, std::chrono::seconds(10)) == -1 ? "stuck" : "there";
  }
  return WIFSIGNALED(earlier) ? "ended by signal " + std::to_string(WTERMSIG(earlier)) : "gone";
}

}  // namespace

Scene::Scene() {
  sandbox.configure();
}

std::string Scene::part(const std::string& name, const std::string& words) const {
  return name + " log=" + log().string() + " owner=" + std::to_string(getpid()) +
         (words.empty() ? "" : " " + words);
}

fs::path Scene::install_actor(const std::string& name, bool for_nobody) const {
  const fs::path path = sandbox.root() / "programs" / name;
  fs::create_directories(path.parent_path());
  // Where it was built may be closed to others.
  if (for_nobody) {
    fs::copy_file(VELUN_ACTOR, path);
  } else {
    fs::create_symlink(VELUN_ACTOR, path);
  }
  return path;
}

pid_t Scene::play(const std::string& name, const std::string& words) {
  Launch launch;
  launch.program = VELUN_ACTOR;
  launch.argv = {"actor"};
  launch.environment = {{"ACTOR", part(name, words)}};
  spawn(launch);
  return pid_of(name);
}

pid_t Scene::pid_of(const std::string& name) const {
  const auto is_logged = [&] { return !logged(name + " plays").empty(); };
  if (!eventually(is_logged)) {
    ADD_FAILURE() << name << " does not play";
    return 0;
  }
  return std::atoi(logged(name + " plays").back().c_str());
}

RunOptions Scene::beside(const std::string& name) const {
  RunOptions options;
  options.in_child = [group = pid_of(name)] {
    if (setpgid(0, group) != 0) {
      _exit(126);
    }
  };
  return options;
}

std::vector<std::string> Scene::logged(const std::string& word) const {
  std::vector<std::string> lines;
  std::ifstream file(log());
  for (std::string line; std::getline(file, line) && !file.eof();) {
    if (line.starts_with(word + " ")) {
      lines.push_back(line.substr(word.size() + 1));
    }
  }
  return lines;
}

std::string Scene::signals() const {
  std::ifstream file(log());
  std::map<std::string, pid_t> actors;
  for (std::string name, word, rest; file >> name >> word && std::getline(file, rest);) {
    if (word == "runs" || (word == "plays" && actors.contains(name))) {
      actors[name] = std::atoi(rest.c_str());
    }
  }
  std::string text;
  for (const auto& [name, pid] : actors) {
    const std::string ending = logged(name).back() == "ended" ? "ended" : ending_of(pid);
    text += name + ":";
    for (const std::string& number : logged(name + " signal")) {
      text += " " + number;
    }
    text += " " + ending + "\n";
  }
  return text;
}

std::string filled(const std::string& text, const std::map<char, std::string>& marks) {
  std::string result;
  for (const char c : text) {
    const auto mark = marks.find(c);
    result += mark == marks.end() ? std::string(1, c) : mark->second;
  }
  return result;
}

Outcome in_short(Outcome run) {
  const std::size_t begin = run.err.find(begin_of_last_words);
  for (const char* what : {"create directories", "rename"}) {
    if (begin != std::string::npos && run.err.find(cannot(what), begin) != std::string::npos) {
      run.err.replace(begin, std::string::npos, std::string("terminated: cannot ") + what);
      break;
    }
  }
  return run;
}

std::string at(const fs::path& path) {
  std::error_code missing;
  const fs::file_status status = fs::symlink_status(path, missing);
  if (fs::is_symlink(status)) {
    return "link to " + at(fs::read_symlink(path));
  }
  if (fs::is_directory(status)) {
    std::string text = "directory of";
    for (const std::string& name : names_in(path)) {
      text += " " + name;
    }
    return text;
  }
  return fs::exists(status) ? "file of " + read_file(path) : "nothing";
}

}  // namespace velun::test
