// Any text as a value: the writer makes one line of it, from which the reader gets the same text,
// alone and in a list.
#include <string>
#include <vector>

#include "config/reader.h"
#include "config/writer.h"
#include "fuzz/target.h"

namespace velun::fuzz {
namespace {

ConfigEntry entry_of(const std::string& value) {
  Problems problems;
  const RawConfig raw = parse_config_text("key: " + value + "\n", problems);
  check(raw.size() == 1 && problems.empty(), "a quoted text is a value");
  return raw.at("key");
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun;
  using namespace velun::fuzz;
  const std::string text = text_of(data, size);
  const std::string quoted = quote_value(text);
  check_equal(unquote_value(quoted), text, "a quoted text is unquoted to itself");
  check_equal(trim_blanks(quoted), quoted, "a quoted text has no blanks to lose");
  if (!quoted.ends_with('\r')) {
    check_equal(entry_of(quoted).scalar, text, "a quoted text reads back");
  }
  if (!text.empty() && text.find(',') == std::string::npos) {
    check(entry_of("[" + quoted + "]").items == std::vector{text}, "an item reads back");
  }
  check_equal(unquote_value("'" + text + "'"), text, "single quotes resolve no escapes");
  return 0;
}
