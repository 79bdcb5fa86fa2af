#include "tests/support/scripted_program.h"

#include <fstream>
#include <sstream>
#include <utility>

#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {

ScriptedProgram::ScriptedProgram(fs::path path, const std::string& steps) : path_(std::move(path)) {
  fs::create_directories(path_.parent_path());
  fs::copy_file(VELUN_SCRIPTED_PROGRAM, path_, fs::copy_options::overwrite_existing);
  write_file(path_.string() + ".steps", steps);
}

std::vector<RecordedRun> ScriptedProgram::runs() const {
  std::vector<RecordedRun> result;
  for (int number = 1;; ++number) {
    std::ifstream file(path_.string() + ".run." + std::to_string(number));
    if (!file) {
      return result;
    }
    RecordedRun run;
    std::string line;
    std::getline(file, line);
    std::istringstream(line) >> run.pid >> run.session;
    while (std::getline(file, line, '\0')) {
      run.argv.push_back(line);
    }
    result.push_back(run);
  }
}

std::size_t ScriptedProgram::terms() const {
  std::ifstream file(path_.string() + ".terms");
  std::size_t count = 0;
  for (std::string line; std::getline(file, line);) {
    ++count;
  }
  return count;
}

}  // namespace velun::test
