// Checks that the reader understands what the writer writes.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "config/reader.h"
#include "config/validator.h"
#include "config/writer.h"
#include "fuzz/target.h"

namespace velun::fuzz {

/// Empty items are dropped, and items with a comma are split. With an apostrophe in a bare item,
/// the reader may take a "#" in the quotes of another item for the beginning of a comment.
inline bool may_lose_items(const std::vector<std::string>& items) {
  const auto have = [&items](char c) {
    return std::any_of(items.begin(), items.end(),
                       [c](const std::string& item) { return item.find(c) != std::string::npos; });
  };
  return have(',') || (have('\'') && have('#')) ||
         std::find(items.begin(), items.end(), "") != items.end();
}

/// Checks that the rendering of `config` reads back as the same record, except for the losses that
/// config/writer.h lists.
inline void check_reads_back(Config config) {
  const std::string text = render_config(config);
  Problems problems;
  const Config reread = validate_config(parse_config_text(text, problems), problems);
  if (config.intercept_apps.empty()) {
    config.intercept_port = Config().intercept_port;
  }
  if (may_lose_items(config.intercept_apps)) {
    // The list may differ; all other keys must be the same.
    config.intercept_apps = reread.intercept_apps;
    std::erase_if(problems, [](const std::string& problem) {
      return problem.ends_with(": unterminated list");
    });
  }
  for (const std::string& problem : problems) {
    check(!problem.starts_with("line "), "no line of a rendering has a problem");
  }
  // A carriage return at the end of a bare value is lost.
  if (text.find("\r\n") == std::string::npos) {
    check_equal(render_config(reread), render_config(config), "a record reads back");
    check(reread == config, "a record reads back in every field");
  }
}

}  // namespace velun::fuzz
