#include "cli/setup.h"

#include "config/config.h"
#include "config/config_file.h"
#include "system/exit_status.h"
#include "system/files.h"
#include "system/output.h"

namespace velun {
namespace {

// The prompt offers the current mode each time. It is always valid, so the end of input ends the
// loop.
std::string ask_mode(const std::string& current) {
  for (;;) {
    const std::string answer = prompt_value("Mode (off / watch / protect)", current);
    if (is_mode(answer)) {
      return answer;
    }
    print("  `" + answer + "` is not a mode. `velun help modes` explains them.\n");
  }
}

void ask_detection(Config& config) {
  const std::string current = !config.model_dir.empty()      ? config.model_dir
                              : !config.endpoint_url.empty() ? config.endpoint_url
                                                             : "none";
  const std::string answer = prompt_value(
      "Detection: path to a model bundle, a self-hosted engine URL, or `none`", current);
  // The two exclude each other, so both are cleared.
  config.model_dir.clear();
  config.endpoint_url.clear();
  // Only the kind of value is decided here; the next load checks the value.
  if (answer.starts_with("http")) {
    config.endpoint_url = answer;
  } else if (answer != "none") {
    config.model_dir = answer;
  }
}

}  // namespace

std::string prompt_value(const std::string& label, const std::string& fallback) {
  print(label + (fallback.empty() ? "" : " [" + fallback + "]") + ": ");
  const std::string line = read_line(stdin);
  return line.empty() ? fallback : line;
}

int run_setup() {
  Config config;
  // A missing file leaves the defaults; a file with problems leaves its valid values.
  load_config(config, /*verbose=*/false);
  print("Velun CLI setup — Enter keeps the value in brackets.\n\n");
  config.mode = ask_mode(config.mode);
  ask_detection(config);
  // Only a warning: the pattern floor still protects, and the user can add a model later.
  if (config.mode == "protect" && config.model_dir.empty() && config.endpoint_url.empty()) {
    print(
        "\nProtect without a model falls back to the pattern floor — much\n"
        "weaker. `velun help model` explains how to get one.\n\n");
  }
  save_config(config);
  print("next: `velun start`, then `velun help ports` to route your tools.\n");
  return status_success;
}

}  // namespace velun
