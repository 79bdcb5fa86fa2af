#include "system/files.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <system_error>
#include <utility>

namespace velun {

File open_for_reading(const std::filesystem::path& path) {
  return File(std::fopen(path.c_str(), "re"));
}

std::optional<std::string> read_file(const std::filesystem::path& path) {
  const File file = open_for_reading(path);
  if (file == nullptr) {
    return std::nullopt;
  }
  std::string text;
  // One piece of memory for a file that tells its size, however large; the others grow into theirs.
  std::error_code no_size;
  const std::uintmax_t size = std::filesystem::file_size(path, no_size);
  if (!no_size) {
    text.reserve(size);
  }
  // What has its size is not asked for more: somebody may have written the file anew meanwhile, and
  // more would be the end of another text. Zero is what a file in /proc says, whatever it holds.
  char chunk[4096];
  ssize_t count = 0;
  do {
    count = read(fileno(file.get()), chunk, sizeof chunk);
    text.append(chunk, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  } while (count > 0 && (no_size || size == 0 || text.size() < size));
  return count < 0 ? std::nullopt : std::optional(std::move(text));
}

std::string read_line(std::FILE* file) {
  std::string line;
  for (int c = std::getc(file); c != EOF && c != '\n'; c = std::getc(file)) {
    line += static_cast<char>(c);
  }
  return line;
}

void remove_file(const std::filesystem::path& path) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

void write_file(const std::filesystem::path& path, std::string_view text) {
  if (const File file(std::fopen(path.c_str(), "we")); file != nullptr) {
    std::fwrite(text.data(), 1, text.size(), file.get());
  }
}

}  // namespace velun
