// Any bytes as the answer behind `velun status`: a report exactly where a reading that asks for
// every type beforehand has the same one, and nothing is ever thrown.
#include "daemon/status.h"
#include "fuzz/json_reading.h"

namespace velun::fuzz {
namespace {

std::string engine_line(const nlohmann::json& answer) {
  const std::string engine = text_member(answer, "model_status", "");
  const std::string endpoint = text_member(answer, "model_endpoint", "");
  if (engine == "loaded") {
    return "engine:    model loaded (on-device)\n";
  }
  if (engine == "endpoint") {
    return "engine:    self-hosted (" + endpoint + ")\n";
  }
  return engine.empty() ? "" : "engine:    " + engine + "\n";
}

std::string listener_lines(const nlohmann::json& answer) {
  const nlohmann::json* listeners = member_of(answer, "listeners");
  std::string lines;
  if (listeners != nullptr && !listeners->is_array()) {
    throw Unexpected();
  }
  for (std::size_t i = 0; listeners != nullptr && i < listeners->size(); ++i) {
    lines += "listener:  " + text_member((*listeners)[i], "app", "?") + " on port " +
             std::to_string(number_member<int>((*listeners)[i], "port")) + "\n";
  }
  return lines;
}

// Whether it is enabled is asked of a truth value only; a number is none.
std::string intercept_line(const nlohmann::json& answer) {
  const nlohmann::json* intercept = member_of(answer, "intercept");
  if (intercept == nullptr) {
    return "";
  }
  const nlohmann::json* enabled = member_of(*intercept, "enabled");
  if (enabled != nullptr && !enabled->is_boolean()) {
    throw Unexpected();
  }
  const int port = number_member<int>(*intercept, "port");
  return enabled != nullptr && enabled->get<bool>()
             ? "intercept: port " + std::to_string(port) + "\n"
             : "";
}

std::string expected_of(const nlohmann::json& answer) {
  const std::string mode = text_member(answer, "mode", "?");
  return "mode:      " + (mode == "monitor" ? "watch" : mode) + "\n" + engine_line(answer) +
         listener_lines(answer) + intercept_line(answer) + "dashboard: http://127.0.0.1:8902/\n";
}

// For this report, what is of another shape is as good as no JSON.
std::optional<std::string> expected_report(const std::string& body) {
  try {
    return reading_of(body, expected_of);
  } catch (const Unexpected&) {
    return std::nullopt;
  }
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const std::string body = text_of(data, size);
  const std::optional<std::string> report = velun::status_report(body, 8902);
  check_equal(report.value_or("(none)"), expected_report(body).value_or("(none)"),
              "the status is reported as the reference reports it");
  return 0;
}
