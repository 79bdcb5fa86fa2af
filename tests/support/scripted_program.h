// A program that does the steps that a test chooses, in the place of the daemon or curl. It is
// copied to a place where velun finds it, with the steps in a file beside it.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace velun::test {

class Sandbox;

/// How one run of a scripted program was started.
struct RecordedRun {
  std::vector<std::string> argv;  ///< argument zero included
  pid_t pid = 0;
  pid_t group = 0;
  pid_t session = 0;
  std::string directory;                   ///< working directory
  std::string environment;                 ///< byte for byte, a NUL behind each variable
  std::map<int, std::string> descriptors;  ///< the file of each open descriptor
  /// The fields of /proc/PID/status, such as "Umask", "SigBlk" and "SigIgn".
  std::map<std::string, std::string> status;
};

class ScriptedProgram {
 public:
  /// Installs a copy at `path` that does one step per line of `steps`, in order:
  /// "exit N", "kill N" (signals itself), "fork" (ends with 0 and goes on as its own child, which
  /// is recorded as one more run), "sleep MS", "forever", "print TEXT", "complain TEXT" (standard
  /// error), "output TEXT" (into the file named behind -o), "fail-on TEXT" (status 22 when the last
  /// argument holds the text). The first step may be "log-term": it counts every SIGTERM, which
  /// then does not end the program.
  ScriptedProgram(std::filesystem::path path, const std::string& steps);

  std::string path() const { return path_.string(); }
  /// Every run so far, in order.
  std::vector<RecordedRun> runs() const;
  /// The number of SIGTERMs that "log-term" has counted.
  std::size_t terms() const;

 private:
  std::filesystem::path path_;
};

/// Makes a curl with these steps the only program on the search path. Nothing listens at the
/// address of the mirror.
ScriptedProgram install_curl(Sandbox& sandbox, const std::string& steps);

}  // namespace velun::test
