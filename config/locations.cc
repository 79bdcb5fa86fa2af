#include "config/locations.h"

#include <cstdlib>

#include "system/files.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

bool is_set_and_not_empty(const char* value) {
  return value != nullptr && *value != '\0';
}

// An empty HOME gives a relative path. Without HOME, as in some containers, /tmp is used.
fs::path home_or_tmp() {
  const char* home = std::getenv("HOME");
  return home != nullptr ? home : "/tmp";
}

}  // namespace

// A path that the user names is used as it stands, even an empty one: falling back to another file
// could read or overwrite one that the user did not mean.
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
  // Not trimmed: the daemon expects the token as it wrote it, and trimming would hide a damaged
  // file.
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
