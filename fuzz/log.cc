// Any bytes as the daemon's answer for `velun log`: a report, none, or the library's type error.
#include "cli/reports.h"
#include "fuzz/report.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const auto report = report_of(text_of(data, size), velun::log_report);
  check(!report || report->ends_with(" ms\n") ||
            *report == "no requests yet (the transcript is RAM-only and empties on restart)\n",
        "a log has entries or says that there are none");
  return 0;
}
