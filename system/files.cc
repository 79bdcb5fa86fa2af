#include "system/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

namespace velun {
namespace {

// Of two that write at once the shorter text would stand before the end of the longer one. Not for
// long: somebody else's lock, or a file system without locks, must not keep velun from its work.
void wait_for_other_writers(int descriptor) {
  struct flock whole = {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  for (int i = 0; i < 100 && fcntl(descriptor, F_OFD_SETLK, &whole) != 0 && errno == EAGAIN; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace

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
  constexpr mode_t for_all = 0666;
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, for_all);
  const File file(descriptor < 0 ? nullptr : fdopen(descriptor, "w"));
  if (file == nullptr) {
    return;
  }
  wait_for_other_writers(descriptor);
  // What has no length, such as a device, is written to all the same.
  (void)!ftruncate(descriptor, 0);
  std::fwrite(text.data(), 1, text.size(), file.get());
}

}  // namespace velun
