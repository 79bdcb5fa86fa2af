// The command line of the daemon: its program, its arguments, and the text that shows them to a
// person. Nothing here starts anything.
#pragma once

#include <string>
#include <vector>

#include "config/config.h"

namespace velun {

/// The daemon's arguments for `config`, one element per flag and value, without the program.
std::vector<std::string> daemon_argv(const Config& config);

/// The program to execute: the file "velund" in the directory of `argument_zero`, if there is one;
/// else the value of the environment variable `VELUND`, even if empty; else "velund", which the
/// search path resolves. `argument_zero` is velun's own. Symbolic links in it are resolved; a bare
/// name is looked up in the current directory.
std::string find_daemon_program(const std::string& argument_zero);

/// A command line of at least one word, for display: one blank between the words, nothing quoted.
std::string command_text(const std::vector<std::string>& words);

}  // namespace velun
