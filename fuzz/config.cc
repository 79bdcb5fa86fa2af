// Any text as a config file: the reader, the validator and the suggestions agree with the reference
// on every entry, every value and every problem.
#include "fuzz/reference.h"
#include "fuzz/target.h"

#include "config/reader.h"
#include "config/validator.h"

namespace velun::fuzz {
namespace {

// Everything in one text, so that a difference can be shown.
std::string reading_of(const RawConfig& raw, const Problems& problems) {
  std::string text;
  for (const auto& [key, entry] : raw) {
    text += std::to_string(entry.line) + " <" + key + (entry.is_list ? "> list" : "> scalar");
    text += " <" + entry.scalar + ">";
    for (const std::string& item : entry.items) {
      text += " <" + item + ">";
    }
    text += "\n";
  }
  for (const std::string& problem : problems) {
    text += "problem: " + problem + "\n";
  }
  return text;
}

void check_config(const std::string& text) {
  Problems problems;
  const RawConfig raw = parse_config_text(text, problems);
  Problems expected_problems;
  const RawConfig expected_raw = reference::read(text, expected_problems);
  check_equal(reading_of(raw, problems), reading_of(expected_raw, expected_problems),
              "a text is read as the reference reads it");

  const Config config = validate_config(raw, problems);
  const Config expected = reference::judge(expected_raw, expected_problems);
  check_equal(reading_of({}, problems), reading_of({}, expected_problems),
              "the validator has the problems of the reference, in its order");
  check(config == expected, "the record holds what the reference accepts");
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const std::string text = text_of(data, size);
  check_config(text);
  // As a key of its own, even one that could not stand in a file.
  check_equal(velun::suggest_key(text), reference::suggestion(text),
              "the suggestion is the reference's");
  return 0;
}
