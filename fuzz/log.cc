// Any bytes as the answer behind `velun log`: a report, none, or the library's type error, exactly
// where a reading of the whole tree has the same.
#include "cli/reports.h"
#include "fuzz/json_reading.h"

namespace velun::fuzz {
namespace {

std::string expected_of(const nlohmann::json& answer) {
  const nlohmann::json* entries = member_of(answer, "entries");
  std::string text;
  if (entries != nullptr && !entries->is_null()) {
    if (!entries->is_structured()) {
      throw Unexpected();
    }
    for (const nlohmann::json& entry : *entries) {
      text += text_member(entry, "app", "?") + "  " + text_member(entry, "model", "") + "  " +
              text_member(entry, "outcome", "") + "  " +
              std::to_string(number_member<int>(entry, "duration_ms")) + " ms\n";
    }
  }
  return text.empty() ? "no requests yet (the transcript is RAM-only and empties on restart)\n"
                      : text;
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const std::string body = text_of(data, size);
  check_equal(outcome_of([&] { return velun::log_report(body); }),
              outcome_of([&] { return reading_of(body, expected_of); }),
              "the log is reported as the reference reports it");
  return 0;
}
