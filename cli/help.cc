#include "cli/help.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "config/outside_locations.h"
#include "system/exit_status.h"
#include "system/output.h"

namespace velun {
namespace {

struct Topic {
  std::string_view name;
  std::string_view text;
  const char* location = "";  // an address that packagers set, after the text
  const char* rest = "";      // the text after the location
};

// Fixed texts: help needs no configuration, so the ports topic names the default ports.
constexpr Topic topics[] = {
    {"",
     R"(velun — the free command-line edition of the Velun Connector.

Commands:
  velun setup              Interactive first-run: writes the config file
  velun start              Start the daemon with the configured settings
  velun stop               Stop the daemon
  velun restart            Stop, then start
  velun status             What runs, in which mode, with which engine
  velun mode off|watch|protect   Change the mode (restarts the daemon)
  velun stats              Requests, cost and protected entities so far
  velun model fetch        Download the detection model (~1.2 GB)
  velun model use <id>     Point the config at a downloaded bundle
  velun log                The last requests (RAM-only transcript)
  velun config             Show the effective configuration and its file
  velun help <topic>       Topics: config, modes, model, ports, routing

Everything here is free, protection included. The desktop app adds the
dashboard, one-click setup and file redaction (Velun Pro).
)"},
    {"config",
     R"(The config file lives at ~/.config/velun/velun.yaml (override with
VELUN_CLI_CONFIG). It is a FLAT subset of YAML: `key: value` lines,
lists as [a, b], comments with #. Keys:

  mode: off | watch | protect     What the connector does (default watch)
  model_dir: /path/to/bundle      A downloaded detection model
  endpoint_url: https://…         A self-hosted Velun Engine instead
  anthropic_port: 8900            Local listener for Anthropic clients
  openai_port: 8901               Local listener for OpenAI clients
  control_port: 8902              Loopback control API + dashboard
  state_dir: /path                Metrics, vault, CA (default: system dir)
  names: true                     Keep the built-in pattern floor on
  intercept_apps: [claude-desktop, chatgpt]   Desktop apps to intercept
  intercept_port: 8903            Port for the interception proxy

model_dir and endpoint_url exclude each other.
)"},
    {"modes",
     R"(off      Nothing runs. Tools talk to their vendors directly.
watch    The daemon forwards everything unchanged and records what went
         where and what it cost. Message content is not stored.
protect  Personal data is replaced before a request leaves this machine,
         and restored in the answer you read. Needs a detection model
         (model_dir) or a self-hosted engine (endpoint_url).

A mode change restarts the daemon: the mode is a launch flag, and a
restart takes about two seconds.
)"},
    {"model",
     R"(Protection quality comes from the detection model. Get one:

  1. Desktop app: download on the Velun Engine tab, then point
     model_dir at the bundle (the app stores them under its
     'Application Support/Velun Connector/models' directory).
  2. Self-hosted: run the open-source Velun Engine
     ()",
     engine_source_url, R"() and set endpoint_url.
  3. Without either, the built-in pattern floor (`names: true`) covers
     labelled values and known shapes — honest, but far weaker.
)"},
    {"ports",
     R"(Point your tools at the local listeners:

  ANTHROPIC_BASE_URL=http://127.0.0.1:8900   # Claude Code and friends
  OPENAI_BASE_URL=http://127.0.0.1:8901      # OpenAI-speaking tools

The control port serves the dashboard: open http://127.0.0.1:8902/ in a
browser while the daemon runs.
)"},
    {"routing",
     R"(CLI tools route through environment variables (see `velun help ports`).
Desktop apps need interception: list them in intercept_apps and trust the
generated CA certificate. Certificate trust is a system change the CLI
does not make for you; the desktop app automates it. On this machine's
own risk you can trust <state_dir>/ca.pem manually.
)"},
};

}  // namespace

std::optional<std::string> help_topic_text(const std::string& name) {
  const auto* topic = std::find_if(std::begin(topics), std::end(topics),
                                   [&](const Topic& each) { return each.name == name; });
  if (topic == std::end(topics)) {
    return std::nullopt;
  }
  return std::string(topic->text).append(topic->location).append(topic->rest);
}

int print_help(const std::string& topic) {
  const std::optional<std::string> text = help_topic_text(topic);
  if (!text) {
    print_error("no help topic `" + topic + "` — topics: config, modes, model, ports, routing\n");
    return status_usage;
  }
  print(*text);
  return status_success;
}

}  // namespace velun
