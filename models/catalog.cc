#include "models/catalog.h"

#include <cstdlib>

#include "config/outside_locations.h"

namespace velun {

const ModelCard& model_catalog() {
  static const ModelCard card = {.id = "velun-pii-m-v1.3",
                                 .repository = "quorvane/velun-pii-m-v1.3",
                                 .revision = "main",
                                 .display_name = "Velun 1.3",
                                 .window = 1024,
                                 .has_compact = false,
                                 .gated = true,
                                 .segment = "union"};
  return card;
}

std::vector<BundleFile> bundle_files(const ModelCard& card, const std::string& variant) {
  // Checked here too, so no caller can ask for a graph that does not exist.
  const bool compact = variant == "compact" && card.has_compact;
  return {{"tokenizer/tokenizer.json", "tokenizer.json", 34'400'000},
          {"calibration.json", "calibration.json", 400},
          compact ? BundleFile{"quant/model-q8.onnx", "model.int8.onnx", 309'000'000}
                  : BundleFile{"quant/model-fp32.onnx", "model.fp32.onnx", 1'231'000'000}};
}

std::string hub_url(const ModelCard& card, const BundleFile& file) {
  return hub_base_url + card.repository + "/resolve/" + card.revision + "/" + file.remote_path;
}

std::string mirror_url(const ModelCard& card, const BundleFile& file) {
  const char* chosen = std::getenv("VELUN_MODEL_MIRROR");
  std::string base = chosen != nullptr && *chosen != '\0' ? chosen : mirror_base_url;
  // Removes every trailing slash; one is added below.
  while (base.ends_with('/')) {
    base.pop_back();
  }
  return base + "/" + card.id + "/" + file.remote_path;
}

}  // namespace velun
