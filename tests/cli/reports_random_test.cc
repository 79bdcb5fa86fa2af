// Random answers against a second rendering that shares no code with the reports: each answer is a
// list of members with values, written out once as JSON and once as the expected text.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "cli/reports.h"
#include "cli/transcript.h"

namespace velun::test {
namespace {

// A value as it stands in the answer, with what it is worth where a report reads it.
struct Value {
  std::string json;
  std::optional<std::int64_t> number;  // as a 64-bit integer
  std::optional<std::string> text;     // as text
};

using Members = std::map<std::string, Value>;

class Dice {
 public:
  explicit Dice(std::uint32_t seed) : engine_(seed) {}

  std::int64_t between(std::int64_t low, std::int64_t high) {
    return std::uniform_int_distribution<std::int64_t>(low, high)(engine_);
  }
  bool one_in(int chances) { return between(1, chances) == 1; }
  template <typename Item>
  const Item& pick(const std::vector<Item>& items) {
    return items[static_cast<std::size_t>(between(0, static_cast<std::int64_t>(items.size()) - 1))];
  }

 private:
  std::mt19937 engine_;
};

std::string utf8(char32_t point) {
  const auto byte = [](char32_t bits) { return static_cast<char>(bits); };
  if (point < 0x80) {
    return {byte(point)};
  }
  if (point < 0x800) {
    return {byte(0xc0 | (point >> 6)), byte(0x80 | (point & 0x3f))};
  }
  if (point < 0x10000) {
    return {byte(0xe0 | (point >> 12)), byte(0x80 | ((point >> 6) & 0x3f)),
            byte(0x80 | (point & 0x3f))};
  }
  return {byte(0xf0 | (point >> 18)), byte(0x80 | ((point >> 12) & 0x3f)),
          byte(0x80 | ((point >> 6) & 0x3f)), byte(0x80 | (point & 0x3f))};
}

std::string unicode_escape(char32_t unit) {
  char text[16];
  std::snprintf(text, sizeof text, "\\u%04x", static_cast<unsigned>(unit));
  return text;
}

// One character of a JSON string; control characters, quotes and backslashes only escaped.
std::string json_character(Dice& dice, char32_t point) {
  if (point >= 0x10000 && dice.one_in(2)) {
    return unicode_escape(0xd800 + ((point - 0x10000) >> 10)) +
           unicode_escape(0xdc00 + ((point - 0x10000) & 0x3ff));
  }
  if (point == '"' || point == '\\') {
    return dice.one_in(2) ? utf8('\\') + utf8(point) : unicode_escape(point);
  }
  if (point == '\n') {
    return "\\n";
  }
  if (point < 0x20 || (point < 0x10000 && dice.one_in(8))) {
    return unicode_escape(point);
  }
  return utf8(point);
}

Value text_value(Dice& dice) {
  static const std::vector<char32_t> points = {
      U'a',   U'b',    U'Z',     U'0', U' ', U'"', U'\\', U'/',   U'\'',
      U'\n',  U'\t',   U'\r',    0x01, 0x7f, 0xe9, 0x3b1, 0x6a21, 0xfeff,
      0xfffd, 0x1f600, 0x10ffff, U'%', U'{', U'$', U'\0'};
  Value value{"\"", {}, ""};
  for (std::int64_t left = dice.between(0, 12); left > 0; --left) {
    const char32_t point = dice.pick(points);
    value.json += json_character(dice, point);
    *value.text += utf8(point);
  }
  value.json += "\"";
  return value;
}

// Integers of all sizes, fractions that are exact in binary, true and false.
Value number_value(Dice& dice) {
  if (dice.one_in(8)) {
    const bool truth = dice.one_in(2);
    return {truth ? "true" : "false", truth ? 1 : 0, {}};
  }
  const std::int64_t bits = dice.between(1, 62);
  const std::int64_t whole = dice.between(-(std::int64_t{1} << bits), std::int64_t{1} << bits);
  if (dice.one_in(3)) {
    const double fraction =
        static_cast<double>(whole % 1'000'000'000) + static_cast<double>(dice.between(0, 7)) / 8;
    char text[64];
    std::snprintf(text, sizeof text, dice.one_in(2) ? "%.3f" : "%.17e", fraction);
    return {text, static_cast<std::int64_t>(std::trunc(fraction)), {}};
  }
  return {std::to_string(whole), whole, {}};
}

Value odd_value(Dice& dice) {
  static const std::vector<std::string> others = {"null", "[]", "{}", "[1,\"a\"]",
                                                  R"({"app":"x"})"};
  return {dice.pick(others), {}, {}};
}

std::string blanks(Dice& dice) {
  static const std::vector<std::string> spaces = {"", "", "", " ", "\n", "\t", " \r\n "};
  return dice.pick(spaces);
}

// The members in a random order, with unknown ones among them.
std::string write_object(Dice& dice, const Members& members) {
  std::vector<std::string> parts;
  const auto insert = [&](const std::string& part) {
    const auto at = dice.between(0, static_cast<std::int64_t>(parts.size()));
    parts.insert(parts.begin() + at, part);
  };
  for (const auto& [name, value] : members) {
    insert("\"" + name + "\"" + blanks(dice) + ":" + blanks(dice) + value.json);
  }
  for (std::int64_t extra = dice.between(0, 2); extra > 0; --extra) {
    insert("\"unknown" + std::to_string(extra) +
           "\":" + (dice.one_in(2) ? odd_value(dice) : text_value(dice)).json);
  }
  std::string text = "{";
  for (const std::string& part : parts) {
    text += (text == "{" ? std::string() : ",") + blanks(dice) + part + blanks(dice);
  }
  return text + "}";
}

// Each member is absent one time in four and of a wrong type one time in `wrong`.
Members roll(Dice& dice, const std::vector<std::string>& texts,
             const std::vector<std::string>& numbers, int wrong) {
  Members members;
  for (const std::string& name : texts) {
    if (!dice.one_in(4)) {
      members[name] = dice.one_in(wrong) ? number_value(dice) : text_value(dice);
    }
  }
  for (const std::string& name : numbers) {
    if (!dice.one_in(4)) {
      members[name] = dice.one_in(wrong) ? odd_value(dice) : number_value(dice);
    }
  }
  return members;
}

// The second rendering: nothing stands for an answer that the library's type error ends.
using Text = std::optional<std::string>;

std::optional<std::int64_t> number_of(const Members& members, const std::string& name) {
  const auto at = members.find(name);
  return at == members.end() ? std::optional<std::int64_t>(0) : at->second.number;
}

Text decimal_of(const Members& members, const std::string& name) {
  const auto number = number_of(members, name);
  // The low 32 bits are what is left of a larger number.
  return number ? Text(std::to_string(static_cast<std::int32_t>(*number))) : std::nullopt;
}

Text dollars_of(const Members& members, const std::string& name) {
  const auto number = number_of(members, name);
  char text[64];
  std::snprintf(text, sizeof text, "%g", static_cast<double>(number.value_or(0)) / 1e6);
  return number ? Text(text) : std::nullopt;
}

Text text_of(const Members& members, const std::string& name, const std::string& otherwise) {
  const auto at = members.find(name);
  return at == members.end() ? Text(otherwise) : at->second.text;
}

// The parts in a row, or nothing when one is missing.
Text joined(const std::vector<Text>& parts) {
  std::string all;
  for (const Text& part : parts) {
    if (!part) {
      return std::nullopt;
    }
    all += *part;
  }
  return all;
}

template <typename Report>
Text text_or_type_error(Report report, const std::string& answer) {
  try {
    return report(answer).value_or("(not JSON)");
  } catch (const std::exception& error) {
    EXPECT_EQ(std::string(error.what()).substr(0, 27), "[json.exception.type_error.");
    return std::nullopt;
  }
}

constexpr std::uint32_t answers = 2000;

TEST(RandomAnswers, of_stats_are_shown_like_a_second_rendering_shows_them) {
  unsigned shown = 0;
  for (std::uint32_t seed = 0; seed < answers; ++seed) {
    Dice dice(seed);
    const Members members =
        roll(dice, {}, {"requests", "entities_protected", "blocked_requests", "cost_micros"}, 40);
    const std::string answer = write_object(dice, members);
    const Text expected =
        joined({"requests:            ", decimal_of(members, "requests"),
                "\nentities protected:  ", decimal_of(members, "entities_protected"),
                "\nblocked requests:    ", decimal_of(members, "blocked_requests"),
                "\ncost (list prices):  $", dollars_of(members, "cost_micros"), "\n"});
    ASSERT_EQ(text_or_type_error(stats_report, answer), expected) << seed << ": " << answer;
    shown += expected ? 1U : 0U;
  }
  EXPECT_GE(shown, 1000U);
  EXPECT_LT(shown, answers);
}

TEST(RandomAnswers, of_log_are_shown_like_a_second_rendering_shows_them) {
  unsigned shown = 0;
  for (std::uint32_t seed = 0; seed < answers; ++seed) {
    Dice dice(seed);
    std::string entries;
    std::vector<Text> lines;
    for (std::int64_t left = dice.between(0, 6); left > 0; --left) {
      const Members entry = roll(dice, {"app", "model", "outcome"}, {"duration_ms"}, 80);
      entries += entries.empty() ? "" : ",";
      entries += write_object(dice, entry);
      lines.push_back(
          joined({text_of(entry, "app", "?"), "  ", text_of(entry, "model", ""), "  ",
                  text_of(entry, "outcome", ""), "  ", decimal_of(entry, "duration_ms"), " ms\n"}));
    }
    const Text expected =
        lines.empty() ? "no requests yet (the transcript is RAM-only and empties on restart)\n"
                      : joined(lines);
    const Value list{std::string("[") + blanks(dice) + entries + "]", {}, {}};
    const std::string answer = write_object(dice, {{"entries", list}});
    ASSERT_EQ(text_or_type_error(log_report, answer), expected) << seed << ": " << answer;
    shown += expected ? 1U : 0U;
  }
  EXPECT_GE(shown, 1000U);
  EXPECT_LT(shown, answers);
}

}  // namespace
}  // namespace velun::test
