// The locations of velun's files: the config file, the state directory and the files in it. Nothing
// is cached: each call reads the environment that it needs. Nothing is created here; the code that
// writes into a directory creates it. An empty `XDG_` variable counts as unset. An empty `HOME`
// counts as set and gives a relative path.
#pragma once

#include <filesystem>
#include <string>

#include "config/config.h"

namespace velun {

/// The config file: `VELUN_CLI_CONFIG` as it stands, even empty; else velun/velun.yaml below
/// `XDG_CONFIG_HOME`, below .config in `HOME`, or below /tmp/.config without a `HOME`.
std::filesystem::path config_path();

/// The state directory of a config that names none: `VELUN_STATE_DIR` as it stands, even empty;
/// else velun below `XDG_DATA_HOME`, below .local/share in `HOME`, or below /tmp/.local/share.
std::filesystem::path default_state_dir();

/// The state directory in effect: the config's own, else `default_state_dir`.
std::filesystem::path state_dir_of(const Config& config);

/// The bearer token of the control API: the first line of control.token, written by the daemon,
/// without its newline and otherwise untouched. The empty text when the file cannot be read.
std::string read_control_token(const Config& config);

/// The directory that holds one subdirectory per model bundle.
std::filesystem::path models_dir_of(const Config& config);

/// The file that records the process id of the daemon that velun started.
std::filesystem::path pid_file_of(const Config& config);

}  // namespace velun
