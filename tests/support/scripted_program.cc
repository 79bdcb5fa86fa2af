#include "tests/support/scripted_program.h"

#include <sstream>
#include <system_error>
#include <utility>

#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// The parts of a text in which every part ends with `end`.
std::vector<std::string> split(const std::string& text, char end) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, end);) {
    parts.push_back(part);
  }
  return parts;
}

RecordedRun read_run(const fs::path& record) {
  RecordedRun run;
  run.argv = split(read_file(record / "cmdline"), '\0');
  run.directory = fs::read_symlink(record / "cwd");
  run.environment = read_file(record / "environ");
  for (const std::string& number : names_in(record / "fd")) {
    const std::string target = fs::read_symlink(record / "fd" / number);
    // The listing itself was made through one more descriptor.
    if (!target.starts_with("/proc/")) {
      run.descriptors[std::stoi(number)] = target;
    }
  }
  for (const std::string& line : split(read_file(record / "status"), '\n')) {
    const std::size_t colon = line.find(":\t");
    run.status[line.substr(0, colon)] = line.substr(colon + 2);
  }
  run.pid = std::stoi(run.status["Pid"]);
  run.group = std::stoi(run.status["NSpgid"]);
  run.session = std::stoi(run.status["NSsid"]);
  return run;
}

}  // namespace

ScriptedProgram::ScriptedProgram(fs::path path, const std::string& steps) : path_(std::move(path)) {
  fs::create_directories(path_.parent_path());
  fs::copy_file(VELUN_SCRIPTED_PROGRAM, path_, fs::copy_options::overwrite_existing);
  write_file(path_.string() + ".steps", steps);
}

std::vector<RecordedRun> ScriptedProgram::runs() const {
  std::vector<RecordedRun> result;
  const auto record = [&] { return path() + ".run." + std::to_string(result.size() + 1); };
  while (fs::exists(record())) {
    result.push_back(read_run(record()));
  }
  return result;
}

std::size_t ScriptedProgram::terms() const {
  std::error_code none_came;
  const std::uintmax_t size = fs::file_size(path() + ".terms", none_came);
  return none_came ? 0 : size;
}

ScriptedProgram install_curl(Sandbox& sandbox, const std::string& steps) {
  sandbox.environment["PATH"] = sandbox.root() / "bin";
  sandbox.environment["VELUN_MODEL_MIRROR"] = "http://127.0.0.1:1";
  return ScriptedProgram(sandbox.root() / "bin/curl", steps);
}

}  // namespace velun::test
