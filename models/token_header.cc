#include "models/token_header.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "config/locations.h"
#include "system/files.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

// An open file descriptor, closed with its scope.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) {
      close(number_);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return number_; }

 private:
  int number_;
};

bool write_all(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(file, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written == 0 || errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace

fs::path token_header_of(const Config& config) {
  return state_dir_of(config) / ".hf-token.header";
}

TokenHeader::TokenHeader(fs::path path, const std::string& token) : path_(std::move(path)) {
  remove_file(path_);
  const Descriptor file(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (file.get() < 0) {
    return;
  }
  // Only a mask that denies the owner, too, makes this necessary: the file has been private from
  // its creation, so that a failure gives nothing away.
  fchmod(file.get(), S_IRUSR | S_IWUSR);
  // A full disk must not leave half a token for curl to send.
  if (!write_all(file.get(), "Authorization: Bearer " + token + "\n")) {
    remove_file(path_);
  }
}

TokenHeader::~TokenHeader() {
  remove_file(path_);
}

void remove_stale_token(const Config& config) {
  remove_file(token_header_of(config));
}

}  // namespace velun
