#include "daemon/command_line.h"

#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <system_error>

#include "system/files.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

// Joins one or more words. An empty word keeps its separator.
std::string join(const std::vector<std::string>& words, char separator) {
  std::string text;
  for (const std::string& word : words) {
    text += word + separator;
  }
  text.pop_back();
  return text;
}

}  // namespace

std::vector<std::string> daemon_argv(const Config& config) {
  std::vector<std::string> argv = {"--anthropic-port", std::to_string(config.anthropic_port),
                                   "--openai-port",    std::to_string(config.openai_port),
                                   "--control-port",   std::to_string(config.control_port)};
  const auto add = [&argv](std::initializer_list<std::string> words) {
    argv.insert(argv.end(), words);
  };
  if (!config.state_dir.empty()) {
    add({"--state-dir", config.state_dir});
  }
  // The daemon inherits the user's terminal and must not log to it.
  add({"--quiet"});
  if (config.mode == "protect") {
    add({"--protect"});
  }
  add({"--detector", "local"});
  if (config.names) {
    add({"--names"});
  }
  // The daemon runs one engine per launch. If both are set, the endpoint wins: it needs no
  // download.
  if (!config.endpoint_url.empty()) {
    add({"--model-endpoint", config.endpoint_url});
  } else if (!config.model_dir.empty()) {
    add({"--model", config.model_dir});
  }
  if (!config.intercept_apps.empty()) {
    add({"--intercept", join(config.intercept_apps, ',')});
    add({"--intercept-port", std::to_string(config.intercept_port)});
  }
  return argv;
}

std::string find_daemon_program(const std::string& argument_zero) {
  // Resolves links: velun may be called through one in a directory without velund.
  std::error_code error;
  const fs::path tool = fs::canonical(argument_zero, error);
  if (!error) {
    const fs::path beside = tool.parent_path() / "velund";
    if (path_exists(beside)) {
      return beside.string();
    }
  }
  // An empty value is used too, and starting it fails: falling back would start a program that the
  // user did not name.
  const char* named = std::getenv("VELUND");
  return named != nullptr ? named : "velund";
}

std::string command_text(const std::vector<std::string>& words) {
  return join(words, ' ');
}

}  // namespace velun
