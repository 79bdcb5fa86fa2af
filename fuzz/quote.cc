// Any text as a value: what the writer makes of it is one line of the file and becomes the same
// text again; as it stands it loses its quotes as the reference takes them off.
#include "fuzz/reference.h"
#include "fuzz/target.h"

#include "config/reader.h"
#include "config/writer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  const std::string text = text_of(data, size);
  const std::string quoted = velun::quote_value(text);
  check_equal(quoted, reference::quoted(text), "a text is quoted as the reference quotes it");
  check_equal(velun::unquote_value(quoted), text, "a quoted text is unquoted to itself");
  check_equal(velun::trim_blanks(quoted), quoted, "a quoted text has no blanks to lose");
  check(quoted.find('\n') == std::string::npos, "a quoted text stays in its line");
  check(!quoted.starts_with('['), "a quoted text is no list");
  check_equal(velun::unquote_value(text), reference::unquoted(text),
              "a text is unquoted as the reference unquotes it");
  return 0;
}
