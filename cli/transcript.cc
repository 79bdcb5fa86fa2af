#include "cli/transcript.h"

#include <exception>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "daemon/answer_integers.h"

using nlohmann::json;

namespace velun {
namespace {

// What the report shows of one request; members may be absent.
struct Entry {
  json::value_t kind = json::value_t::object;
  std::optional<json> app = std::nullopt;
  std::optional<json> model = std::nullopt;
  std::optional<json> outcome = std::nullopt;
  std::optional<json> duration_ms = std::nullopt;
};

// Null for a member that the report does not show.
std::optional<json>* find_member(Entry& entry, std::string_view name) {
  return name == "app"           ? &entry.app
         : name == "model"       ? &entry.model
         : name == "outcome"     ? &entry.outcome
         : name == "duration_ms" ? &entry.duration_ms
                                 : nullptr;
}

// Throws the library's type error for a value that has no members.
void expect_members(json::value_t kind) {
  if (kind != json::value_t::object) {
    json(kind).value("", "");
  }
}

std::string_view text_or(const std::optional<json>& member, std::string_view absent) {
  return member ? member->get_ref<const std::string&>() : absent;
}

// Throws the library's type error for an entry or a member of another type; what it has then added
// of a line is never shown.
void add_line(const Entry& entry, std::string& lines) {
  expect_members(entry.kind);
  const int duration = entry.duration_ms ? to_integer<int>(*entry.duration_ms) : 0;
  lines += text_or(entry.app, "?");
  lines += "  ";
  lines += text_or(entry.model, "");
  lines += "  ";
  lines += text_or(entry.outcome, "");
  lines += "  ";
  lines += std::to_string(duration);
  lines += " ms\n";
}

// Takes an answer apart while the library reads it and calls the public functions: a tree of eight
// megabytes of text takes twice the time and several times the memory. Of equal keys the last one
// counts, as it would in a tree, and nothing that is wrong is thrown before all has been read: the
// text may still turn out not to be JSON.
class TranscriptReader {
 public:
  bool null() { return take(json()); }
  bool boolean(bool value) { return take(json(value)); }
  bool number_integer(json::number_integer_t value) { return take(json(value)); }
  bool number_unsigned(json::number_unsigned_t value) { return take(json(value)); }
  bool number_float(json::number_float_t value, const std::string&) { return take(json(value)); }
  bool string(const std::string& value) { return take(value); }
  bool binary(const json::binary_t&) { return true; }  // stands in other formats only
  bool start_object(std::size_t) { return open(json::value_t::object); }
  bool end_object() {
    close();
    if (at(2)) {
      end_entry();
    }
    return true;
  }
  bool start_array(std::size_t) { return open(json::value_t::array); }
  bool end_array() { return close(); }
  bool key(const std::string& name) {
    if (depth_ == 1) {
      in_entries_ = name == "entries";
    } else if (at(2)) {
      entry_key_ = name;
    } else if (at(3)) {
      member_ = find_member(entry_, name);
    }
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const json::exception&) { return false; }

  // The lines of all entries; throws the library's type error for an answer of an unexpected shape.
  std::string lines() {
    expect_members(answer_);
    if (entries_ != json::value_t::null && entries_ != json::value_t::array) {
      expect_members(entries_);
    }
    if (fault_ != nullptr) {
      std::rethrow_exception(fault_);
    }
    for (const auto& [key, entry] : keyed_entries_) {
      add_line(entry, lines_);
    }
    return std::move(lines_);
  }

 private:
  // Whether the next value stands this deep within the answer's "entries".
  bool at(int depth) const { return in_entries_ && depth_ == depth; }

  bool open(json::value_t kind) {
    take(kind);
    ++depth_;
    return true;
  }

  bool close() {
    --depth_;
    return true;
  }

  static json::value_t kind_of(json::value_t kind) { return kind; }
  static json::value_t kind_of(const json& value) { return value.type(); }
  static json::value_t kind_of(const std::string&) { return json::value_t::string; }

  template <typename Value>
  bool take(const Value& value) {
    if (depth_ == 0) {
      answer_ = kind_of(value);
    } else if (at(1)) {
      start_entries(kind_of(value));
    } else if (at(2)) {
      start_entry(kind_of(value));
    } else if (at(3) && member_ != nullptr) {
      *member_ = value;
    }
    return true;
  }

  void start_entries(json::value_t kind) {
    entries_ = kind;
    keyed_entries_.clear();
    lines_.clear();
    fault_ = nullptr;
  }

  void start_entry(json::value_t kind) {
    entry_ = {.kind = kind};
    member_ = nullptr;
    if (kind != json::value_t::object) {
      end_entry();
    }
  }

  void end_entry() {
    if (entries_ == json::value_t::object) {
      keyed_entries_[entry_key_] = entry_;
      return;
    }
    if (fault_ != nullptr) {
      return;
    }
    try {
      add_line(entry_, lines_);
    } catch (const json::type_error&) {
      fault_ = std::current_exception();
    }
  }

  int depth_ = 0;  // how many objects and arrays are open
  bool in_entries_ = false;
  json::value_t answer_ = json::value_t::null;
  json::value_t entries_ = json::value_t::null;
  Entry entry_;                                 // the one being read
  std::optional<json>* member_ = nullptr;       // where its next value belongs, if anywhere
  std::string entry_key_;                       // its key, when the entries are an object
  std::map<std::string, Entry> keyed_entries_;  // shown in the order of their keys
  std::string lines_;                           // of the entries of an array, in their order
  std::exception_ptr fault_;                    // of the first of them that has one
};

}  // namespace

std::optional<std::string> log_report(const std::string& body) {
  TranscriptReader reader;
  if (!json::sax_parse(body, &reader)) {
    return std::nullopt;
  }
  std::string lines = reader.lines();
  if (lines.empty()) {
    return "no requests yet (the transcript is RAM-only and empties on restart)\n";
  }
  return lines;
}

}  // namespace velun
