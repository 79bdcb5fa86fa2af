#include "cli/transcript.h"

#include <map>
#include <nlohmann/json.hpp>
#include <utility>

using nlohmann::json;

namespace velun {
namespace {

// What the report shows of one request, with the defaults of absent members.
struct Entry {
  json app = "?";
  json model = "";
  json outcome = "";
  json duration_ms = 0;
};

// Null for a member that the report does not show.
json* find_member(Entry& entry, const std::string& name) {
  return name == "app"           ? &entry.app
         : name == "model"       ? &entry.model
         : name == "outcome"     ? &entry.outcome
         : name == "duration_ms" ? &entry.duration_ms
                                 : nullptr;
}

// Nothing when a member is of another type.
std::optional<std::string> line_of(const Entry& entry) {
  try {
    std::string line = entry.app.get_ref<const std::string&>() + "  ";
    line += entry.model.get_ref<const std::string&>() + "  ";
    line += entry.outcome.get_ref<const std::string&>() + "  ";
    return line + std::to_string(entry.duration_ms.get<int>()) + " ms\n";
  } catch (const json::type_error&) {
    return std::nullopt;
  }
}

// Takes an answer apart while the library reads it and calls the public functions: as a tree, an
// answer of eight megabytes takes twice the time and three times the memory. Of equal keys the last
// one counts, as it would in a tree.
class TranscriptReader {
 public:
  bool null() { return take(nullptr); }
  bool boolean(bool value) { return take(value); }
  bool number_integer(json::number_integer_t value) { return take(value); }
  bool number_unsigned(json::number_unsigned_t value) { return take(value); }
  bool number_float(json::number_float_t value, const std::string&) { return take(value); }
  bool string(const std::string& value) { return take(value); }
  bool binary(const json::binary_t&) { return true; }  // stands in other formats only
  bool start_object(std::size_t) { return open(json::value_t::object); }
  bool end_object() {
    --depth_;
    if (depth_ == 2 && in_entries_) {
      add(line_of(entry_));
    }
    return true;
  }
  bool start_array(std::size_t) { return open(json::value_t::array); }
  bool end_array() {
    --depth_;
    return true;
  }
  bool key(const std::string& name) {
    if (depth_ == 1) {
      in_entries_ = name == "entries";
    } else if (depth_ == 2) {
      entry_key_ = name;
    } else if (depth_ == 3 && in_entries_) {
      member_ = find_member(entry_, name);
    }
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const json::exception&) { return false; }

  // The lines of all entries; nothing when the answer has an unexpected shape. Asked once, at the
  // end: until then, the text may turn out not to be JSON at all.
  std::optional<std::string> lines() {
    for (const auto& [key, line] : keyed_lines_) {
      expected_ = expected_ && line.has_value();
      lines_ += line.value_or("");
    }
    return expected_ ? std::optional(std::move(lines_)) : std::nullopt;
  }

 private:
  template <typename Value>
  bool take(const Value& value) {
    if (depth_ == 0) {
      expected_ = json(value).is_object();
    } else if (depth_ == 1 && in_entries_) {
      start_entries(value);
    } else if (depth_ == 2 && in_entries_) {
      start_entry(value);
    } else if (depth_ == 3 && in_entries_ && member_ != nullptr) {
      *member_ = value;
    }
    return true;
  }

  bool open(json::value_t kind) {
    take(kind);
    ++depth_;
    return true;
  }

  void start_entries(const json& entries) {
    expected_ = entries.is_null() || entries.is_structured();
    keyed_ = entries.is_object();
    lines_.clear();
    keyed_lines_.clear();
  }

  void start_entry(const json& entry) {
    entry_ = {};
    member_ = nullptr;
    if (!entry.is_object()) {
      add(std::nullopt);
    }
  }

  void add(const std::optional<std::string>& line) {
    if (keyed_) {
      keyed_lines_[entry_key_] = line;
    } else {
      expected_ = expected_ && line.has_value();
      lines_ += line.value_or("");
    }
  }

  int depth_ = 0;            // how many objects and arrays are open
  bool in_entries_ = false;  // inside the answer's "entries"
  bool keyed_ = false;       // which are an object, shown in the order of its keys
  bool expected_ = true;     // nothing of an unexpected shape so far
  std::string entry_key_;
  Entry entry_;             // the one being read
  json* member_ = nullptr;  // where its next value belongs, if anywhere
  std::string lines_;
  std::map<std::string, std::optional<std::string>> keyed_lines_;
};

}  // namespace

std::optional<std::string> log_report(const std::string& body) {
  TranscriptReader reader;
  if (!json::sax_parse(body, &reader)) {
    return std::nullopt;
  }
  const std::optional<std::string> lines = reader.lines();
  if (!lines) {
    throw json::type_error::create(302, "a transcript of an unexpected shape", nullptr);
  }
  return lines->empty() ? "no requests yet (the transcript is RAM-only and empties on restart)\n"
                        : lines;
}

}  // namespace velun
