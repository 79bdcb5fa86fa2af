// A program whose every step a test decides, for what the real daemon or the real curl cannot be
// made to do. It is copied to wherever velun will find it; the steps stand beside it in a file.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace velun::test {

class Sandbox;

/// How one run of a scripted program was started, and what it found itself with.
struct RecordedRun {
  std::vector<std::string> argv;  ///< argument zero included
  pid_t pid = 0;
  pid_t group = 0;
  pid_t session = 0;
  std::string directory;                   ///< working directory
  std::string environment;                 ///< byte for byte, a NUL behind each variable
  std::map<int, std::string> descriptors;  ///< what each open descriptor leads to
  /// More that the system tells of it, such as "Umask", "SigBlk" and "SigIgn", as it words that.
  std::map<std::string, std::string> status;
};

class ScriptedProgram {
 public:
  /// Installs a copy at `path` that does one step per line of `steps`, in order:
  /// "exit N", "kill N" (signals itself), "fork" (ends with 0 and goes on as its own child, which
  /// is recorded as one more run), "sleep MS", "forever", "print TEXT", "complain TEXT" (standard
  /// error), "output TEXT" (into the file named behind -o), "fail-on TEXT" (status 22 when the last
  /// argument holds the text), "until-term" (goes on after a SIGTERM). Before all others may stand
  /// "log-term", which counts every SIGTERM and is not ended by it.
  ScriptedProgram(std::filesystem::path path, const std::string& steps);

  std::string path() const { return path_.string(); }
  /// Every run so far, in order.
  std::vector<RecordedRun> runs() const;
  /// The number of SIGTERMs that "log-term" has seen.
  std::size_t terms() const;

 private:
  std::filesystem::path path_;
};

/// Puts a curl that does these steps on the search path, and nothing else; the mirror that it is
/// sent to is a port of 127.0.0.1 at which nothing listens.
ScriptedProgram install_curl(Sandbox& sandbox, const std::string& steps);

}  // namespace velun::test
