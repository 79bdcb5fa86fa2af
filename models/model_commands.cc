#include "models/model_commands.h"

#include <filesystem>
#include <string>
#include <system_error>

#include "config/config_file.h"
#include "config/locations.h"
#include "daemon/control_client.h"
#include "models/bundle.h"
#include "models/catalog.h"
#include "models/download.h"
#include "models/token_header.h"
#include "system/exit_status.h"
#include "system/files.h"
#include "system/output.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

// A line for each bundle, in the order of the directory. A directory that cannot be read lists
// nothing.
std::string bundle_lines(const fs::path& models_dir, const std::string& model_dir) {
  std::string lines;
  std::error_code error;
  const fs::directory_iterator end;
  for (fs::directory_iterator entry(models_dir, error); entry != end; entry.increment(error)) {
    std::error_code unknown_kind;
    if (!entry->is_directory(unknown_kind)) {
      continue;
    }
    // Paths are compared as texts: one spelled another way is not marked.
    lines += entry->path().string() == model_dir ? "* " : "  ";
    lines += entry->path().filename().string();
    lines += bundle_complete(entry->path()) ? "\n" : "  (incomplete)\n";
  }
  return lines;
}

int list_models(const Config& config) {
  const fs::path models_dir = models_dir_of(config);
  std::string text = bundle_lines(models_dir, config.model_dir);
  if (!config.model_dir.empty() && !config.model_dir.starts_with(models_dir.string())) {
    text += "* " + config.model_dir + "  (external path)\n";
  } else if (text.empty()) {
    text = "no models — `velun model fetch` downloads one (~1.2 GB)\n";
  }
  print(text);
  return status_success;
}

int fetch_model(const Config& config, const std::string& argument) {
  remove_stale_token(config);
  const ModelCard& card = model_catalog();
  const bool compact = argument == "compact";
  // Not refused: the user still needs a model.
  if (compact && !card.has_compact) {
    print(card.display_name + " ships full size only; fetching that.\n");
  }
  const std::string variant = compact && card.has_compact ? "compact" : "full";
  const fs::path bundle = models_dir_of(config) / card.id;
  fs::create_directories(bundle);
  print("fetching " + card.id + " (" + variant + ")\n");
  // Completed files stay if a later one fails, and the next fetch goes on from there.
  for (const BundleFile& file : bundle_files(card, variant)) {
    if (!download_file(config, card, file, bundle)) {
      return status_failure;
    }
  }
  write_own_files(card, bundle);
  if (!tokenizer_parses(bundle)) {
    print_error("tokenizer.json did not parse — delete " + bundle.string() + " and fetch again\n");
    return status_failure;
  }
  print("done. activate it with: velun model use " + card.id + "\n");
  return status_success;
}

int use_model(Config config, const std::string& argument) {
  if (argument.empty()) {
    print_error("usage: velun model use <id-or-path>\n");
    return status_usage;
  }
  // A path that exists wins over a downloaded bundle of the same name.
  fs::path bundle = argument;
  if (!path_exists(bundle)) {
    bundle = models_dir_of(config) / argument;
  }
  if (!path_exists(bundle)) {
    print_error("no bundle at " + argument + " — `velun model list`\n");
    return status_failure;
  }
  if (!bundle_complete(bundle)) {
    print_error(bundle.string() + " is incomplete (needs a graph, tokenizer.json, labels.json)\n");
    return status_failure;
  }
  // Absolute, because the next start may run in another directory. Links are not resolved: the user
  // may point one to another bundle later.
  config.model_dir = fs::absolute(bundle).string();
  config.endpoint_url.clear();
  save_config(config);
  // Not restarted here: a restart interrupts every client, so the user decides.
  if (daemon_healthy(config.control_port)) {
    print("restart to load it: velun restart\n");
  }
  return status_success;
}

}  // namespace

int run_model_command(const Config& config, const std::string& word, const std::string& argument) {
  if (word.empty() || word == "list") {
    return list_models(config);
  }
  if (word == "fetch") {
    return fetch_model(config, argument);
  }
  if (word == "use") {
    return use_model(config, argument);
  }
  print_error("usage: velun model [list|fetch [compact]|use <id>]\n");
  return status_usage;
}

}  // namespace velun
