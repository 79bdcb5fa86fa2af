#include <gtest/gtest.h>

#include "config/outside_locations.h"
#include "tests/support/sandbox.h"

namespace velun::test {
namespace {

const std::string general_help =
    "velun — the free command-line edition of the Velun Connector.\n"
    "\n"
    "Commands:\n"
    "  velun setup              Interactive first-run: writes the config file\n"
    "  velun start              Start the daemon with the configured settings\n"
    "  velun stop               Stop the daemon\n"
    "  velun restart            Stop, then start\n"
    "  velun status             What runs, in which mode, with which engine\n"
    "  velun mode off|watch|protect   Change the mode (restarts the daemon)\n"
    "  velun stats              Requests, cost and protected entities so far\n"
    "  velun model fetch        Download the detection model (~1.2 GB)\n"
    "  velun model use <id>     Point the config at a downloaded bundle\n"
    "  velun log                The last requests (RAM-only transcript)\n"
    "  velun config             Show the effective configuration and its file\n"
    "  velun help <topic>       Topics: config, modes, model, ports, routing\n"
    "\n"
    "Everything here is free, protection included. The desktop app adds the\n"
    "dashboard, one-click setup and file redaction (Velun Pro).\n";

const std::string config_help =
    "The config file lives at ~/.config/velun/velun.yaml (override with\n"
    "VELUN_CLI_CONFIG). It is a FLAT subset of YAML: `key: value` lines,\n"
    "lists as [a, b], comments with #. Keys:\n"
    "\n"
    "  mode: off | watch | protect     What the connector does (default watch)\n"
    "  model_dir: /path/to/bundle      A downloaded detection model\n"
    "  endpoint_url: https://…         A self-hosted Velun Engine instead\n"
    "  anthropic_port: 8900            Local listener for Anthropic clients\n"
    "  openai_port: 8901               Local listener for OpenAI clients\n"
    "  control_port: 8902              Loopback control API + dashboard\n"
    "  state_dir: /path                Metrics, vault, CA (default: system dir)\n"
    "  names: true                     Keep the built-in pattern floor on\n"
    "  intercept_apps: [claude-desktop, chatgpt]   Desktop apps to intercept\n"
    "  intercept_port: 8903            Port for the interception proxy\n"
    "\n"
    "model_dir and endpoint_url exclude each other.\n";

const std::string modes_help =
    "off      Nothing runs. Tools talk to their vendors directly.\n"
    "watch    The daemon forwards everything unchanged and records what went\n"
    "         where and what it cost. Message content is not stored.\n"
    "protect  Personal data is replaced before a request leaves this machine,\n"
    "         and restored in the answer you read. Needs a detection model\n"
    "         (model_dir) or a self-hosted engine (endpoint_url).\n"
    "\n"
    "A mode change restarts the daemon: the mode is a launch flag, and a\n"
    "restart takes about two seconds.\n";

const std::string model_help =
    "Protection quality comes from the detection model. Get one:\n"
    "\n"
    "  1. Desktop app: download on the Velun Engine tab, then point\n"
    "     model_dir at the bundle (the app stores them under its\n"
    "     'Application Support/Velun Connector/models' directory).\n"
    "  2. Self-hosted: run the open-source Velun Engine\n"
    "     (" +
    std::string(engine_source_url) +
    ") and set endpoint_url.\n"
    "  3. Without either, the built-in pattern floor (`names: true`) covers\n"
    "     labelled values and known shapes — honest, but far weaker.\n";

const std::string ports_help =
    "Point your tools at the local listeners:\n"
    "\n"
    "  ANTHROPIC_BASE_URL=http://127.0.0.1:8900   # Claude Code and friends\n"
    "  OPENAI_BASE_URL=http://127.0.0.1:8901      # OpenAI-speaking tools\n"
    "\n"
    "The control port serves the dashboard: open http://127.0.0.1:8902/ in a\n"
    "browser while the daemon runs.\n";

const std::string routing_help =
    "CLI tools route through environment variables (see `velun help ports`).\n"
    "Desktop apps need interception: list them in intercept_apps and trust the\n"
    "generated CA certificate. Certificate trust is a system change the CLI\n"
    "does not make for you; the desktop app automates it. On this machine's\n"
    "own risk you can trust <state_dir>/ca.pem manually.\n";

// Each topic with its text.
const std::pair<std::string, std::string> topics[] = {
    {"", general_help},    {"config", config_help}, {"modes", modes_help},
    {"model", model_help}, {"ports", ports_help},   {"routing", routing_help}};

const std::vector<std::string> help_words = {"help", "--help", "-h"};

const std::vector<std::string> unknown_topics = {"Config",  "mode",  "models",  "help",
                                                 "-h",      "conf",  "config ", " config",
                                                 "modes\n", "setup", " ",       "\xff\xfe"};

class Help : public ::testing::Test {
 protected:
  Sandbox sandbox;

  void expect_text(const std::vector<std::string>& words, const std::string& text) {
    SCOPED_TRACE(testing::PrintToString(words));
    EXPECT_EQ(seen(sandbox.velun(words)), success(text));
  }

  void expect_unknown(const std::vector<std::string>& words, const std::string& topic) {
    SCOPED_TRACE(testing::PrintToString(words));
    EXPECT_EQ(
        seen(sandbox.velun(words)),
        ended(2, "",
              "no help topic `" + topic + "` — topics: config, modes, model, ports, routing\n"));
  }
};

TEST_F(Help, each_help_word_prints_each_topic_and_the_general_help_without_one) {
  expect_text({}, general_help);
  for (const std::string& word : help_words) {
    expect_text({word}, general_help);
    for (const auto& [topic, text] : topics) {
      expect_text({word, topic}, text);
    }
  }
  EXPECT_EQ(names_in(sandbox.home()), std::vector<std::string>());
}

TEST_F(Help, an_unknown_topic_is_named_on_standard_error_and_ends_with_2) {
  for (const std::string& word : help_words) {
    for (const std::string& topic : unknown_topics) {
      expect_unknown({word, topic}, topic);
    }
  }
}

TEST_F(Help, no_configuration_is_read_whether_faulty_or_not) {
  for (const std::string content :
       {"mode: loud\nnonsense\n", "mode: protect\nanthropic_port: 1\n"}) {
    write_file(sandbox.config_file(), content);
    expect_text({}, general_help);
    expect_text({"help", "ports"}, ports_help);
    expect_text({"--help", "config"}, config_help);
    expect_text({"-h", "modes"}, modes_help);
    expect_unknown({"help", "x"}, "x");
  }
}

}  // namespace
}  // namespace velun::test
