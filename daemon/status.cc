#include "daemon/status.h"

#include <nlohmann/json.hpp>

#include "daemon/answer_integers.h"
#include "daemon/ask_daemon.h"
#include "system/exit_status.h"
#include "system/output.h"

using nlohmann::json;

namespace velun {
namespace {

// Every known member is converted even if it is not shown, so one of the wrong type always makes
// the answer unparseable: the conversion throws the library's type error.

std::string mode_line(const json& answer) {
  return "mode:      " + mode_meant_by(answer.value("mode", "?")) + "\n";
}

std::string engine_line(const json& answer) {
  const std::string status = answer.value("model_status", "");
  const std::string endpoint = answer.value("model_endpoint", "");
  if (status.empty()) {
    return "";
  }
  if (status == "loaded") {
    return "engine:    model loaded (on-device)\n";
  }
  if (status == "endpoint") {
    return "engine:    self-hosted (" + endpoint + ")\n";
  }
  // Any other word, perhaps of a later daemon, is shown unchanged.
  return "engine:    " + status + "\n";
}

std::string listener_lines(const json& answer) {
  const auto listeners = answer.find("listeners");
  if (listeners == answer.end()) {
    return "";
  }
  std::string lines;
  for (const json& listener : listeners->get_ref<const json::array_t&>()) {
    lines += "listener:  " + listener.value("app", "?") + " on port " +
             std::to_string(integer_member<int>(listener, "port")) + "\n";
  }
  return lines;
}

std::string intercept_line(const json& answer) {
  const auto intercept = answer.find("intercept");
  if (intercept == answer.end()) {
    return "";
  }
  const bool enabled = intercept->value("enabled", false);
  const int port = integer_member<int>(*intercept, "port");
  return enabled ? "intercept: port " + std::to_string(port) + "\n" : "";
}

}  // namespace

std::optional<std::string> status_report(const std::string& body, int control_port) {
  const json answer = json::parse(body, nullptr, false);
  if (answer.is_discarded()) {
    return std::nullopt;
  }
  try {
    return mode_line(answer) + engine_line(answer) + listener_lines(answer) +
           intercept_line(answer) + "dashboard: http://127.0.0.1:" + std::to_string(control_port) +
           "/\n";
  } catch (const json::exception&) {
    return std::nullopt;
  }
}

int print_status(const Config& config) {
  const std::optional<std::string> body = ask_daemon(config, "/v1/status");
  if (!body) {
    print("not running (configured mode: " + config.mode + ")\n");
    return status_success;
  }
  // The daemon answers without the token but not with it. Most likely the token belongs to another
  // daemon.
  if (body->empty()) {
    print_error("the daemon answers /healthz but refused /v1/status — token mismatch?\n");
    return status_failure;
  }
  const std::optional<std::string> report = status_report(*body, config.control_port);
  if (!report) {
    print_error("unparseable /v1/status\n");
    return status_failure;
  }
  print(*report);
  return status_success;
}

}  // namespace velun
