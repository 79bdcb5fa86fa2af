// Shows all results of the reader and the validator as one text. A failed comparison shows a diff.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "config/reader.h"
#include "config/validator.h"

namespace velun::test {

inline std::string joined(const std::vector<std::string>& texts, const std::string& separator) {
  std::string result;
  for (const std::string& text : texts) {
    result += (&text == &texts.front() ? "" : separator) + text;
  }
  return result;
}

/// Every entry as "LINE KEY = <SCALAR>\n" or "LINE KEY = [<ITEM><ITEM>]\n" in the order of the
/// keys, then every problem as "! PROBLEM\n".
inline std::string reading_of(std::string_view text) {
  Problems problems;
  std::string result;
  for (const auto& [key, entry] : parse_config_text(text, problems)) {
    result += std::to_string(entry.line) + " " + key + " = ";
    result += entry.is_list ? "[" : "<" + entry.scalar + ">";
    for (const std::string& item : entry.items) {
      result += "<" + item + ">";
    }
    result += entry.is_list ? "]\n" : "\n";
  }
  for (const std::string& problem : problems) {
    result += "! " + problem + "\n";
  }
  return result;
}

/// A config text and the text that shows its results.
struct TextCase {
  std::string_view text;
  std::string_view expected;
};

inline void expect_readings(const std::vector<TextCase>& rows) {
  for (const TextCase& row : rows) {
    EXPECT_EQ(reading_of(row.text), row.expected) << "for the text:\n" << row.text;
  }
}

/// Every field as "FIELD=VALUE\n". A field that is missing here stops the build.
inline std::string fields_of(const Config& config) {
  const auto& [mode, model_dir, endpoint_url, anthropic_port, openai_port, control_port, state_dir,
               names, intercept_apps, intercept_port] = config;
  return "mode=" + mode + "\nmodel_dir=" + model_dir + "\nendpoint_url=" + endpoint_url +
         "\nanthropic_port=" + std::to_string(anthropic_port) +
         "\nopenai_port=" + std::to_string(openai_port) +
         "\ncontrol_port=" + std::to_string(control_port) + "\nstate_dir=" + state_dir +
         "\nnames=" + (names ? "true" : "false") +
         "\nintercept_apps=" + joined(intercept_apps, "|") +
         "\nintercept_port=" + std::to_string(intercept_port) + "\n";
}

/// The lines of `fields_of` that differ from the defaults.
inline std::string changed_fields_of(const Config& config) {
  const std::string defaults = "\n" + fields_of(Config());
  std::istringstream fields(fields_of(config));
  std::string changed;
  for (std::string field; std::getline(fields, field);) {
    changed += defaults.find("\n" + field + "\n") == std::string::npos ? field + "\n" : "";
  }
  return changed;
}

/// The fields that a text changes, then every problem as "! PROBLEM\n".
inline std::string judgement_of(std::string_view text) {
  Problems problems;
  std::string result =
      changed_fields_of(validate_config(parse_config_text(text, problems), problems));
  for (const std::string& problem : problems) {
    result += "! " + problem + "\n";
  }
  return result;
}

inline void expect_judgements(const std::vector<TextCase>& rows) {
  for (const TextCase& row : rows) {
    EXPECT_EQ(judgement_of(row.text), row.expected) << "for the text:\n" << row.text;
  }
}

}  // namespace velun::test
