// The command line that velun starts the daemon with: which program, which words, and how a person
// reads them. Nothing here starts anything.
#pragma once

#include <string>
#include <vector>

#include "config/config.h"

namespace velun {

/// The daemon's command line for `config`, one element per flag and value, program not included.
std::vector<std::string> daemon_argv(const Config& config);

/// The program to execute: the file "velund" beside the tool, when there is one; else the value of
/// the environment variable `VELUND`, even empty; else "velund", left to the search path.
/// `argument_zero` is the tool's own, resolved through symbolic links; a bare name is resolved
/// against the current directory.
std::string find_daemon_program(const std::string& argument_zero);

/// A command line, of at least one word, as it is shown to a person: one blank between the words
/// and nothing quoted.
std::string command_text(const std::vector<std::string>& words);

}  // namespace velun
