#include "tests/standin/answers.h"

#include <map>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

// Flags are bytes; those that are not UTF-8 must not break the answer.
Answer json_answer(unsigned status, const json& body) {
  return {status, "application/json", body.dump(-1, ' ', false, json::error_handler_t::replace)};
}

Answer refuse(unsigned status, const std::string& message) {
  return json_answer(status, {{"type", "error"}, {"error", {{"message", message}}}});
}

std::string model_status(const Flags& flags) {
  return flags.contains("--model")            ? "loaded"
         : flags.contains("--model-endpoint") ? "endpoint"
         : flags.contains("--names")          ? "pattern floor only"
                                              : "none";
}

json listener(const Flags& flags, const std::string& app) {
  return {{"app", app}, {"port", port_of(flags, "--" + app + "-port")}};
}

json status(const Flags& flags) {
  json report = {
      {"mode", flags.contains("--protect") ? "protect" : "monitor"},
      {"model_status", model_status(flags)},
      {"listeners", json::array({listener(flags, "anthropic"), listener(flags, "openai")})},
      {"intercept",
       {{"enabled", flags.contains("--intercept")}, {"port", port_of(flags, "--intercept-port")}}}};
  if (const auto endpoint = flags.find("--model-endpoint"); endpoint != flags.end()) {
    report["model_endpoint"] = endpoint->second;
  }
  return report;
}

json stats(const Ledger& ledger) {
  return {{"requests", ledger.requests},
          {"entities_protected", 0},
          {"blocked_requests", ledger.blocked_requests},
          {"cost_micros", ledger.cost_micros}};
}

json transcript(const Ledger& ledger) {
  json entries = json::array();
  for (const Entry& entry : ledger.entries) {
    entries.push_back({{"app", entry.app},
                       {"model", entry.model},
                       {"outcome", entry.outcome},
                       {"duration_ms", entry.duration_ms}});
  }
  return {{"entries", entries}};
}

// The list price: four bytes of a request count as one token, and a million tokens cost 3 dollars.
constexpr int micros_per_token = 3;

json completion(const std::string& app, const std::string& model) {
  const json content = "Counted by the stand-in daemon, and sent nowhere.";
  if (app == "anthropic") {
    return {{"type", "message"},
            {"role", "assistant"},
            {"model", model},
            {"content", json::array({{{"type", "text"}, {"text", content}}})}};
  }
  const json message = {{"role", "assistant"}, {"content", content}};
  return {{"object", "chat.completion"},
          {"model", model},
          {"choices", json::array({{{"index", 0}, {"message", message}}})}};
}

std::string model_of(const json& request) {
  const auto named = request.find("model");
  return named != request.end() && named->is_string() ? named->get<std::string>() : "";
}

}  // namespace

int port_of(const Flags& flags, const std::string& flag) {
  const auto given = flags.find(flag);
  return given == flags.end() ? 0 : std::stoi(given->second);
}

Answer answer_control(const Standin& standin, const Question& question) {
  if (question.method != "GET") {
    return refuse(405, "only GET");
  }
  if (question.target == "/healthz") {
    return {200, "text/plain", "ok"};
  }
  const std::map<std::string, json> reports = {{"/v1/status", status(standin.flags)},
                                               {"/v1/stats", stats(standin.ledger)},
                                               {"/v1/transcript", transcript(standin.ledger)}};
  const auto report = reports.find(question.target);
  if (report == reports.end()) {
    return refuse(404, "no such target");
  }
  return question.authorization == "Bearer " + standin.token ? json_answer(200, report->second)
                                                             : refuse(401, "wrong token");
}

Answer answer_client(Ledger& ledger, const std::string& app, const Question& question) {
  if (question.method != "POST") {
    return refuse(405, "only POST");
  }
  const json request = json::parse(question.body, nullptr, false);
  const bool understood = request.is_object();
  const std::string model = understood ? model_of(request) : "";
  ledger.entries.push_back({app, model, understood ? "answered" : "refused", question.duration_ms});
  if (!understood) {
    ++ledger.blocked_requests;
    return refuse(400, "the body is not a JSON object");
  }
  ++ledger.requests;
  ledger.cost_micros +=
      micros_per_token * static_cast<std::int64_t>((question.body.size() + 3) / 4);
  return json_answer(200, completion(app, model));
}
