#include "config/config.h"

#include <gtest/gtest.h>

#include "tests/support/config_text.h"

namespace velun::test {
namespace {

TEST(Config, a_fresh_record_holds_the_defaults) {
  EXPECT_EQ(fields_of(Config()),
            "mode=watch\n"
            "model_dir=\n"
            "endpoint_url=\n"
            "anthropic_port=8900\n"
            "openai_port=8901\n"
            "control_port=8902\n"
            "state_dir=\n"
            "names=true\n"
            "intercept_apps=\n"
            "intercept_port=8903\n");
  EXPECT_TRUE(Config().intercept_apps.empty());
}

TEST(Config, the_record_enforces_nothing) {
  Config config;
  config.mode = "neither";
  config.control_port = -1;
  const Config copy = config;
  EXPECT_EQ(copy.mode, "neither");
  EXPECT_EQ(copy.control_port, -1);
  EXPECT_EQ(copy, config);
  EXPECT_NE(copy, Config());
}

TEST(Config, exactly_three_words_are_modes) {
  for (const char* word : {"off", "watch", "protect"}) {
    EXPECT_TRUE(is_mode(word)) << word;
  }
  for (const char* word :
       {"", "monitor", "Watch", "OFF", " watch", "watch ", "watch\r", "protec"}) {
    EXPECT_FALSE(is_mode(word)) << "'" << word << "'";
  }
}

}  // namespace
}  // namespace velun::test
