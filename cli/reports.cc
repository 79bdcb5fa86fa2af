#include "cli/reports.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "daemon/answer_integers.h"
#include "daemon/ask_daemon.h"
#include "system/exit_status.h"
#include "system/output.h"

using nlohmann::json;

namespace velun {
namespace {

// A report is built whole before it is printed, so an error in the last entry leaves no half
// report.
int print_report(const Config& config, const std::string& path,
                 std::optional<std::string> (*report_of)(const std::string& body)) {
  const std::optional<std::string> body = ask_daemon(config, path);
  if (!body) {
    // Not a failure: there is nothing to report.
    print("not running\n");
    return status_success;
  }
  const std::optional<std::string> report = report_of(*body);
  if (!report) {
    print_error("could not read " + path + "\n");
    return status_failure;
  }
  print(*report);
  return status_success;
}

}  // namespace

std::optional<std::string> stats_report(const std::string& body) {
  const json answer = json::parse(body, nullptr, false);
  if (answer.is_discarded()) {
    return std::nullopt;
  }
  const auto counter = [&answer](const char* name) {
    return std::to_string(integer_member<int>(answer, name)) + "\n";
  };
  std::string report = "requests:            " + counter("requests");
  report += "entities protected:  " + counter("entities_protected");
  report += "blocked requests:    " + counter("blocked_requests");
  // Not std::int64_t: for its own integer type the library refuses true and false.
  const auto micros = static_cast<double>(integer_member<long long>(answer, "cost_micros"));
  // Six significant digits, not cents: most requests cost less than one.
  char cost[32];
  std::snprintf(cost, sizeof cost, "%g", micros / 1'000'000.0);
  return report + "cost (list prices):  $" + cost + "\n";
}

std::optional<std::string> log_report(const std::string& body) {
  const json answer = json::parse(body, nullptr, false);
  if (answer.is_discarded()) {
    return std::nullopt;
  }
  // By reference: copying deeply nested entries would exhaust the stack. If the answer is not an
  // object, the lookup with a default raises the library's error.
  const auto entries = answer.find("entries");
  if (entries == answer.end() ? answer.value("entries", json()).empty() : entries->empty()) {
    return "no requests yet (the transcript is RAM-only and empties on restart)\n";
  }
  std::string lines;
  for (const json& entry : *entries) {
    lines += entry.value("app", "?") + "  ";
    lines += entry.value("model", "") + "  ";
    lines += entry.value("outcome", "") + "  ";
    lines += std::to_string(integer_member<int>(entry, "duration_ms")) + " ms\n";
  }
  return lines;
}

int print_stats(const Config& config) {
  return print_report(config, "/v1/stats", stats_report);
}

int print_log(const Config& config) {
  return print_report(config, "/v1/transcript", log_report);
}

}  // namespace velun
