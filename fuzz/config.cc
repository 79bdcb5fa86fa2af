// Any text as a config file: a line gives a pair, a problem or neither. The validator adds at most
// one problem for each key. The settings that it accepts read back after a save.
#include <algorithm>
#include <cstdio>
#include <set>
#include <string>

#include "config/reader.h"
#include "config/validator.h"
#include "fuzz/reads_back.h"
#include "fuzz/target.h"

namespace velun::fuzz {
namespace {

// The number in "line N: "; every problem of the reader begins so.
int line_of(const std::string& problem) {
  int line = 0;
  check(std::sscanf(problem.c_str(), "line %d: ", &line) == 1, "a problem names its line");
  return line;
}

void check_config(const std::string& text) {
  Problems problems;
  const RawConfig raw = parse_config_text(text, problems);
  std::set<int> lines;
  for (const std::string& problem : problems) {
    const int line = line_of(problem);
    check(lines.empty() || line > *lines.rbegin(), "problems come in the order of lines");
    lines.insert(line);
  }
  for (const auto& [key, entry] : raw) {
    check(lines.insert(entry.line).second, "a line has one pair or one problem");
    check(!key.empty() && trim_blanks(key) == key, "a key has no blanks around it");
    check(entry.is_list ? entry.scalar.empty() : entry.items.empty(), "a value is of one kind");
    check(std::count(entry.items.begin(), entry.items.end(), "") == 0, "no item is empty");
  }
  const auto last = std::count(text.begin(), text.end(), '\n') + 1;
  check(lines.empty() || (*lines.begin() > 0 && *lines.rbegin() <= last), "every line is there");

  const std::size_t before = problems.size();
  const Config config = validate_config(raw, problems);
  check(problems.size() <= before + raw.size() + 1, "a key has at most one problem");
  check_reads_back(config);
}

void check_suggestion(const std::string& key) {
  const std::string known = suggest_key(key);
  check_equal(suggest_key(known), known, "a suggestion is a known key");
  check(
      known.empty() || std::max(known.size(), key.size()) <= std::min(known.size(), key.size()) + 3,
      "a suggestion is at most three edits away");
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const std::string text = text_of(data, size);
  check_config(text);
  // The whole text as a key, even if no file could have such a key.
  check_suggestion(text);
  return 0;
}
