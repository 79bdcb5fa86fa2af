#include <map>

#include <boost/beast/http/status.hpp>

#include "tests/standin/standin.h"

using nlohmann::json;

namespace {

Response response(unsigned status, const std::string& type, const std::string& body) {
  Response result;
  result.result(status);
  result.set(http::field::content_type, type);
  result.body() = body;
  result.keep_alive(false);
  result.prepare_payload();
  return result;
}

// Flags are bytes. Those that are not UTF-8 must not break the answer.
Response json_response(unsigned status, const json& body) {
  return response(status, "application/json",
                  body.dump(-1, ' ', false, json::error_handler_t::replace));
}

Response refuse(unsigned status, const std::string& message) {
  return json_response(status, {{"type", "error"}, {"error", {{"message", message}}}});
}

json port(const Flags& flags, const std::string& flag) {
  return flags.contains(flag) ? std::stoi(flags.at(flag)) : 0;
}

json status(const Flags& flags) {
  const std::string model = flags.contains("--model")            ? "loaded"
                            : flags.contains("--model-endpoint") ? "endpoint"
                            : flags.contains("--names")          ? "pattern floor only"
                                                                 : "none";
  json listeners = json::array();
  for (const std::string app : {"anthropic", "openai"}) {
    listeners.push_back({{"app", app}, {"port", port(flags, "--" + app + "-port")}});
  }
  json report = {
      {"mode", flags.contains("--protect") ? "protect" : "monitor"},
      {"model_status", model},
      {"listeners", listeners},
      {"intercept",
       {{"enabled", flags.contains("--intercept")}, {"port", port(flags, "--intercept-port")}}}};
  if (flags.contains("--model-endpoint")) {
    report["model_endpoint"] = flags.at("--model-endpoint");
  }
  return report;
}

json stats(const Standin& standin) {
  return {{"requests", standin.requests},
          {"entities_protected", 0},
          {"blocked_requests", standin.blocked_requests},
          {"cost_micros", standin.cost_micros}};
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

Response answer_control(const Standin& standin, const Request& request) {
  if (request.method() != http::verb::get) {
    return refuse(405, "only GET");
  }
  if (request.target() == "/healthz") {
    return response(200, "text/plain", "ok");
  }
  const std::map<std::string, json> reports = {{"/v1/status", status(standin.flags)},
                                               {"/v1/stats", stats(standin)},
                                               {"/v1/transcript", {{"entries", standin.entries}}}};
  const auto report = reports.find(std::string(request.target()));
  if (report == reports.end()) {
    return refuse(404, "no such target");
  }
  return request[http::field::authorization] == "Bearer " + standin.token
             ? json_response(200, report->second)
             : refuse(401, "wrong token");
}

Response answer_client(Standin& standin, const std::string& app, const Request& request,
                       int duration_ms) {
  if (request.method() != http::verb::post) {
    return refuse(405, "only POST");
  }
  const json body = json::parse(request.body(), nullptr, false);
  const std::string model = body.is_object() ? model_of(body) : "";
  standin.entries.push_back({{"app", app},
                             {"model", model},
                             {"outcome", body.is_object() ? "answered" : "refused"},
                             {"duration_ms", duration_ms}});
  if (!body.is_object()) {
    ++standin.blocked_requests;
    return refuse(400, "the body is not a JSON object");
  }
  ++standin.requests;
  standin.cost_micros += micros_per_token * static_cast<long long>((request.body().size() + 3) / 4);
  return json_response(200, completion(app, model));
}
