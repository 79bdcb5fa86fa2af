// A bundle: the directory that the daemon loads its detection model from. Two of its files are of
// velun's own making; JSON that velun writes is built as text. Nothing is printed here.
#pragma once

#include <filesystem>
#include <string>

#include "models/catalog.h"

namespace velun {

/// True when the directory has a graph (model.fp32.onnx or model.int8.onnx), tokenizer.json and
/// labels.json. Anything that exists under these names counts, whatever it is or holds.
bool bundle_complete(const std::filesystem::path& directory);

/// The text of labels.json: the label heads of the model, nineteen from a window of 1024 on, else
/// the four detailed ones.
std::string labels_json(const ModelCard& card);

/// The text of manifest.json: model, window and, unless empty, segment.
std::string manifest_json(const ModelCard& card);

/// Writes labels.json and manifest.json into the bundle, replacing older ones. A file that cannot
/// be written goes unreported; without labels.json the bundle is not complete.
void write_own_files(const ModelCard& card, const std::filesystem::path& bundle);

/// True when the bundle's tokenizer.json is JSON; false, too, when it cannot be read.
bool tokenizer_parses(const std::filesystem::path& bundle);

}  // namespace velun
