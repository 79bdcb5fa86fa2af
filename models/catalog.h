// The one detection model that velun knows, the files of a download, and the URLs of each file.
// Nothing here uses the network; the functions only join texts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velun {

/// One model of the catalog.
struct ModelCard {
  std::string id;            ///< bundle directory, word for `velun model use`, mirror folder
  std::string repository;    ///< owner/name on the model hub
  std::string revision;      ///< the hub's branch
  std::string display_name;  ///< for messages and manifest.json
  int window = 0;            ///< for manifest.json; also selects the form of labels.json
  bool has_compact = false;  ///< a compact variant can be downloaded
  bool gated = false;        ///< the hub serves it only after its licence was accepted
  std::string segment;       ///< for manifest.json; left out there when empty
};

/// One file of a download.
struct BundleFile {
  std::string remote_path;         ///< below the repository or the mirror's model folder
  std::string local_name;          ///< in the bundle directory
  std::int64_t expected_size = 0;  ///< bytes, for the progress line only
};

/// The catalog's record. It lives until the program ends.
const ModelCard& model_catalog();

/// The files of one download in order, the graph last. `variant` is "full" or "compact"; the
/// compact graph is chosen only if the card has one.
std::vector<BundleFile> bundle_files(const ModelCard& card, const std::string& variant);

/// The file's URL on the public model hub.
std::string hub_url(const ModelCard& card, const BundleFile& file);

/// The file's URL on the mirror: below `VELUN_MODEL_MIRROR`, without its trailing slashes, if that
/// is set and not empty; else below the maker's mirror.
std::string mirror_url(const ModelCard& card, const BundleFile& file);

}  // namespace velun
