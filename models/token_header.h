// The file that carries the hub token to curl, so the token is never on a command line. From its
// creation to its removal only its owner can read it.
#pragma once

#include <filesystem>
#include <string>

#include "config/config.h"

namespace velun {

/// The path of the header file in the state directory.
std::filesystem::path token_header_of(const Config& config);

/// A file of one line, "Authorization: Bearer " and the token. It is truncated and removed at the
/// end of its scope. The constructor removes what is at the path and creates a new file
/// exclusively: it follows no link, and a process that opened an older, readable file never sees
/// the token. If the old file stays or the new one cannot be created, nothing is written; a file
/// with only part of the token is removed. Give `path()` to curl in every case: without the file,
/// curl fails or sends no token.
class TokenHeader {
 public:
  TokenHeader(std::filesystem::path path, const std::string& token);
  ~TokenHeader();
  TokenHeader(const TokenHeader&) = delete;
  TokenHeader& operator=(const TokenHeader&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
  int file_ = -1;  // kept open: the destructor truncates the file even if it was renamed
};

/// Removes the header file of an earlier run that was killed.
void remove_stale_token(const Config& config);

}  // namespace velun
