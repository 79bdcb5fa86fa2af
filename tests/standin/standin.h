// A stand-in for the daemon, for the tests and the demo. It takes the daemon's command line, serves
// its control API and counts the requests on its client ports. It answers every request itself: it
// forwards nothing and protects nothing.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <nlohmann/json.hpp>

namespace http = boost::beast::http;

using Request = http::request<http::string_body>;
using Response = http::response<http::string_body>;

/// Each given flag with its value, which is empty for a flag without one.
using Flags = std::map<std::string, std::string>;

/// Reads the daemon's arguments. Returns what is wrong with them, or the empty text.
std::string read_flags(const std::vector<std::string>& words, Flags& flags);

/// The data for the answers of the control API.
struct Standin {
  Flags flags;
  std::string token;
  // The requests on the client ports since the start.
  int requests = 0;
  int blocked_requests = 0;
  long long cost_micros = 0;
  nlohmann::json entries = nlohmann::json::array();
};

/// Answers on the control port. Every target but /healthz needs the token.
Response answer_control(const Standin& standin, const Request& request);

/// Answers a client of `app` ("anthropic" or "openai") in its own format. Counts a JSON object as
/// answered and any other body as refused.
Response answer_client(Standin& standin, const std::string& app, const Request& request,
                       int duration_ms);
