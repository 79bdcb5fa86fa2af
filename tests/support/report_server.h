// A healthy daemon for the commands that show reports, with one answer for every path but
// /healthz.
#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <vector>

#include "tests/support/loopback_server.h"

namespace velun::test {

/// A handler that answers /healthz with "ok" and every other path with `report`.
inline LoopbackServer::Handler healthy_with(const Reply& report) {
  return [report](const std::string& request) {
    return path_of(request) == "/healthz" ? answer(200, "ok") : report;
  };
}

/// The same for a well-formed answer with status 200.
inline LoopbackServer::Handler healthy_with(const std::string& body) {
  return healthy_with(answer(200, body));
}

/// The text of the error that `report` raises for the answer; "none" if it raises none.
template <typename Report>
std::string error_of(const Report& report, const std::string& answer) {
  try {
    report(answer);
  } catch (const std::exception& error) {
    return error.what();
  }
  return "none";
}

/// Expects that `report` raises the JSON library's type error for each answer.
template <typename Report>
void expect_type_error(const Report& report, const std::vector<std::string>& answers) {
  for (const std::string& answer : answers) {
    EXPECT_EQ(error_of(report, answer).substr(0, 27), "[json.exception.type_error.")
        << answer.substr(0, 200);
  }
}

/// Bodies that are not JSON. The library could be told to accept the comments among them.
inline const std::vector<std::string> not_json = {
    "", " ", "ok", "{", "{} x", "// c\n{}", "{/**/}", "{'a':1}", R"({"a":1,})", "{\"a\":\"\xff\"}"};

/// `levels` arrays, one inside the other, as JSON text.
inline std::string nested_arrays(std::size_t levels) {
  return std::string(levels, '[') + std::string(levels, ']');
}

/// `levels` objects, one inside the other, around an empty array.
inline std::string nested_objects(std::size_t levels) {
  std::string text;
  for (std::size_t level = 0; level < levels; ++level) {
    text += R"({"a":)";
  }
  return text + "[]" + std::string(levels, '}');
}

}  // namespace velun::test
