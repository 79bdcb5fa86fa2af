#include <gtest/gtest.h>

#include "tests/support/config_text.h"

namespace velun::test {
namespace {

void expect_suggestions(const std::vector<TextCase>& rows) {
  for (const TextCase& row : rows) {
    EXPECT_EQ(suggest_key(row.text), row.expected) << "for the key " << row.text;
  }
}

TEST(Suggestion, is_a_known_key_at_most_three_edits_away) {
  expect_suggestions({{"node", "mode"},
                      {"mod", "mode"},
                      {"moode", "mode"},
                      {"mo", "mode"},
                      {"m", "mode"},
                      {"xxxmode", "mode"},
                      {"name", "names"},
                      {"endpointurl", "endpoint_url"},
                      {"moodel_dir", "model_dir"},
                      {"anthropic-ports", "anthropic_port"},
                      {"openport", "openai_port"},
                      {"controlport", "control_port"},
                      {"state-dir", "state_dir"},
                      {"intercept_app", "intercept_apps"},
                      {"interceptport", "intercept_port"}});
}

TEST(Suggestion, is_not_made_for_four_edits_or_more) {
  expect_suggestions({{"x", ""},
                      {"", ""},
                      {"xxxxmode", ""},
                      {"zzqxw", ""},
                      {"intercept_", ""},
                      {"endpoint", ""},
                      {"proxy_url", ""}});
}

TEST(Suggestion, counts_two_edits_for_two_swapped_letters) {
  expect_suggestions({{"mdoe", "mode"}, {"ocntrol_port", "control_port"}, {"ocntrol_prot", ""}});
}

TEST(Suggestion, counts_an_edit_for_a_letter_of_the_other_case) {
  expect_suggestions({{"Mode", "mode"}, {"MODe", "mode"}, {"MODE", ""}, {"NAMES", ""}});
}

TEST(Suggestion, counts_bytes) {
  expect_suggestions({{"\xef\xbb\xbfmode", "mode"},
                      {"m\xc3\xb6\xc3\xb6"
                       "e",
                       ""},
                      {"m\xc3\xb6"
                       "de",
                       "mode"}});
}

TEST(Suggestion, is_the_nearest_key_wherever_it_is_documented) {
  expect_suggestions({{"nomes", "names"},
                      {"nodes ", "mode"},
                      {"intercept_porps", "intercept_port"},
                      {"intercept_abpt", "intercept_apps"}});
}

TEST(Suggestion, is_the_key_documented_first_of_equally_near_ones) {
  expect_suggestions({{"mame", "mode"},
                      {"nodes", "mode"},
                      {"motte_dir", "model_dir"},
                      {"operol_port", "openai_port"},
                      {"intercept_pprs", "intercept_apps"}});
}

TEST(Suggestion, closes_the_problem_of_an_unknown_key) {
  expect_problems({{"mdoe: off\n", "line 1: unknown key `mdoe` — did you mean `mode`?\n"},
                   {"name: yes\n", "line 1: unknown key `name` — did you mean `names`?\n"},
                   {"zzqxw: 1\n", "line 1: unknown key `zzqxw`\n"},
                   {"\xef\xbb\xbfmode: off\n",
                    "line 1: unknown key `\xef\xbb\xbfmode` — did you mean `mode`?\n"}});
}

}  // namespace
}  // namespace velun::test
