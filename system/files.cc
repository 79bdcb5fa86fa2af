#include "system/files.h"

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
  if (const auto size = std::filesystem::file_size(path, no_size); !no_size) {
    text.reserve(size);
  }
  char chunk[4096];
  std::size_t count = 0;
  do {
    count = std::fread(chunk, 1, sizeof chunk, file.get());
    text.append(chunk, count);
  } while (count == sizeof chunk);
  return std::ferror(file.get()) == 0 ? std::optional(std::move(text)) : std::nullopt;
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
