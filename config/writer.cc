#include "config/writer.h"

namespace velun {
namespace {

// True if the reader might trim, unquote, split or cut the bare text; the header lists the
// exceptions. Quotes more than strictly necessary; extra quotes are harmless.
bool needs_quotes(const std::string& text) {
  return text.front() == ' ' || text.back() == ' ' || text.front() == '\'' || text.front() == '[' ||
         text.find_first_of("\t\n\"#,:\\") != std::string::npos;
}

std::string render_list(const std::vector<std::string>& items) {
  std::string text = "[";
  for (const std::string& item : items) {
    text += (text.size() > 1 ? ", " : "") + quote_value(item);
  }
  return text + "]";
}

}  // namespace

std::string render_config(const Config& config) {
  std::string text = "# Velun CLI configuration. `velun help config` documents every key.\n";
  const auto add = [&](const char* key, const std::string& value) {
    text += std::string(key) + ": " + value + "\n";
  };
  // Always one of the three mode words, which need no quotes.
  add("mode", config.mode);
  if (!config.model_dir.empty()) {
    add("model_dir", quote_value(config.model_dir));
  }
  if (!config.endpoint_url.empty()) {
    add("endpoint_url", quote_value(config.endpoint_url));
  }
  add("anthropic_port", std::to_string(config.anthropic_port));
  add("openai_port", std::to_string(config.openai_port));
  add("control_port", std::to_string(config.control_port));
  if (!config.state_dir.empty()) {
    add("state_dir", quote_value(config.state_dir));
  }
  add("names", config.names ? "true" : "false");
  // Without apps the interception port has no meaning, so it is not written.
  if (!config.intercept_apps.empty()) {
    add("intercept_apps", render_list(config.intercept_apps));
    add("intercept_port", std::to_string(config.intercept_port));
  }
  return text;
}

std::string quote_value(const std::string& text) {
  if (text.empty()) {
    return "\"\"";
  }
  if (!needs_quotes(text)) {
    return text;
  }
  // A carriage return is copied: the reader resolves no escape for it.
  std::string quoted = "\"";
  for (const char c : text) {
    switch (c) {
      case '\\':
        quoted += "\\\\";
        break;
      case '"':
        quoted += "\\\"";
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\t':
        quoted += "\\t";
        break;
      default:
        quoted += c;
    }
  }
  return quoted + "\"";
}

}  // namespace velun
