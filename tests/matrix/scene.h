// One combination: a private home, the processes that play in it, and what became of each.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace velun::test {

/// Where a running process may be signalled by velun run without root's powers, and the other way
/// round.
constexpr uid_t nobody = 65534;

class Scene {
 public:
  Scene();

  Sandbox sandbox;

  /// What `actor.cc` is told: the part's name, the words, and where to write signals down.
  std::string part(const std::string& name, const std::string& words) const;

  /// Puts the program that plays all parts into a directory of the sandbox and returns its path;
  /// the environment decides what it plays.
  std::filesystem::path install_actor(const std::string& name, bool for_nobody) const;

  /// Starts an actor, waits until it plays its part, and returns its pid.
  pid_t play(const std::string& name, const std::string& words = "");

  /// The pid that the log has for this name; waits for it.
  pid_t pid_of(const std::string& name) const;

  /// How to run velun in a process group with one of the scene's actors, so that a signal to its
  /// own group would be seen.
  RunOptions beside(const std::string& name) const;

  /// The lines that start with `word` and a blank, without it.
  std::vector<std::string> logged(const std::string& word) const;

  /// Sends all actors home and returns a line for each, sorted: its name, the signals that reached
  /// it, and whether it was still there.
  std::string signals() const;

 private:
  std::filesystem::path log() const { return sandbox.root() / "log"; }
};

/// What `Scene::signals` says of an actor that nothing reached.
inline std::string untouched(const std::string& name) {
  return name + ": there\n";
}

/// The text with each mark replaced.
std::string filled(const std::string& text, const std::map<char, std::string>& marks);

/// The run, and instead of what the runtime says of an exception that nobody catches, only
/// "terminated: " and what could not be done.
Outcome in_short(Outcome run);

/// What stands at a path, as one line: the kind, and a file's text or a link's target.
std::string at(const std::filesystem::path& path);

}  // namespace velun::test
