#include "config/locations.h"

#include <cstdlib>

#include "system/files.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

bool is_set_and_not_empty(const char* value) {
  return value != nullptr && *value != '\0';
}

// A HOME that is set but empty is used as it stands and gives a relative path. Without one, as in
// some containers, there is still a place to write to.
fs::path home_or_tmp() {
  const char* home = std::getenv("HOME");
  return home != nullptr ? home : "/tmp";
}

}  // namespace

// A path that the user spells out is taken as it stands, even an empty one: guessing another file
// would read or overwrite one that was not meant.
fs::path config_path() {
  if (const char* file = std::getenv("VELUN_CLI_CONFIG"); file != nullptr) {
    return file;
  }
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); is_set_and_not_empty(xdg)) {
    return fs::path(xdg) / "velun" / "velun.yaml";
  }
  return home_or_tmp() / ".config" / "velun" / "velun.yaml";
}

fs::path default_state_dir() {
  if (const char* directory = std::getenv("VELUN_STATE_DIR"); directory != nullptr) {
    return directory;
  }
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); is_set_and_not_empty(xdg)) {
    return fs::path(xdg) / "velun";
  }
  return home_or_tmp() / ".local" / "share" / "velun";
}

fs::path state_dir_of(const Config& config) {
  return config.state_dir.empty() ? default_state_dir() : fs::path(config.state_dir);
}

std::string read_control_token(const Config& config) {
  // Not trimmed: the daemon compares what it wrote, and hiding a stray blank would hide the fault.
  const File file = open_for_reading(state_dir_of(config) / "control.token");
  return file != nullptr ? read_line(file.get()) : "";
}

fs::path models_dir_of(const Config& config) {
  return state_dir_of(config) / "models";
}

fs::path pid_file_of(const Config& config) {
  return state_dir_of(config) / "velun-cli.pid";
}

}  // namespace velun
