#include "cli/commands.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "cli/help.h"
#include "cli/mode.h"
#include "cli/reports.h"
#include "cli/setup.h"
#include "config/config.h"
#include "config/config_file.h"
#include "config/locations.h"
#include "config/writer.h"
#include "daemon/lifecycle.h"
#include "daemon/status.h"
#include "models/model_commands.h"
#include "system/exit_status.h"
#include "system/output.h"

namespace velun {
namespace {

struct Command {
  std::string_view word;
  bool needs_config;
  int (*run)(const Invocation& words, const Config& config);
};

int help(const Invocation& words, const Config&) {
  return print_help(words.argument);
}

// Prints the effective settings, exactly as the next save would write them.
int show_config(const Invocation&, const Config& config) {
  print("file: " + config_path().string() + "\n\n" + render_config(config));
  return status_success;
}

// There are no options. Words after those that a handler reads are ignored.
constexpr Command commands[] = {
    {"help", false, help},
    {"--help", false, help},
    {"-h", false, help},
    {"setup", false, [](const Invocation&, const Config&) { return run_setup(); }},
    {"start", true,
     [](const Invocation& words, const Config& config) {
       return start_daemon(config, words.argument_zero);
     }},
    {"stop", true, [](const Invocation&, const Config& config) { return stop_daemon(config); }},
    {"restart", true,
     [](const Invocation& words, const Config& config) {
       return restart_daemon(config, words.argument_zero);
     }},
    {"status", true, [](const Invocation&, const Config& config) { return print_status(config); }},
    {"stats", true, [](const Invocation&, const Config& config) { return print_stats(config); }},
    {"log", true, [](const Invocation&, const Config& config) { return print_log(config); }},
    {"config", true, show_config},
    {"model", true,
     [](const Invocation& words, const Config& config) {
       return run_model_command(config, words.argument, words.third);
     }},
    {"mode", true,
     [](const Invocation& words, const Config& config) {
       return change_mode(config, words.argument, words.argument_zero);
     }},
};

}  // namespace

int run_command(const Invocation& invocation) {
  const auto* command =
      std::find_if(std::begin(commands), std::end(commands),
                   [&](const Command& each) { return each.word == invocation.command; });
  const bool known = command != std::end(commands);
  Config config;
  if (known && !command->needs_config) {
    return command->run(invocation, config);
  }
  // Loaded before an unknown word is reported: an invalid configuration has to be corrected first.
  if (!load_config(config, /*verbose=*/true)) {
    return status_failure;
  }
  if (!known) {
    print_error("unknown command `" + invocation.command + "` — `velun help` lists them\n");
    return status_usage;
  }
  return command->run(invocation, config);
}

}  // namespace velun
