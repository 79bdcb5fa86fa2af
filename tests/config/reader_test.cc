#include <gtest/gtest.h>

#include "tests/support/config_text.h"

namespace velun::test {
namespace {

TEST(ReaderLines, an_empty_text_has_no_entries_and_no_problems) {
  expect_readings({{"", ""}, {"\n", ""}, {"\n\n\n", ""}});
}

TEST(ReaderLines, a_last_line_without_a_newline_is_a_line) {
  expect_readings({{"a: 1\nb: 2", "1 a = <1>\n2 b = <2>\n"},
                   {"a: 1\nb: 2\n", "1 a = <1>\n2 b = <2>\n"},
                   {"a: 1\nb", "1 a = <1>\n! line 2: expected `key: value`\n"}});
}

TEST(ReaderLines, blank_lines_and_comments_are_skipped_and_counted) {
  expect_readings({{"# one\n\n  \t\n\t# four\na: 1\n", "5 a = <1>\n"}});
}

TEST(ReaderLines, one_carriage_return_at_the_end_of_a_line_is_dropped) {
  expect_readings({{"a: 1\r\nb: 2\r", "1 a = <1>\n2 b = <2>\n"},
                   {"a: 1\r\r\n", "1 a = <1\r>\n"},
                   {"a: 1\r2\n", "1 a = <1\r2>\n"},
                   {"a: 1 \r\n", "1 a = <1>\n"},
                   {"a: \r\n", "1 a = <>\n"},
                   {"\r\n \r\na: 1", "3 a = <1>\n"},
                   {"\r\r\n", "! line 1: expected `key: value`\n"}});
}

TEST(ReaderLines, only_a_newline_ends_a_line) {
  expect_readings(
      {{"a: 1\vb: 2\fc: 3\n", "1 a = <1\vb: 2\fc: 3>\n"},
       {std::string_view("a: 1\0b: 2\n", 10), std::string_view("1 a = <1\0b: 2>\n", 15)}});
}

TEST(ReaderLines, an_indented_pair_is_a_problem) {
  const char* problem =
      "! line 1: indentation is not part of this file's format (flat keys only)\n";
  expect_readings({{" mode: off\n", problem},
                   {"\tmode: off\n", problem},
                   {"  - item", problem},
                   {"\vmode: off\n", "1 \vmode = <off>\n"}});
}

TEST(ReaderLines, a_line_without_a_colon_is_a_problem) {
  const char* problem = "! line 1: expected `key: value`\n";
  expect_readings({{"mode off\n", problem}, {"- item\n", problem}, {"mode # : off\n", problem}});
}

TEST(ReaderLines, a_line_that_starts_with_the_colon_has_an_empty_key) {
  expect_readings({{": off\n", "! line 1: empty key\n"}, {":\n", "! line 1: empty key\n"}});
}

TEST(ReaderLines, the_first_of_equal_keys_wins_and_each_later_one_is_a_problem) {
  expect_readings({{"mode: off\nnames: no\nmode: watch\nmode : [x]\n",
                    "1 mode = <off>\n2 names = <no>\n! line 3: duplicate key `mode`\n"
                    "! line 4: duplicate key `mode`\n"}});
}

TEST(ReaderLines, a_key_on_a_line_with_a_problem_may_appear_again) {
  expect_readings({{"  a: 1\na: [x\na: 3\n",
                    "3 a = <3>\n"
                    "! line 1: indentation is not part of this file's format (flat keys only)\n"
                    "! line 2: unterminated list\n"}});
}

TEST(ReaderLines, an_empty_value_still_makes_its_key_a_duplicate) {
  expect_readings({{"a:\na: 1\n", "1 a = <>\n! line 2: duplicate key `a`\n"},
                   {"a: []\na: 1\n", "1 a = []\n! line 2: duplicate key `a`\n"}});
}

TEST(ReaderLines, a_line_gives_one_problem_at_most) {
  const char* indentation =
      "! line 1: indentation is not part of this file's format (flat keys only)\n";
  expect_readings({{"  no colon\n", indentation},
                   {"  : no key\n", indentation},
                   {"  a: [x\n", indentation},
                   {" a: [x # ]\n", indentation},
                   {"no colon [x\n", "! line 1: expected `key: value`\n"},
                   {": [x\n", "! line 1: empty key\n"},
                   {"a: 1\na: [x\n", "1 a = <1>\n! line 2: duplicate key `a`\n"},
                   {"a: 1\n a: 2\n",
                    "1 a = <1>\n! line 2: indentation is not part of this file's format (flat keys "
                    "only)\n"}});
}

TEST(ReaderLines, problems_come_in_the_order_of_the_lines) {
  expect_readings({{"z: [x\n# c\nno colon\n: y\nb: 1\n a: 1\nb: 2\n",
                    "5 b = <1>\n! line 1: unterminated list\n! line 3: expected `key: value`\n"
                    "! line 4: empty key\n"
                    "! line 6: indentation is not part of this file's format (flat keys only)\n"
                    "! line 7: duplicate key `b`\n"}});
}

TEST(ReaderLines, the_key_is_everything_before_the_first_colon_without_outer_blanks) {
  expect_readings({{"mode \t: off\n", "1 mode = <off>\n"},
                   {"two words: x\n", "1 two words = <x>\n"},
                   {"Mode: off\n", "1 Mode = <off>\n"},
                   {"- mode: off\n", "1 - mode = <off>\n"},
                   {"\xff\xfe: x\n", "1 \xff\xfe = <x>\n"}});
}

TEST(ReaderLines, the_key_is_not_unquoted) {
  expect_readings({{"a: 1\n\"a\": 2\n'a': 3\n", "2 \"a\" = <2>\n3 'a' = <3>\n1 a = <1>\n"},
                   {"\"a:b\": 1\n", "1 \"a = <b\": 1>\n"}});
}

TEST(ReaderLines, later_colons_belong_to_the_value) {
  expect_readings({{"url: http://127.0.0.1:8080/x:y\n", "1 url = <http://127.0.0.1:8080/x:y>\n"},
                   {"a::\n", "1 a = <:>\n"}});
}

TEST(ReaderLines, entries_are_in_ascending_byte_order_of_their_keys) {
  expect_readings({{"\xff: 1\nb: 2\nab: 3\na_: 4\nB: 5\na: 6\n",
                    "5 B = <5>\n6 a = <6>\n4 a_ = <4>\n3 ab = <3>\n2 b = <2>\n1 \xff = <1>\n"}});
}

TEST(ReaderLines, problems_are_appended_to_those_that_are_there) {
  Problems problems = {"earlier"};
  const RawConfig raw = parse_config_text("no colon\n", problems);
  EXPECT_TRUE(raw.empty());
  EXPECT_EQ(problems, (Problems{"earlier", "line 1: expected `key: value`"}));
}

TEST(ReaderComments, a_bare_value_ends_at_a_number_sign_with_or_without_a_blank) {
  expect_readings({{"a: b # c\n", "1 a = <b>\n"},
                   {"a: b# c\n", "1 a = <b>\n"},
                   {"a: /models/b#c/d\n", "1 a = </models/b>\n"},
                   {"a: b ## c\n", "1 a = <b>\n"},
                   {"a: # c\n", "1 a = <>\n"},
                   {"#a: b\n", ""}});
}

TEST(ReaderComments, quotes_of_either_kind_keep_a_number_sign) {
  expect_readings({{"a: \"/m/b#c\" # d\n", "1 a = </m/b#c>\n"},
                   {"a: '/m/b#c' # d\n", "1 a = </m/b#c>\n"},
                   {"a: [\"#\", '#'] # d\n", "1 a = [<#><#>]\n"}});
}

TEST(ReaderComments, a_backslash_in_double_quotes_escapes_the_next_character) {
  expect_readings({{R"(a: "b \" # c" # d)", "1 a = <b \" # c>\n"},
                   {R"(a: "b\\" # c)", "1 a = <b\\>\n"},
                   {R"(a: "b\\\" # c" # d)", "1 a = <b\\\" # c>\n"},
                   {R"(a: "b\)", "1 a = <\"b\\>\n"}});
}

TEST(ReaderComments, a_backslash_in_single_quotes_escapes_nothing) {
  expect_readings({{R"(a: 'b \' # c')", "1 a = <b \\>\n"}});
}

TEST(ReaderComments, a_backslash_outside_quotes_escapes_nothing) {
  expect_readings({{R"(a: \# b)", "1 a = <\\>\n"},
                   {R"(a: \" # b)", "1 a = <\\\" # b>\n"},
                   {R"(a: \' # b)", "1 a = <\\' # b>\n"}});
}

TEST(ReaderComments, a_quote_inside_quotes_of_the_other_kind_is_an_ordinary_character) {
  expect_readings(
      {{"a: \"it's\" # c\n", "1 a = <it's>\n"}, {"a: 'say \"x' # c\n", "1 a = <say \"x>\n"}});
}

TEST(ReaderComments, a_lone_quote_hides_a_number_sign) {
  expect_readings({{"a: it's # c\n", "1 a = <it's # c>\n"},
                   {"a: 5\" # c\n", "1 a = <5\" # c>\n"},
                   {"a: it's Ada's # c\n", "1 a = <it's Ada's>\n"}});
}

TEST(ReaderComments, quotes_and_number_signs_in_a_key_count_too) {
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
