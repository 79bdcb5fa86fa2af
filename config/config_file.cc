#include "config/config_file.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>

#include "config/locations.h"
#include "config/reader.h"
#include "config/validator.h"
#include "config/writer.h"
#include "system/make_directories.h"

namespace velun {
namespace {

// A directory opens for reading and fails only on the first read, which counts as unreadable.
std::optional<std::string> read_file(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file) {
    return std::nullopt;
  }
  std::string text;
  char chunk[4096];
  while (file.read(chunk, sizeof chunk) || file.gcount() > 0) {
    text.append(chunk, static_cast<std::size_t>(file.gcount()));
  }
  return file.bad() ? std::nullopt : std::optional(text);
}

}  // namespace

bool load_config(Config& config, MissingFile missing_file) {
  const std::filesystem::path path = config_path();
  const std::optional<std::string> text = read_file(path);
  if (!text) {
    if (missing_file == MissingFile::reported) {
      std::cerr << "no configuration at " + path.string() + " — run `velun setup` first\n";
    }
    return false;
  }
  // Every valid key is applied even when others are not: setup offers what could be understood.
  Problems problems;
  config = validate_config(parse_config_text(*text, problems), problems);
  if (problems.empty()) {
    return true;
  }
  std::string report = path.string() + " has problems:\n";
  for (const Problem& problem : problems) {
    report += "  " + (problem.line != 0 ? "line " + std::to_string(problem.line) + ": " : "") +
              problem.text + "\n";
  }
  std::cerr << report;
  return false;
}

void save_config(const Config& config) {
  const std::filesystem::path path = config_path();
  // A bare file name has no directory part and means the current directory.
  if (path.has_parent_path()) {
    make_directories(path.parent_path());
  }
  // In place, neither through a temporary file nor with permissions of its own: a link stays a
  // link, and the file stays as private as its owner made it.
  std::ofstream file(path, std::ios::trunc);
  // Written out before it is said to be: whoever waits for the line may read the file at once.
  file << render_config(config) << std::flush;
  std::cout << "wrote " + path.string() + "\n";
}

}  // namespace velun
