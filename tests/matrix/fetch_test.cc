// Every meeting of a curl, a mirror, a hub, a token and what already stands at each path that
// `model fetch` can find. What it has to do in each is told by a small model of a fetch, which
// knows files only by a word for what they are and nothing of how velun does it.

#include <gtest/gtest.h>
#include <signal.h>

#include "tests/matrix/scene.h"
#include "tests/matrix/side_by_side.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

using Files = std::map<std::string, std::string>;

// How curl comes out of it; the actor knows the words.
constexpr const char* curl_ends[] = {"done", "0", "22", "part", "killed"};
constexpr const char* no_curl[] = {"missing", "not executable"};

constexpr const char* tokens[] = {nullptr, "", "hf_secret", " \todd\nlines\r\xff'\"\\%s$x "};

struct File {
  const char* remote;
  const char* local;
  const char* size;
};

constexpr File files[] = {{"tokenizer/tokenizer.json", "tokenizer.json", "34 MB"},
                          {"calibration.json", "calibration.json", "0 MB"},
                          {"quant/model-fp32.onnx", "model.fp32.onnx", "1.200000 GB"}};

// Contents, as `at` tells them.
constexpr char nothing[] = "nothing";
constexpr char empty[] = "file of ";
constexpr char older[] = "file of [\"older\"]";
constexpr char whole[] = "file of [\"whole\"]";
constexpr char half[] = "file of [\"half";
constexpr char directory[] = "directory of inside";
constexpr char dangling[] = "link to nothing";

constexpr char header_name[] = "../../.hf-token.header";
constexpr char models_name[] = "../../models";

struct Combination {
  std::string curl;  // empty: there
  std::string mirror;
  std::string hub;
  const char* token;
  Files standing;  // path below the bundle, and what stands there

  std::string name() const {
    std::string text = curl.empty() ? "mirror: " + mirror + "; hub: " + hub : "curl: " + curl;
    text += "; token: " + (token == nullptr ? "none" : testing::PrintToString(std::string(token)));
    for (const auto& [path, kind] : standing) {
      text += "; at " + path + ": " + kind;
    }
    return text;
  }
};

// What a fetch has to come to.
struct Result {
  Outcome run;
  std::string calls;
  Files files;
};

// As the actor writes it down.
std::string in_one_line(std::string text) {
  for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos;) {
    text.replace(at, 1, "\\n");
  }
  return text;
}

class Model {
 public:
  Model(const Combination& cell, std::string bundle, std::string mirror)
      : cell_(cell), bundle_(std::move(bundle)), mirror_(std::move(mirror)) {
    result_.files = cell.standing;
    result_.run.status = 0;
  }

  Result fetch() {
    remove(header_name);
    if (stands(models_name)) {
      abort("cannot create directories");
      return result_;
    }
    result_.run.out = "fetching velun-pii-m-v1.3 (full)\n";
    for (const File& file : files) {
      if (!fetch_file(file)) {
        return result_;
      }
    }
    finish();
    return result_;
  }

 private:
  std::string what(const std::string& path) const {
    const auto file = result_.files.find(path);
    return file == result_.files.end() ? nothing : file->second;
  }
  bool stands(const std::string& path) const { return what(path) != nothing; }
  void put(const std::string& path, const std::string& kind) { result_.files[path] = kind; }
  // A directory with something in it stays.
  void remove(const std::string& path) {
    if (what(path) != directory) {
      result_.files.erase(path);
    }
  }
  bool has_token() const { return cell_.token != nullptr && *cell_.token != '\0'; }

  bool fail(const std::string& err) {
    result_.run.err += err;
    result_.run.status = 1;
    return false;
  }

  bool abort(const std::string& what_failed) {
    result_.run.err += "terminated: " + what_failed;
    result_.run.status = -1;
    result_.run.signal = SIGABRT;
    return false;
  }

  bool run_curl(const std::string& how, const std::string& url, const std::string& part,
                const std::string& header) {
    if (!cell_.curl.empty()) {
      return false;
    }
    result_.calls += "-L --fail --progress-bar --retry 3 " + header + "-o " + bundle_ + "/" + part +
                     " " + url + "\n";
    const bool writes = how == "done" || how == "part" || how == "killed";
    if (writes && what(part) == directory) {
      return false;
    }
    if (writes) {
      put(part, how == "done" ? whole : half);
    }
    return how == "done" || how == "0";
  }

  // A header that cannot be written is not there for curl either.
  std::string header() const {
    if (!has_token()) {
      return "";
    }
    const std::string line = "Authorization: Bearer " + in_one_line(cell_.token) + "\\n";
    return "-H @" + fs::path(bundle_ + "/" + header_name).lexically_normal().string() + "{" +
           (stands(header_name) ? "" : line) + "} ";
  }

  bool fetch_file(const File& file) {
    const std::string final_name = file.local;
    const std::string before = what(final_name);
    if (before == older || before == directory) {
      result_.run.out += "  " + final_name + " — already here\n";
      return true;
    }
    result_.run.out += "  " + final_name + " (~" + file.size + ")\n";
    const std::string part = final_name + ".part";
    const std::string url = mirror_ + "/velun-pii-m-v1.3/" + file.remote;
    if (!run_curl(cell_.mirror, url, part, "")) {
      remove(part);
      if (!fetch_from_hub(file, part, url)) {
        remove(part);
        return fail("download failed: " + std::string(file.remote) + "\n");
      }
    }
    return rename(part, final_name);
  }

  bool fetch_from_hub(const File& file, const std::string& part, const std::string& mirror_url) {
    const std::string page = VELUN_TEST_HUB_BASE "quorvane/velun-pii-m-v1.3";
    if (run_curl(cell_.hub, page + "/resolve/main/" + file.remote, part, header())) {
      return true;
    }
    if (!has_token()) {
      fail("\nVelun 1.3 on " VELUN_TEST_HUB_HOST
           " is licence-gated. Either\n  1. wait for the Quorvane mirror (" +
           mirror_url + "), or\n  2. sign in at " + page +
           ", accept the licence, create a READ token and run\n"
           "     VELUN_HF_TOKEN=hf_... velun model fetch\n");
    }
    return false;
  }

  bool rename(const std::string& from, const std::string& to) {
    if (!stands(from) || (what(from) == directory && stands(to))) {
      return abort("cannot rename");
    }
    put(to, what(from));
    result_.files.erase(from);
    return true;
  }

  void finish() {
    for (const std::string name : {"labels.json", "manifest.json"}) {
      if (what(name) != directory) {
        put(name, "written");
      }
    }
    const std::string tokenizer = what("tokenizer.json");
    if (tokenizer == directory || tokenizer == half) {
      fail("tokenizer.json did not parse — delete " + bundle_ + " and fetch again\n");
    } else {
      result_.run.out += "done. activate it with: velun model use velun-pii-m-v1.3\n";
    }
  }

  const Combination& cell_;
  std::string bundle_;
  std::string mirror_;
  Result result_;
};

std::string text_of(const Result& result) {
  std::string text = seen(result.run) + result.calls;
  for (const auto& [path, kind] : result.files) {
    text += path + ": " + kind + "\n";
  }
  return text;
}

// The combination with real processes.
class Fetching {
 public:
  explicit Fetching(const Combination& cell) : cell_(cell) {
    Environment& environment = scene_.sandbox.environment;
    environment["PATH"] = scene_.sandbox.root() / "programs";
    environment["VELUN_MODEL_MIRROR"] = mirror();
    if (cell.token != nullptr) {
      environment["VELUN_HF_TOKEN"] = cell.token;
    }
    if (cell.curl.empty()) {
      scene_.install_actor("curl", false);
      environment["ACTOR"] = scene_.part("curl", "mirror=" + cell.mirror + " hub=" + cell.hub);
    } else if (cell.curl == "not executable") {
      write_file(scene_.sandbox.root() / "programs/curl", "exit 0\n");
    }
    for (const auto& [path, kind] : cell.standing) {
      stand((bundle() / path).lexically_normal(), kind);
    }
  }

  void play() {
    Result result;
    result.run = in_short(scene_.sandbox.velun({"model", "fetch"}));
    for (const std::string& call : scene_.logged("curl")) {
      result.calls += call + "\n";
    }
    result.files = files_now();
    const std::string got = text_of(result);
    const std::string expected = text_of(Model(cell_, bundle(), mirror()).fetch());
    EXPECT_EQ(got, expected);
  }

 private:
  fs::path bundle() const { return scene_.sandbox.models_dir() / "velun-pii-m-v1.3"; }
  // Nothing is asked there: the curl of the scene goes nowhere.
  static std::string mirror() { return "http://127.0.0.1:1/mirror"; }

  void stand(const fs::path& path, const std::string& kind) const {
    if (kind == directory) {
      fs::create_directories(path / "inside");
    } else if (kind == dangling) {
      fs::create_directories(path.parent_path());
      fs::create_symlink(scene_.sandbox.root() / "elsewhere", path);
    } else {
      write_file(path, kind.substr(std::string_view(empty).size()));
    }
  }

  // All that there is, apart from what velun itself has to say in its two files.
  Files files_now() const {
    Files now;
    const auto add = [&](const fs::path& path, const std::string& name) {
      if (const std::string kind = at(path); kind != nothing) {
        const bool own = name == "labels.json" || name == "manifest.json";
        now[name] = own && kind.starts_with("file of {") ? "written" : kind;
      }
    };
    for (const std::string& name : names_in(bundle())) {
      add(bundle() / name, name);
    }
    for (const std::string& name : names_in(scene_.sandbox.state_dir())) {
      if (name != "models" || fs::is_regular_file(scene_.sandbox.models_dir())) {
        add(scene_.sandbox.state_dir() / name, "../../" + name);
      }
    }
    add(scene_.sandbox.root() / "elsewhere", "elsewhere");
    return now;
  }

  const Combination& cell_;
  Scene scene_;
};

// Whatever can stand there before; at most at two paths at a time.
std::vector<Files> standings() {
  std::vector<Files> all = {{}};
  for (const File& file : files) {
    const std::string name = file.local;
    for (const char* final_kind : {nothing, empty, older, directory, dangling}) {
      for (const char* part_kind : {nothing, half, directory}) {
        Files standing = {{name, final_kind}, {name + ".part", part_kind}};
        std::erase_if(standing, [](const auto& path) { return path.second == nothing; });
        if (!standing.empty()) {
          all.push_back(standing);
        }
      }
    }
  }
  for (const char* kind : {older, directory, dangling}) {
    all.push_back({{header_name, kind}});
  }
  for (const char* name : {"labels.json", "manifest.json"}) {
    all.push_back({{name, older}});
    all.push_back({{name, directory}});
  }
  all.push_back({{models_name, older}});
  all.push_back({{files[0].local, older}, {files[1].local, older}, {files[2].local, older}});
  return all;
}

// A few of each kind.
bool is_for_every_day(const Combination& cell) {
  const bool plain = cell.token != nullptr && cell.token == std::string_view(tokens[2]);
  if (cell.standing.empty()) {
    return plain || cell.token == nullptr;
  }
  return plain && (cell.mirror == "part" || cell.mirror == "done") && cell.hub == "done";
}

std::vector<Combination> combinations() {
  std::vector<Combination> cells;
  for (const Files& standing : standings()) {
    for (const char* token : tokens) {
      for (const char* mirror : curl_ends) {
        for (const char* hub : curl_ends) {
          cells.push_back({"", mirror, hub, token, standing});
        }
      }
      for (const char* curl : no_curl) {
        cells.push_back({curl, "", "", token, standing});
      }
    }
  }
  if (!wants_whole_matrix()) {
    std::erase_if(cells, [](const Combination& cell) { return !is_for_every_day(cell); });
  }
  return cells;
}

TEST(FetchMatrix, keeps_whole_files_only_and_shows_the_token_to_the_hub_only) {
  const std::vector<Combination> cells = combinations();
  side_by_side(
      "fetch", cells.size(), [&](std::size_t i) { Fetching(cells[i]).play(); },
      [&](std::size_t i) { return cells[i].name(); });
}

}  // namespace
}  // namespace velun::test
