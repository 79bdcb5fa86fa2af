#include "config/config_file.h"

#include <filesystem>
#include <optional>

#include "config/locations.h"
#include "config/reader.h"
#include "config/validator.h"
#include "config/writer.h"
#include "system/files.h"
#include "system/output.h"

namespace velun {

bool load_config(Config& config, bool verbose) {
  const std::filesystem::path path = config_path();
  const std::optional<std::string> text = read_file(path);
  if (!text) {
    if (verbose) {
      print_error("no configuration at " + path.string() + " — run `velun setup` first\n");
    }
    return false;
  }
  // Valid keys are applied even if other keys are invalid: setup offers their values.
  Problems problems;
  config = validate_config(parse_config_text(*text, problems), problems);
  if (problems.empty()) {
    return true;
  }
  std::string report = path.string() + " has problems:\n";
  for (const std::string& problem : problems) {
    report += "  " + problem + "\n";
  }
  print_error(report);
  return false;
}

void save_config(const Config& config) {
  const std::filesystem::path path = config_path();
  // A bare file name has no directory part and means the current directory.
  if (path.has_parent_path()) {
    std::filesystem::create_directories(path.parent_path());
  }
  // In place: a link stays a link, and the file keeps its permissions. The file is closed before
  // the message, so a reader that waits for the message finds the whole text.
  write_file(path, render_config(config));
  print("wrote " + path.string() + "\n");
}

}  // namespace velun
