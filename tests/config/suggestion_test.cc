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
                      {"moode", "mode"},
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
                      {"interceptport", "intercept_port"},
                      // four edits or more
                      {"", ""},
                      {"x", ""},
                      {"xxxxmode", ""},
                      {"zzqxw", ""},
                      {"intercept_", ""},
                      {"proxy_url", ""}});
}

TEST(Suggestion, counts_an_edit_for_each_byte_that_differs_and_two_for_swapped_ones) {
  expect_suggestions({{"mdoe", "mode"},
                      {"ocntrol_port", "control_port"},
                      {"ocntrol_prot", ""},
                      {"MODe", "mode"},
                      {"MODE", ""},
                      {"NAMES", ""},
                      {"\xef\xbb\xbfmode", "mode"},
                      {"m\xc3\xb6\xc3\xb6"
                       "e",
                       ""},
                      {"m\xc3\xb6"
                       "de",
                       "mode"}});
}

TEST(Suggestion, is_the_nearest_key_and_the_one_documented_first_of_equally_near_ones) {
  expect_suggestions({{"nomes", "names"},
                      {"nodes ", "mode"},
                      {"intercept_porps", "intercept_port"},
                      {"intercept_abpt", "intercept_apps"},
                      // equally near
                      {"mame", "mode"},
                      {"nodes", "mode"},
                      {"motte_dir", "model_dir"},
                      {"operol_port", "openai_port"},
                      {"intercept_pprs", "intercept_apps"}});
}

}  // namespace
}  // namespace velun::test
