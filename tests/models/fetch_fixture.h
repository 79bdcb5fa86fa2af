// A home in which a fetch reaches only two servers on loopback, the mirror and the hub, and in
// which curl prints nothing, so standard error is velun's.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "config/outside_locations.h"
#include "tests/support/loopback_server.h"
#include "tests/support/sandbox.h"
#include "tests/support/scripted_program.h"

namespace velun::test {

using Words = std::vector<std::string>;

/// The files of a server: the path of a request and the body of its answer.
using Files = std::map<std::string, std::string>;

/// Answers with the files, and with 404 to any other path.
inline LoopbackServer::Handler serving(Files files) {
  return [files = std::move(files)](const std::string& request) {
    const auto file = files.find(path_of(request));
    return file == files.end() ? answer(404, "") : answer(200, file->second);
  };
}

/// The part of a URL behind "://" that names host and port.
inline std::string authority_of(const std::string& url) {
  const std::size_t begin = url.find("://") + 3;
  return url.substr(begin, url.find('/', begin) - begin);
}

/// The path on the hub's server of a file of the catalog's model.
inline std::string on_hub(const std::string& remote_path) {
  const std::string base = hub_base_url;
  return base.substr(base.find('/', base.find("://") + 3)) +
         "quorvane/velun-pii-m-v1.3/resolve/main/" + remote_path;
}

inline const std::string tokenizer_path = "/velun-pii-m-v1.3/tokenizer/tokenizer.json";
inline const std::string calibration_path = "/velun-pii-m-v1.3/calibration.json";
inline const std::string graph_path = "/velun-pii-m-v1.3/quant/model-fp32.onnx";

inline const std::string tokenizer_body = R"({"version": "1.0", "model": {"vocab": {"a": 0}}})";
inline const std::string calibration_body = R"({"bias": 0.5})";
inline const std::string graph_body = std::string("graph \0 bytes \xff\n", 16);

inline const Files mirror_files = {{tokenizer_path, tokenizer_body},
                                   {calibration_path, calibration_body},
                                   {graph_path, graph_body}};

/// The paths of a fetch that the mirror delivers.
inline const Words mirror_paths = {tokenizer_path, calibration_path, graph_path};

inline const Files hub_files = {{on_hub("tokenizer/tokenizer.json"), tokenizer_body},
                                {on_hub("calibration.json"), calibration_body},
                                {on_hub("quant/model-fp32.onnx"), graph_body}};

/// The paths of a fetch that the hub delivers.
inline const Words hub_paths = {on_hub("tokenizer/tokenizer.json"), on_hub("calibration.json"),
                                on_hub("quant/model-fp32.onnx")};

/// Standard output of a fetch into an empty home.
inline const std::string fresh_fetch =
    "fetching velun-pii-m-v1.3 (full)\n"
    "  tokenizer.json (~34 MB)\n"
    "  calibration.json (~0 MB)\n"
    "  model.fp32.onnx (~1.200000 GB)\n"
    "done. activate it with: velun model use velun-pii-m-v1.3\n";

/// Standard output of a fetch that finds these files of the bundle and downloads the others.
inline std::string fetch_that_finds(const Words& names) {
  std::string out = fresh_fetch;
  for (const std::string& name : names) {
    const std::size_t size = out.find("  " + name) + 2 + name.size();
    out.replace(size, out.find('\n', size) - size, " — already here");
  }
  return out;
}

/// Standard output of a fetch that finds all three files.
inline const std::string second_fetch =
    fetch_that_finds({"tokenizer.json", "calibration.json", "model.fp32.onnx"});

/// Standard output of a fetch whose first file fails.
inline const std::string failed_fetch =
    "fetching velun-pii-m-v1.3 (full)\n"
    "  tokenizer.json (~34 MB)\n";

/// The whole outcome of such a fetch with a token for the hub.
inline const std::string refused_with_token =
    ended(1, failed_fetch, "download failed: tokenizer/tokenizer.json\n");

class Fetching : public ::testing::Test {
 protected:
  Fetching() {
    sandbox.configure();
    sandbox.environment["VELUN_MODEL_MIRROR"] = mirror;
    configure_curl("silent\n");
  }

  std::filesystem::path bundle() const { return sandbox.models_dir() / "velun-pii-m-v1.3"; }
  std::filesystem::path header_file() const { return sandbox.state_dir() / ".hf-token.header"; }

  /// Sends curl to the test's hub; the maker's own mirror is never reachable. The
  /// requests do not contain curl's version.
  void configure_curl(const std::string& more) {
    write_file(sandbox.home() / ".curlrc",
               "user-agent = \"curl\"\ncacert = \"" VELUN_HUB_CERTIFICATE "\"\n" +
                   connect_to_hub() + "connect-to = \"" + authority_of(mirror_base_url) +
                   ":443:127.0.0.1:" + std::to_string(closed.number()) + "\"\n" + more);
  }

  std::string connect_to_hub() const {
    return "connect-to = \"" + std::string(hub_host) +
           ":443:127.0.0.1:" + std::to_string(hub.port()) + "\"\n";
  }

  /// Makes curl a program that does these steps.
  ScriptedProgram scripted(const std::string& steps) {
    sandbox.environment["PATH"] = sandbox.root() / "bin";
    return ScriptedProgram(sandbox.root() / "bin/curl", steps);
  }

  void use_token(const std::string& token) { sandbox.environment["VELUN_HF_TOKEN"] = token; }

  /// Puts a file of the bundle in place before the fetch.
  void put(const std::string& name, const std::string& content) const {
    write_file(bundle() / name, content);
  }

  /// The explanation on standard error if the hub refuses a file and there is no token.
  std::string access_message(const std::string& remote_path) const {
    return "\nVelun 1.3 on " + std::string(hub_host) +
           " is licence-gated. Either\n"
           "  1. wait for the Quorvane mirror (" +
           mirror + "/velun-pii-m-v1.3/" + remote_path +
           "), or\n"
           "  2. sign in at " +
           std::string(hub_base_url) +
           "quorvane/velun-pii-m-v1.3, accept the licence, create a READ token and run\n"
           "     VELUN_HF_TOKEN=hf_... velun model fetch\n";
  }

  /// The bundle holds these three files of the mirror, velun's own two and nothing else.
  void expect_bundle_of(const Files& files) const {
    EXPECT_EQ(read_file(bundle() / "tokenizer.json"), files.at(tokenizer_path));
    EXPECT_EQ(read_file(bundle() / "calibration.json"), files.at(calibration_path));
    EXPECT_EQ(read_file(bundle() / "model.fp32.onnx"), files.at(graph_path));
    EXPECT_EQ(names_in(bundle()), (Words{"calibration.json", "labels.json", "manifest.json",
                                         "model.fp32.onnx", "tokenizer.json"}));
  }

  /// Neither a file, nor a part, nor a header file.
  void expect_nothing_left() const {
    EXPECT_EQ(names_in(bundle()), Words{});
    EXPECT_EQ(names_in(sandbox.state_dir()), Words{"models"});
  }

  /// The whole outcome of a fetch whose first file fails, without a token for the hub.
  std::string refused() const {
    return ended(
        1, failed_fetch,
        access_message("tokenizer/tokenizer.json") + "download failed: tokenizer/tokenizer.json\n");
  }

  /// Runs a fetch to its end.
  std::string fetch(const RunOptions& options = {}) {
    return seen(sandbox.velun({"model", "fetch"}, options));
  }

  Sandbox sandbox;
  ReservedPort closed;
  /// The answers of the two servers; a test changes them before a fetch.
  LoopbackServer::Handler at_mirror = serving({});
  LoopbackServer::Handler at_hub = serving({});
  LoopbackServer mirror_server{0,
                               [this](const std::string& request) { return at_mirror(request); }};
  LoopbackServer hub{0, [this](const std::string& request) { return at_hub(request); },
                     VELUN_HUB_CERTIFICATE};
  const std::string mirror = "http://127.0.0.1:" + std::to_string(mirror_server.port());
};

}  // namespace velun::test
