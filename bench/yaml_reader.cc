// yaml_reader FILE
//
// Reads a flat file of `key: value` lines and lists the way a program with a YAML library would,
// and prints what it has read, one key a line. It is what `velun config` is measured against.

#include <yaml.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

struct Entry {
  std::string key;
  std::vector<std::string> values;
  bool is_list = false;
};

// Puts the parser's events together to a flat mapping.
class FlatReader {
 public:
  void take(const yaml_event_t& event) {
    switch (event.type) {
      case YAML_SCALAR_EVENT:
        take_scalar(
            {reinterpret_cast<const char*>(event.data.scalar.value), event.data.scalar.length});
        break;
      case YAML_SEQUENCE_START_EVENT:
        entries.back().is_list = true;
        in_list_ = true;
        break;
      case YAML_SEQUENCE_END_EVENT:
        in_list_ = false;
        wants_key_ = true;
        break;
      default:
        break;
    }
  }

  std::vector<Entry> entries;

 private:
  void take_scalar(std::string text) {
    if (wants_key_) {
      entries.push_back({std::move(text), {}, false});
      wants_key_ = false;
    } else {
      entries.back().values.push_back(std::move(text));
      wants_key_ = !in_list_;
    }
  }

  bool wants_key_ = true;
  bool in_list_ = false;
};

bool read_file(std::FILE* file, FlatReader& reader) {
  yaml_parser_t parser;
  if (yaml_parser_initialize(&parser) == 0) {
    return false;
  }
  yaml_parser_set_input_file(&parser, file);
  bool read = true;
  for (bool ended = false; read && !ended;) {
    yaml_event_t event;
    read = yaml_parser_parse(&parser, &event) != 0;
    if (read) {
      reader.take(event);
      ended = event.type == YAML_STREAM_END_EVENT;
      yaml_event_delete(&event);
    }
  }
  yaml_parser_delete(&parser);
  return read;
}

std::string text_of(const Entry& entry) {
  std::string text;
  for (const std::string& value : entry.values) {
    text += (text.empty() ? "" : ", ") + value;
  }
  return entry.is_list ? "[" + text + "]" : text;
}

}  // namespace

int main(int argc, char* argv[]) {
  std::FILE* file = argc == 2 ? std::fopen(argv[1], "re") : nullptr;
  FlatReader reader;
  const bool read = file != nullptr && read_file(file, reader);
  if (file != nullptr) {
    std::fclose(file);
  }
  if (!read) {
    std::fputs("yaml_reader: cannot read the file\n", stderr);
    return EXIT_FAILURE;
  }
  for (const Entry& entry : reader.entries) {
    std::printf("%s: %s\n", entry.key.c_str(), text_of(entry).c_str());
  }
}
