// The texts of `velun setup`, and a fixture that runs it with given answers.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/sandbox.h"

namespace velun::test {

inline const std::string greeting = "Velun CLI setup — Enter keeps the value in brackets.\n\n";

inline const std::string protect_warning =
    "\nProtect without a model falls back to the pattern floor — much\n"
    "weaker. `velun help model` explains how to get one.\n\n";

inline const std::string next_step =
    "next: `velun start`, then `velun help ports` to route your tools.\n";

inline std::string mode_question(const std::string& offer) {
  return "Mode (off / watch / protect) [" + offer + "]: ";
}

inline std::string detection_question(const std::string& offer) {
  return "Detection: path to a model bundle, a self-hosted engine URL, or `none` [" + offer + "]: ";
}

inline std::string refusal(const std::string& answer) {
  return "  `" + answer + "` is not a mode. `velun help modes` explains them.\n";
}

/// All of standard output if both questions are asked once and the file is at `path`. The warning
/// stands between the questions and the save.
inline std::string dialogue(const std::string& path, const std::string& mode_offer = "watch",
                            const std::string& detection_offer = "none",
                            const std::string& warning = "") {
  return greeting + mode_question(mode_offer) + detection_question(detection_offer) + warning +
         "wrote " + path + "\n" + next_step;
}

/// The file that setup writes for a mode and at most one line for the detection.
inline std::string written(const std::string& mode, const std::string& detection_line = "") {
  return "# Velun CLI configuration. `velun help config` documents every key.\nmode: " + mode +
         "\n" + detection_line +
         "anthropic_port: 8900\nopenai_port: 8901\ncontrol_port: 8902\nnames: true\n";
}

class SetupDialogue : public ::testing::Test {
 protected:
  Sandbox sandbox;

  /// Runs the dialogue with `input` as standard input.
  Outcome given(const std::string& input) {
    RunOptions options;
    options.input = input;
    return sandbox.velun({"setup"}, options);
  }

  /// The whole dialogue for the sandbox's file.
  std::string transcript(const std::string& mode_offer, const std::string& detection_offer,
                         const std::string& warning = "") const {
    return dialogue(sandbox.config_file(), mode_offer, detection_offer, warning);
  }

  /// Expects this output, a silent standard error, and this file for `input`.
  void expect_dialogue(const std::string& input, const std::string& out,
                       const std::string& content) {
    EXPECT_EQ(seen(given(input)), success(out)) << "for the input:\n" << input;
    EXPECT_EQ(file(), content) << "for the input:\n" << input;
  }

  void give_file(const std::string& content) const { write_file(sandbox.config_file(), content); }
  std::string file() const { return read_file(sandbox.config_file()); }
};

}  // namespace velun::test
