#include "cli/commands.h"

#include <algorithm>
#include <iostream>
#include <iterator>

#include "cli/help.h"
#include "cli/mode.h"
#include "cli/reports.h"
#include "cli/setup.h"
#include "cli/show_config.h"
#include "config/config_file.h"
#include "daemon/lifecycle.h"
#include "daemon/status.h"
#include "models/model_commands.h"
#include "system/exit_status.h"

namespace velun {
namespace {

struct Command {
  const char* word;
  bool needs_config;
  int (*run)(const Invocation& invocation);
};

int help(const Invocation& invocation) {
  return print_help(invocation.argument);
}

constexpr Command commands[] = {
    {"help", false, help},
    {"--help", false, help},
    {"-h", false, help},
    {"setup", false, [](const Invocation&) { return run_setup(); }},
    {"start", true, [](const Invocation& i) { return start_daemon(i.config, i.argument_zero); }},
    {"stop", true, [](const Invocation& i) { return stop_daemon(i.config); }},
    {"restart", true,
     [](const Invocation& i) { return restart_daemon(i.config, i.argument_zero); }},
    {"status", true, [](const Invocation& i) { return print_status(i.config); }},
    {"stats", true, [](const Invocation& i) { return print_stats(i.config); }},
    {"log", true, [](const Invocation& i) { return print_log(i.config); }},
    {"config", true, [](const Invocation& i) { return show_config(i.config); }},
    {"model", true,
     [](const Invocation& i) { return run_model_command(i.config, i.argument, i.third); }},
    {"mode", true,
     [](const Invocation& i) { return change_mode(i.config, i.argument, i.argument_zero); }},
};

}  // namespace

int run_command(Invocation& invocation) {
  const auto* command =
      std::find_if(std::begin(commands), std::end(commands),
                   [&](const Command& row) { return row.word == invocation.command; });
  const bool known = command != std::end(commands);
  if (!(known && !command->needs_config) && !load_config(invocation.config, MissingFile::reported)) {
    return status_failure;
  }
  if (!known) {
    std::cerr << "unknown command `" + invocation.command + "` — `velun help` lists them\n";
    return status_usage;
  }
  return command->run(invocation);
}

}  // namespace velun
