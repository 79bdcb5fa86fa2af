// Finding, reading, writing and removing files.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace velun {

/// True if anything is at the path, links followed. False also if the check fails, for example
/// because a name is too long or a permission is missing.
bool path_exists(const std::filesystem::path& path);

/// Closes a file with its scope.
struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

/// A file of the C library. Null if it could not be opened.
using File = std::unique_ptr<std::FILE, CloseFile>;

/// Opens the file for reading; a child does not inherit it.
File open_for_reading(const std::filesystem::path& path);

/// The whole content; bytes that are added during the read may be missing. Nothing if the file
/// cannot be opened or read. A directory opens for reading and fails on the first read.
std::optional<std::string> read_file(const std::filesystem::path& path);

/// The next line, without its newline. At the end of the file and on a read error, the text so far.
std::string read_line(std::FILE* file);

/// Removes a file, a link or an empty directory. A failure is not reported.
void remove_file(const std::filesystem::path& path);

/// Replaces the content, or creates the file with the permissions that the mask leaves. A failure
/// is not reported.
void write_file(const std::filesystem::path& path, std::string_view text);

}  // namespace velun
