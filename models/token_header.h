// The file that carries the hub token to curl, so that it never stands on a command line: from its
// creation to its removal the token is for its owner's eyes only.
#pragma once

#include <filesystem>
#include <string>

#include "config/config.h"

namespace velun {

/// The header file's place in the state directory.
std::filesystem::path token_header_of(const Config& config);

/// A file of one line, "Authorization: Bearer " and the token, that is emptied and removed at the
/// end of its scope. What was at the path is removed, then the file is created anew: no link is
/// followed, and whoever opened an older, readable file never sees the token appear in it. When the
/// old one stays or the new one cannot be created, nothing is written; one that does not fit whole
/// is removed. curl is told of the path all the same: without a file it asks nobody or asks without
/// the token.
class TokenHeader {
 public:
  TokenHeader(std::filesystem::path path, const std::string& token);
  ~TokenHeader();
  TokenHeader(const TokenHeader&) = delete;
  TokenHeader& operator=(const TokenHeader&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
  int file_ = -1;  // open until the end, so that it can be emptied under whatever name it has then
};

/// Removes a header file that a run left behind because it was killed.
void remove_stale_token(const Config& config);

}  // namespace velun
