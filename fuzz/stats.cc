// Any bytes as the daemon's answer for `velun stats`: a report, none, or the library's type error.
#include <regex>

#include "cli/reports.h"
#include "fuzz/report.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  static const std::regex four_counters(
      "requests:            -?[0-9]+\n"
      "entities protected:  -?[0-9]+\n"
      "blocked requests:    -?[0-9]+\n"
      "cost \\(list prices\\):  \\$-?[0-9.]+(e[+-][0-9]+)?\n");
  const auto report = report_of(text_of(data, size), velun::stats_report);
  check(!report || std::regex_match(*report, four_counters), "a report has its four lines");
  return 0;
}
