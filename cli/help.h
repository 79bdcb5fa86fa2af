// The fixed reference texts of `velun help`. Nothing in them depends on the configuration.
#pragma once

#include <optional>
#include <string>

namespace velun {

/// The text of the topic, every line with its newline; nothing for an unknown name. The empty name
/// gives the general overview.
std::optional<std::string> help_topic_text(const std::string& name);

/// Prints the topic's text on standard output and returns 0; an unknown topic is reported on
/// standard error and returns 2.
int print_help(const std::string& topic);

}  // namespace velun
