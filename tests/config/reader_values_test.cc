#include <gtest/gtest.h>

#include "tests/support/config_text.h"

namespace velun::test {
namespace {

TEST(ReaderComments, a_bare_value_ends_before_the_sign_with_or_without_a_blank) {
  expect_readings({{"a: b # c\n", "1 a = <b>\n"},
                   {"a: b# c\n", "1 a = <b>\n"},
                   {"a: /models/b#c/d\n", "1 a = </models/b>\n"},
                   {"a: b ## c\n", "1 a = <b>\n"},
                   {"a: # c\n", "1 a = <>\n"},
                   {"#a: b\n", ""}});
}

TEST(ReaderComments, quotes_of_either_kind_keep_the_sign) {
  expect_readings({{"a: \"/m/b#c\" # d\n", "1 a = </m/b#c>\n"},
                   {"a: '/m/b#c' # d\n", "1 a = </m/b#c>\n"},
                   {"a: [\"#\", '#'] # d\n", "1 a = [<#><#>]\n"}});
}

TEST(ReaderComments, a_backslash_in_double_quotes_steps_over_the_next_character) {
  expect_readings({{R"(a: "b \" # c" # d)", "1 a = <b \" # c>\n"},
                   {R"(a: "b\\" # c)", "1 a = <b\\>\n"},
                   {R"(a: "b\\\" # c" # d)", "1 a = <b\\\" # c>\n"},
                   {R"(a: "b\)", "1 a = <\"b\\>\n"}});
}

TEST(ReaderComments, a_backslash_in_single_quotes_steps_over_nothing) {
  expect_readings({{R"(a: 'b \' # c')", "1 a = <b \\>\n"}});
}

TEST(ReaderComments, a_backslash_outside_quotes_steps_over_nothing) {
  expect_readings({{R"(a: \# b)", "1 a = <\\>\n"},
                   {R"(a: \" # b)", "1 a = <\\\" # b>\n"},
                   {R"(a: \' # b)", "1 a = <\\' # b>\n"}});
}

TEST(ReaderComments, a_quote_inside_quotes_of_the_other_kind_is_an_ordinary_character) {
  expect_readings(
      {{"a: \"it's\" # c\n", "1 a = <it's>\n"}, {"a: 'say \"x' # c\n", "1 a = <say \"x>\n"}});
}

TEST(ReaderComments, a_lone_quote_hides_the_sign) {
  expect_readings({{"a: it's # c\n", "1 a = <it's # c>\n"},
                   {"a: 5\" # c\n", "1 a = <5\" # c>\n"},
                   {"a: it's Ada's # c\n", "1 a = <it's Ada's>\n"}});
}

TEST(ReaderComments, the_scan_runs_over_the_key_as_well) {
  expect_readings({{"it's: b # c\n", "1 it's = <b # c>\n"},
                   {"a\"b: c # d\n", "1 a\"b = <c # d>\n"},
                   {"\"a # b\": c\n", "1 \"a # b\" = <c>\n"},
                   {"a\"\\\": b\" # c\n", "1 a\"\\\" = <b\">\n"},
                   {"a#b: c\n", "! line 1: expected `key: value`\n"}});
}

TEST(ReaderComments, every_line_starts_outside_quotes) {
  expect_readings({{"a: it's\nb: c # d\n", "1 a = <it's>\n2 b = <c>\n"},
                   {"a: \"x\nb: c # d\n", "1 a = <\"x>\n2 b = <c>\n"},
                   {"# it's \"\nb: c # d\n", "2 b = <c>\n"}});
}

TEST(ReaderScalars, a_value_is_trimmed_and_then_unquoted) {
  expect_readings({{"a: \t b c \t\n", "1 a = <b c>\n"},
                   {"a:b\n", "1 a = <b>\n"},
                   {"a:\n", "1 a = <>\n"},
                   {"a: \t\n", "1 a = <>\n"},
                   {"a: ''\n", "1 a = <>\n"},
                   {"a: \" b\\t\" \n", "1 a = < b\t>\n"},
                   {"a: \"b\" c\n", "1 a = <\"b\" c>\n"}});
}

TEST(ReaderScalars, brackets_that_are_not_first_make_no_list) {
  expect_readings({{"a: \"[b]\"\n", "1 a = <[b]>\n"},
                   {"a: b]\n", "1 a = <b]>\n"},
                   {"a: ]\n", "1 a = <]>\n"},
                   {"a: x[b]\n", "1 a = <x[b]>\n"}});
}

TEST(ReaderLists, items_are_split_at_commas_trimmed_and_unquoted_and_empty_ones_dropped) {
  expect_readings({{"a: [b]\n", "1 a = [<b>]\n"},
                   {"a: [ c d \t,\tb, b ] # e\n", "1 a = [<c d><b><b>]\n"},
                   {"a: [b: c]\n", "1 a = [<b: c>]\n"},
                   {R"(a: ["b c", 'd\t', "e\tf"])", "1 a = [<b c><d\\t><e\tf>]\n"},
                   {"a: [\" \"]\n", "1 a = [< >]\n"},
                   {"a: [b,,c]\n", "1 a = [<b><c>]\n"},
                   {"a: [b, c,]\n", "1 a = [<b><c>]\n"},
                   {"a: [,b]\n", "1 a = [<b>]\n"},
                   {"a: [\"\", b, '']\n", "1 a = [<b>]\n"},
                   {"a: []\n", "1 a = []\n"},
                   {"a: [\t]\n", "1 a = []\n"},
                   {"a: [ , , ]\n", "1 a = []\n"}});
}

TEST(ReaderLists, a_comma_in_quotes_splits_too_and_each_piece_keeps_its_lone_quote) {
  expect_readings({{"a: [\"b,c\"]\n", "1 a = [<\"b><c\">]\n"},
                   {"a: ['b, c']\n", "1 a = [<'b><c'>]\n"},
                   {"a: [\",\"]\n", "1 a = [<\"><\">]\n"}});
}

TEST(ReaderLists, inner_brackets_are_ordinary_characters) {
  expect_readings({{"a: [[b], c]\n", "1 a = [<[b]><c>]\n"}, {"a: []]\n", "1 a = [<]>]\n"}});
}

TEST(ReaderLists, a_list_must_end_its_line_with_a_bracket) {
  for (const char* text :
       {"a: [b", "a: [", "a: [b] c", "a: [b],", "a: [b # ]", "a: [\"b]\"", "a: [b\\"}) {
    EXPECT_EQ(reading_of(text), "! line 1: unterminated list\n") << text;
  }
}

TEST(ReaderLists, a_list_fills_items_and_a_scalar_fills_scalar) {
  Problems problems;
  const RawConfig raw = parse_config_text("\nlist: [b]\nword: c\n", problems);
  const ConfigEntry& list = raw.at("list");
  EXPECT_EQ(list.scalar, "");
  EXPECT_EQ(list.items, std::vector<std::string>{"b"});
  EXPECT_TRUE(list.is_list);
  EXPECT_EQ(list.line, 2);
  const ConfigEntry& word = raw.at("word");
  EXPECT_EQ(word.scalar, "c");
  EXPECT_TRUE(word.items.empty());
  EXPECT_FALSE(word.is_list);
  EXPECT_EQ(word.line, 3);
}

TEST(TrimBlanks, removes_outer_spaces_and_tabs_and_nothing_else) {
  const std::vector<TextCase> rows = {{"", ""},
                                      {" \t ", ""},
                                      {"a", "a"},
                                      {" \ta b\t ", "a b"},
                                      {"\ta\tb", "a\tb"},
                                      {"\r a \r", "\r a \r"},
                                      {" \n ", "\n"},
                                      {"\va\f", "\va\f"},
                                      {" \xc2\xa0 ", "\xc2\xa0"}};
  for (const TextCase& row : rows) {
    EXPECT_EQ(trim_blanks(row.text), row.expected) << "for '" << row.text << "'";
  }
}

TEST(UnquoteValue, takes_matching_quotes_off_and_resolves_escapes_in_double_ones) {
  const std::vector<TextCase> rows = {
      {"", ""},
      {"\"", "\""},
      {"'", "'"},
      {"a", "a"},
      {"aba", "aba"},
      {"\"\"", ""},
      {"''", ""},
      {R"("a b")", "a b"},
      {R"("\n\t\r\a\'\"\\")", "\n\tra'\"\\"},
      {R"("a\")", R"(a\)"},
      {R"("\")", R"(\)"},
      {R"("\\")", R"(\)"},
      {R"("\\\")", R"(\\)"},
      {R"("\\n")", R"(\n)"},
      {R"("a"b")", R"(a"b)"},
      {R"("a'b")", "a'b"},
      {R"('a\tb\')", R"(a\tb\)"},
      {R"('a'b')", "a'b"},
      {R"('a"b')", R"(a"b)"},
      {R"("a')", R"("a')"},
      {R"('a")", R"('a")"},
      {R"("a)", R"("a)"},
      {R"(a")", R"(a")"},
      {R"("a" )", R"("a" )"},
  };
  for (const TextCase& row : rows) {
    EXPECT_EQ(unquote_value(row.text), row.expected) << "for " << row.text;
  }
}

}  // namespace
}  // namespace velun::test
