#include "cli/reports.h"

#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/transcript.h"
#include "daemon/control_client.h"
#include "system/exit_status.h"

using nlohmann::json;

namespace velun {
namespace {

// Reports are built whole before anything is printed, so that a fault in the last entry leaves no
// half of one behind.
int print_report(const Config& config, const std::string& path,
                 std::optional<std::string> (*report_of)(const std::string& body)) {
  const std::optional<std::string> body = ask_daemon(config, path);
  if (!body) {
    // No daemon is no failure: there is just nothing to report.
    std::cout << "not running\n";
    return status_success;
  }
  const std::optional<std::string> report = report_of(*body);
  if (!report) {
    std::cerr << "could not read " + path + "\n";
    return status_failure;
  }
  std::cout << *report;
  return status_success;
}

}  // namespace

std::optional<std::string> stats_report(const std::string& body) {
  const json answer = json::parse(body, nullptr, false);
  if (answer.is_discarded()) {
    return std::nullopt;
  }
  // Not std::int64_t: for its own integer type the library refuses true and false.
  const long long cost_micros = answer.value("cost_micros", 0LL);
  std::ostringstream report;
  report << "requests:            " << answer.value("requests", 0)
         << "\nentities protected:  " << answer.value("entities_protected", 0)
         << "\nblocked requests:    "
         << answer.value("blocked_requests", 0)
         // In the stream's default format: cents would round away what most requests cost.
         << "\ncost (list prices):  $" << static_cast<double>(cost_micros) / 1'000'000.0 << "\n";
  return report.str();
}

int print_stats(const Config& config) {
  return print_report(config, "/v1/stats", stats_report);
}

int print_log(const Config& config) {
  return print_report(config, "/v1/transcript", log_report);
}

}  // namespace velun
