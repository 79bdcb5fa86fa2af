#include "models/token_header.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>
#include <utility>

#include "config/locations.h"
#include "system/files.h"

namespace fs = std::filesystem;

namespace velun {

fs::path token_header_of(const Config& config) {
  return state_dir_of(config) / ".hf-token.header";
}

TokenHeader::TokenHeader(fs::path path, const std::string& token) : path_(std::move(path)) {
  const std::string line = "Authorization: Bearer " + token + "\n";
  remove_file(path_);
  file_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file_ < 0) {
    return;
  }
  // Needed only if the mask denies access to the owner. The file is private from its creation, so a
  // failure here exposes nothing.
  fchmod(file_, S_IRUSR | S_IWUSR);
  // On a full disk, curl must not send half a token.
  if (write(file_, line.data(), line.size()) != std::ssize(line)) {
    remove_file(path_);
  }
}

TokenHeader::~TokenHeader() {
  // Truncated first: the directory may have become read-only, and then the file stays.
  if (file_ >= 0) {
    [[maybe_unused]] const int ignored = ftruncate(file_, 0);
    close(file_);
  }
  remove_file(path_);
}

void remove_stale_token(const Config& config) {
  remove_file(token_header_of(config));
}

}  // namespace velun
