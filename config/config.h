// The user's settings as one plain record. Nothing here reads, checks or writes a file, and the
// type enforces nothing.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velun {

/// The keys of `velun.yaml`. A fresh record holds the defaults.
struct Config {
  std::string mode = "watch";               ///< "off", "watch" or "protect"
  std::string model_dir;                    ///< detection-model bundle; empty: none
  std::string endpoint_url;                 ///< self-hosted engine used instead; empty: none
  int anthropic_port = 8900;                ///< local listener for Anthropic clients
  int openai_port = 8901;                   ///< local listener for OpenAI clients
  int control_port = 8902;                  ///< loopback control API and dashboard
  std::string state_dir;                    ///< empty: derived from the environment
  bool names = true;                        ///< keeps the daemon's built-in pattern floor on
  std::vector<std::string> intercept_apps;  ///< desktop applications to intercept
  int intercept_port = 8903;                ///< interception proxy

  bool operator==(const Config&) const = default;
};

/// True for exactly "off", "watch" and "protect", the words a user may give as a mode.
inline bool is_mode(std::string_view word) {
  return word == "off" || word == "watch" || word == "protect";
}

/// The mode that `word` stands for in the daemon's answers and in old config files, which say
/// "monitor" for "watch". Any other word is returned unchanged.
inline std::string mode_meant_by(const std::string& word) {
  return word == "monitor" ? "watch" : word;
}

}  // namespace velun
