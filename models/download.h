// Downloads the files of a bundle, one `curl` run per file and source, the mirror first and the
// model hub second. A file gets its final name only when its download succeeded, so that a bundle
// never holds a truncated one under that name.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "config/config.h"
#include "models/catalog.h"

namespace velun {

/// An expected size for people: whole megabytes ("34 MB"), or from a thousand million bytes on
/// gigabytes cut to one decimal and printed with six ("1.200000 GB").
std::string size_text(std::int64_t bytes);

/// Runs `curl` from the search path for `url` into `output`, on the user's terminal. A non-empty
/// `header_file` names a file whose lines curl sends as request headers. Any status but 0 says that
/// curl failed or could not be run; 0 that it succeeded, or could not be waited for.
int run_curl(const std::string& url, const std::string& output, const std::string& header_file);

/// Downloads one file of `card` into `bundle`, unless something other than an empty file is there.
/// `VELUN_HF_TOKEN`, when set and not empty, goes to the hub only, through an owner-only header
/// file in the state directory. Prints a progress line; false, after a report on standard error,
/// when both sources failed. Throws std::filesystem::filesystem_error when the finished file cannot
/// be renamed.
bool download_file(const Config& config, const ModelCard& card, const BundleFile& file,
                   const std::filesystem::path& bundle);

}  // namespace velun
