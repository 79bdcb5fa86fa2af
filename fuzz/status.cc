// Any bytes as the daemon's answer for `velun status`: a report or none, and never an exception.
#include "daemon/status.h"

#include <nlohmann/json.hpp>

#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const std::string body = text_of(data, size);
  if (const auto report = velun::status_report(body, 8902)) {
    check(nlohmann::json::parse(body, nullptr, false).is_object(), "a report is of an object");
    check(report->starts_with("mode:      ") &&
              report->ends_with("\ndashboard: http://127.0.0.1:8902/\n"),
          "a report begins with the mode and ends with the dashboard");
  }
  return 0;
}
