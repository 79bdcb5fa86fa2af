// Downloads the files of a bundle, one `curl` run per file and source: the mirror first, then the
// model hub. A file gets its final name only after its download succeeded.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "config/config.h"
#include "models/catalog.h"

namespace velun {

/// An expected size for display: whole megabytes ("34 MB"); from 1,000,000,000 bytes on, gigabytes
/// truncated to one decimal and printed with six ("1.200000 GB").
std::string size_text(std::int64_t bytes);

/// Runs `curl` from the search path to download `url` into `output`, on the user's terminal. A
/// non-empty `header_file` names a file whose lines curl sends as request headers. Returns 0 if
/// curl succeeded or the wait for it failed; any other value if curl failed or could not be run.
int run_curl(const std::string& url, const std::string& output, const std::string& header_file);

/// Downloads one file of `card` into `bundle`, unless something other than an empty file is there.
/// `VELUN_HF_TOKEN`, if set and not empty, goes to the hub only, through an owner-only header file
/// in the state directory. Prints a progress line. Returns false, after a report on standard error,
/// if both sources failed. Throws std::filesystem::filesystem_error if the finished file cannot be
/// renamed.
bool download_file(const Config& config, const ModelCard& card, const BundleFile& file,
                   const std::filesystem::path& bundle);

}  // namespace velun
