// The answers of the stand-in's control API and client ports, and the ledger that its numbers come
// from. No socket is touched here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/standin/flags.h"

/// One request as the transcript shows it.
struct Entry {
  std::string app;
  std::string model;
  std::string outcome;
  int duration_ms = 0;
};

/// What passed since the start; no number of the control API comes from anywhere else.
struct Ledger {
  int requests = 0;
  int blocked_requests = 0;
  std::int64_t cost_micros = 0;
  std::vector<Entry> entries;
};

struct Standin {
  Flags flags;
  std::string token;
  Ledger ledger;
};

/// A request as far as an answer depends on it.
struct Question {
  std::string method;
  std::string target;
  std::string authorization;
  std::string body;
  int duration_ms = 0;  ///< from the connection's start until all of the request was there
};

struct Answer {
  unsigned status = 200;
  std::string content_type;
  std::string body;
};

/// Answers on the control port. All but /healthz want the token.
Answer answer_control(const Standin& standin, const Question& question);

/// Answers a client of `app` ("anthropic" or "openai") in the shape it expects, and enters the
/// request in the ledger: a JSON object as answered, any other body as refused.
Answer answer_client(Ledger& ledger, const std::string& app, const Question& question);

/// The port that follows `flag` on the command line, 0 if it was not given.
int port_of(const Flags& flags, const std::string& flag);
