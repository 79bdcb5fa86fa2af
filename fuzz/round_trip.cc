// A record with any texts in it: its rendering reads back as the same record.
//
// The first byte of an input is the separator, the second chooses other settings, and four give the
// ports. Then come the texts, between separators: state_dir, model_dir, endpoint_url without its
// "http", and the applications.
#include <sstream>
#include <string>

#include "fuzz/reads_back.h"
#include "fuzz/target.h"

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
  // Names every field, so a new field stops the build until it is named here.
  auto& [mode, model_dir, endpoint_url, anthropic_port, openai_port, control_port, state_dir, names,
         intercept_apps, intercept_port] = config;
  mode = modes[choices % 3];
  names = (choices & 4) != 0;
  anthropic_port = port_of(input[2], choices / 8 % 3);
  openai_port = port_of(input[3], choices / 8 % 3);
  control_port = port_of(input[4], choices / 8 % 3);
  intercept_port = port_of(input[5], choices / 8 % 3);
  std::istringstream texts(input.substr(head_size));
  std::getline(texts, state_dir, input[0]);
  std::getline(texts, model_dir, input[0]);
  if (std::getline(texts, endpoint_url, input[0]) && !endpoint_url.empty()) {
    endpoint_url.insert(0, "http");
  }
  for (std::string item; std::getline(texts, item, input[0]);) {
    intercept_apps.push_back(item);
  }
  return config;
}

}  // namespace
}  // namespace velun::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velun::fuzz;
  if (size >= head_size) {
    check_reads_back(record_of(text_of(data, size)));
  }
  return 0;
}
