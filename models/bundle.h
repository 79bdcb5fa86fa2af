// A bundle is the directory from which the daemon loads its detection model. velun writes two of
// its files itself, as text. Nothing is printed here.
#pragma once

#include <filesystem>
#include <string>

#include "models/catalog.h"

namespace velun {

/// True if the directory has a graph (model.fp32.onnx or model.int8.onnx), tokenizer.json and
/// labels.json. Existing files of any kind and content count. Links are followed; a dangling one
/// does not count.
bool bundle_complete(const std::filesystem::path& directory);

/// The text of labels.json: all label heads for a window of 1024 or more, else the four detailed
/// ones.
std::string labels_json(const ModelCard& card);

/// The text of manifest.json: model, window and, if not empty, segment.
std::string manifest_json(const ModelCard& card);

/// Writes labels.json and manifest.json into the bundle, replacing older ones. A failed write is
/// not reported; without labels.json the bundle is not complete.
void write_own_files(const ModelCard& card, const std::filesystem::path& bundle);

/// True if the bundle's tokenizer.json can be read and is valid JSON.
bool tokenizer_parses(const std::filesystem::path& bundle);

}  // namespace velun
