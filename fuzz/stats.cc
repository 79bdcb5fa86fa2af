// Any bytes as the answer behind `velun stats`: a report, none, or the library's type error,
// exactly where a reading that asks for every type beforehand has the same.
#include <iomanip>
#include <sstream>

#include "cli/reports.h"
#include "fuzz/json_reading.h"

namespace velun::fuzz {
namespace {

std::string expected_of(const nlohmann::json& answer) {
  std::ostringstream text;
  text << "requests:            " << number_member<int>(answer, "requests")
       << "\nentities protected:  " << number_member<int>(answer, "entities_protected")
       << "\nblocked requests:    " << number_member<int>(answer, "blocked_requests")
       << "\ncost (list prices):  $"
       << static_cast<double>(number_member<long long>(answer, "cost_micros")) / 1e6 << "\n";
  return text.str();
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const std::string body = text_of(data, size);
  check_equal(outcome_of([&] { return velun::stats_report(body); }),
              outcome_of([&] { return reading_of(body, expected_of); }),
              "stats are reported as the reference reports them");
  return 0;
}
