// A record with any texts in it: its rendering reads back to the same record, but for the losses
// that config/writer.h lists, which look exactly as they have to.
//
// An input is a separator, a byte of choices, four for the ports, and then the texts between
// separators: state_dir, model_dir, endpoint_url behind its "http", and the applications.
#include <algorithm>

#include "fuzz/reference.h"
#include "fuzz/target.h"

#include "config/validator.h"
#include "config/writer.h"

namespace velun::fuzz {
namespace {

constexpr std::size_t head_size = 6;

int port_of(char byte, int choice) {
  static constexpr int lowest = 1;
  static constexpr int highest = 65535;
  const int number = static_cast<unsigned char>(byte);
  return choice == 0 ? lowest + number : choice == 1 ? highest - number : lowest + 256 * number;
}

Config record_of(const std::string& input) {
  static constexpr const char* modes[] = {"off", "watch", "protect"};
  const auto choices = static_cast<unsigned char>(input[1]);
  Config config;
  config.mode = modes[choices % 3];
  config.names = (choices & 4) != 0;
  config.anthropic_port = port_of(input[2], choices / 8 % 3);
  config.openai_port = port_of(input[3], choices / 8 % 3);
  config.control_port = port_of(input[4], choices / 8 % 3);
  config.intercept_port = port_of(input[5], choices / 8 % 3);
  const std::vector<std::string> texts = split(input.substr(head_size), input[0]);
  const auto text = [&texts](std::size_t number) {
    return number < texts.size() ? texts[number] : std::string();
  };
  config.state_dir = text(0);
  config.model_dir = text(1);
  config.endpoint_url = text(2).empty() ? "" : "http" + text(2);
  if (texts.size() > 3) {
    config.intercept_apps.assign(texts.begin() + 3, texts.end());
  }
  return config;
}

bool stands_bare(const std::string& text) {
  return reference::quoted(text) == text;
}

// Bare before the end of a line, such a text loses it and then the blanks that stood before it.
std::string without_last_return(std::string text) {
  if (text.ends_with('\r') && stands_bare(text)) {
    text.pop_back();
    text.erase(text.find_last_not_of(' ') + 1);
  }
  return text;
}

// Whether the apostrophe of a bare item can bare a "#" that stands in the quotes of a later one.
bool apostrophe_meets_comment_sign(const std::vector<std::string>& items) {
  const auto bare = std::find_if(items.begin(), items.end(), [](const std::string& item) {
    return stands_bare(item) && item.find('\'') != std::string::npos;
  });
  return std::any_of(bare, items.end(),
                     [](const std::string& item) { return item.find('#') != std::string::npos; });
}

// The items that are read back: all but the empty ones, those with a comma in their pieces.
std::vector<std::string> items_left(const std::vector<std::string>& items) {
  std::vector<std::string> left;
  for (const std::string& item : items) {
    if (item.find(',') == std::string::npos) {
      left.insert(left.end(), item.empty() ? 0 : 1, item);
    } else {
      const std::vector<std::string> pieces = reference::items_of(reference::quoted(item));
      left.insert(left.end(), pieces.begin(), pieces.end());
    }
  }
  return left;
}

Config expected_of(Config config) {
  config.state_dir = without_last_return(config.state_dir);
  config.model_dir = without_last_return(config.model_dir);
  config.endpoint_url = without_last_return(config.endpoint_url);
  if (config.intercept_apps.empty()) {
    config.intercept_port = Config().intercept_port;
  }
  config.intercept_apps = items_left(config.intercept_apps);
  return config;
}

void check_round_trip(const Config& config) {
  Config expected = expected_of(config);
  Problems problems;
  Config reread = validate_config(parse_config_text(render_config(config), problems), problems);
  if (apostrophe_meets_comment_sign(config.intercept_apps)) {
    // The list may be anything, and nothing else is touched.
    std::erase_if(problems, [](const std::string& problem) {
      return problem.ends_with(": unterminated list");
    });
    reread.intercept_apps = expected.intercept_apps;
  }
  const bool both = !expected.model_dir.empty() && !expected.endpoint_url.empty();
  check(problems.size() == (both ? 1 : 0), "a rendering has no problems but that of two engines");
  check_equal(render_config(reread), render_config(expected), "a record reads back");
  check(reread == expected, "a record reads back in every field");
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  if (size >= head_size) {
    check_round_trip(record_of(text_of(data, size)));
  }
  return 0;
}
