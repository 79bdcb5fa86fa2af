// Creating the directories that velun writes into.
#pragma once

#include <filesystem>

namespace velun {

/// Creates the directory and its missing parents. Throws std::filesystem::filesystem_error when
/// that is impossible, which nothing catches: what was printed so far is written out first, or it
/// would be lost with the process.
void make_directories(const std::filesystem::path& path);

}  // namespace velun
