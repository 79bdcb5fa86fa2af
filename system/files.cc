#include "system/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace velun {

bool path_exists(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

File open_for_reading(const std::filesystem::path& path) {
  return File(std::fopen(path.c_str(), "re"));
}

std::optional<std::string> read_file(const std::filesystem::path& path) {
  const File file = open_for_reading(path);
  if (file == nullptr) {
    return std::nullopt;
  }
  struct stat status = {};
  (void)fstat(fileno(file.get()), &status);
  // 0 means unknown: pipes, devices and files in /proc are read to their end.
  const auto size = static_cast<std::size_t>(S_ISREG(status.st_mode) ? status.st_size : 0);
  std::string text;
  ssize_t count = 0;
  // One read is enough even if the file has grown by less than 4,096 bytes since fstat. Reading
  // stops once the known size is reached: another read could append bytes of a later save.
  do {
    const std::size_t had = text.size();
    text.resize(std::max(size, had) + 4096);
    count = read(fileno(file.get()), text.data() + had, text.size() - had);
    text.resize(had + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  } while (count > 0 && (size == 0 || text.size() < size));
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
    // Writes once, without a buffer, so a concurrent reader finds the whole text or an empty file.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    std::fwrite(text.data(), 1, text.size(), file.get());
  }
}

}  // namespace velun
