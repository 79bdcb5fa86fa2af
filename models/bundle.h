// A bundle: the directory that the daemon loads its detection model from. Two of its files are of
// velun's own making; JSON that velun writes is built as text.
#pragma once

#include <filesystem>
#include <string>

#include "models/catalog.h"

namespace velun {

/// True when the directory has a graph (model.fp32.onnx or model.int8.onnx), tokenizer.json and
/// labels.json, whatever they are and hold.
bool bundle_complete(const std::filesystem::path& bundle);

/// The text of labels.json: the label heads of the model, nineteen from a window of 1024 on, else
/// the four detailed ones.
std::string labels_json(const ModelCard& card);

/// The text of manifest.json: model, window and, unless empty, segment.
std::string manifest_json(const ModelCard& card);

/// Writes labels.json and manifest.json into the bundle, replacing older ones, and tests that
/// tokenizer.json is JSON. Says on standard output how to activate the bundle, or on standard error
/// that the tokenizer did not parse; returns 0 or 1. A file that cannot be written goes unreported.
int finish_bundle(const ModelCard& card, const std::filesystem::path& bundle);

}  // namespace velun
