// The hub token as the real curl carries it: to the hub and to nobody else.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <sstream>

#include "tests/models/fetch_fixture.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

// The argument vectors of all processes, as anyone on the machine can read them.
std::string all_command_lines() {
  std::string lines;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    std::ifstream file(entry.path() / "cmdline");
    std::ostringstream line;  // one that ends meanwhile must not spoil the others
    line << file.rdbuf() << '\n';
    lines += line.str();
  }
  return lines;
}

// From here on the process dies when it is about to change the permissions of an open file.
void die_at_fchmod() {
  sock_filter steps[] = {
      {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
      {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_fchmod},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_KILL_PROCESS},
      {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
  };
  const sock_fprog program{std::size(steps), steps};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    _exit(126);
  }
}

class HubToken : public Fetching {
 protected:
  HubToken() {
    use_hub(hub.port());
    use_token(token);
  }

  // What can be seen of the token from outside while curl waits for its answer.
  struct Sight {
    std::string content;
    int mode = -1;
    bool is_file = false;
    bool curl_seen = false;
    bool token_seen = false;
  };

  Reply look_and_serve(const std::string& request) {
    Sight sight;
    sight.is_file = fs::symlink_status(header_file()).type() == fs::file_type::regular;
    if (sight.is_file) {
      sight.content = read_file(header_file());
      sight.mode = mode_of(header_file());
    }
    const std::string lines = all_command_lines();
    sight.curl_seen = lines.find(header_word()) != std::string::npos;
    sight.token_seen = lines.find(token) != std::string::npos;
    sights.push_back(sight);
    return serving(hub_files)(request);
  }

  void expect_header_was_private() {
    ASSERT_EQ(sights.size(), 3U);
    for (const Sight& sight : sights) {
      EXPECT_TRUE(sight.is_file);
      EXPECT_EQ(sight.content, "Authorization: Bearer " + token + "\n");
      EXPECT_EQ(sight.mode, 0600);
    }
    EXPECT_FALSE(fs::exists(fs::symlink_status(header_file())));
  }

  void expect_token_reached_the_hub() const {
    ASSERT_EQ(hub.requests().size(), 3U);
    for (const std::string& request : hub.requests()) {
      EXPECT_NE(request.find("\r\nAuthorization: Bearer " + token + "\r\n"), std::string::npos)
          << request;
    }
  }

  const std::string token = sandbox.root().filename().string() + "-secret";
  std::vector<Sight> sights;
  LoopbackServer hub{0, [this](const std::string& request) { return look_and_serve(request); },
                     VELUN_HUB_CERTIFICATE};
};

TEST_F(HubToken, goes_to_the_hub_as_a_bearer_token) {
  EXPECT_EQ(fetch(), success(fresh_fetch));
  expect_token_reached_the_hub();
}

TEST_F(HubToken, stands_in_one_line_of_an_owner_only_file_while_curl_runs) {
  EXPECT_EQ(fetch(), success(fresh_fetch));
  expect_header_was_private();
}

TEST_F(HubToken, is_never_on_a_command_line) {
  EXPECT_EQ(fetch(), success(fresh_fetch));
  ASSERT_EQ(sights.size(), 3U);
  for (const Sight& sight : sights) {
    EXPECT_TRUE(sight.curl_seen);
    EXPECT_FALSE(sight.token_seen);
  }
}

TEST_F(HubToken, is_never_sent_to_the_mirror_nor_written_down_for_it) {
  std::atomic<int> headers_seen = 0;
  const LoopbackServer server(0, [&](const std::string&) {
    headers_seen += fs::exists(fs::symlink_status(header_file()));
    return answer(404, "");
  });
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  ASSERT_EQ(server.requests().size(), 3U);
  for (const std::string& request : server.requests()) {
    EXPECT_EQ(request.find("Authorization"), std::string::npos) << request;
    EXPECT_EQ(request.find(token), std::string::npos) << request;
  }
  EXPECT_EQ(headers_seen, 0);
}

TEST_F(HubToken, is_not_written_down_at_all_while_the_mirror_delivers) {
  fs::create_directories(header_file());
  const LoopbackServer server(0, serving(mirror_files));
  use_mirror(server.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_TRUE(fs::is_directory(header_file()));
}

TEST_F(HubToken, does_not_follow_a_redirect_to_another_host) {
  const LoopbackServer store(0, serving({{"/blob", "[]"}}));
  const LoopbackServer sending_on(
      0,
      [&](const std::string&) {
        return answer(302, "",
                      "Location: http://127.0.0.1:" + std::to_string(store.port()) + "/blob\r\n");
      },
      VELUN_HUB_CERTIFICATE);
  use_hub(sending_on.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  ASSERT_EQ(store.requests().size(), 3U);
  EXPECT_EQ(store.requests()[0].find("Authorization"), std::string::npos);
}

TEST_F(HubToken, is_in_no_output_even_when_curl_talks) {
  use_hub(closed.number(), "");
  const Outcome run = sandbox.velun({"model", "fetch"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.err.find("curl: (7)"), std::string::npos) << run.err;
  EXPECT_EQ(run.out.find(token), std::string::npos);
  EXPECT_EQ(run.err.find(token), std::string::npos);
}

TEST_F(HubToken, leaves_no_header_file_when_the_hub_refuses) {
  const LoopbackServer refusing(
      0, [](const std::string&) { return answer(403, ""); }, VELUN_HUB_CERTIFICATE);
  use_hub(refusing.port());
  EXPECT_EQ(fetch(), refused_with_token);
  EXPECT_EQ(refusing.requests().size(), 1U);
  EXPECT_EQ(names_in(sandbox.state_dir()), std::vector<std::string>{"models"});
}

TEST_F(HubToken, is_private_in_a_state_directory_of_the_users_choice) {
  sandbox.configure("state_dir: " + (sandbox.root() / "own state").string() + "\n");
  const LoopbackServer looking(
      0,
      [&](const std::string& request) {
        EXPECT_EQ(mode_of(sandbox.root() / "own state/.hf-token.header"), 0600);
        return serving(hub_files)(request);
      },
      VELUN_HUB_CERTIFICATE);
  use_hub(looking.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(names_in(sandbox.root() / "own state"), std::vector<std::string>{"models"});
}

// A process that may write no byte dies at its first one, with the file as it was by then.
TEST_F(HubToken, stands_in_a_file_that_is_private_before_the_first_byte) {
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0777}}) {
    RunOptions options;
    options.in_child = [mask] {
      const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
      dup2(nowhere, STDOUT_FILENO);
      dup2(nowhere, STDERR_FILENO);
      const rlimit no_bytes{0, 0};
      setrlimit(RLIMIT_FSIZE, &no_bytes);
      umask(mask);
    };
    fs::create_directories(bundle());
    EXPECT_EQ(sandbox.velun({"model", "fetch"}, options).signal, SIGXFSZ);
    EXPECT_EQ(mode_of(header_file()), 0600) << mask;
    EXPECT_EQ(fs::file_size(header_file()), 0U);
  }
}

// A process that had the file open before its permissions changed could read what comes later.
TEST_F(HubToken, stands_in_a_file_that_was_private_from_its_creation) {
  RunOptions options;
  options.in_child = [] {
    umask(0);
    die_at_fchmod();
  };
  EXPECT_EQ(sandbox.velun({"model", "fetch"}, options).signal, SIGSYS);
  EXPECT_EQ(mode_of(header_file()), 0600);
}

TEST_F(HubToken, is_private_under_a_mask_that_hides_nothing) {
  RunOptions options;
  options.in_child = [] { umask(0); };
  EXPECT_EQ(fetch(options), success(fresh_fetch));
  expect_header_was_private();
}

TEST_F(HubToken, is_readable_for_curl_under_a_mask_that_hides_everything) {
  put("tokenizer.json", tokenizer_body);
  put("calibration.json", calibration_body);
  RunOptions options;
  options.in_child = [] { umask(0777); };
  EXPECT_EQ(fetch(options), success("fetching velun-pii-m-v1.3 (full)\n"
                                    "  tokenizer.json — already here\n"
                                    "  calibration.json — already here\n"
                                    "  model.fp32.onnx (~1.200000 GB)\n"
                                    "done. activate it with: velun model use velun-pii-m-v1.3\n"));
  ASSERT_EQ(sights.size(), 1U);
  EXPECT_EQ(sights[0].mode, 0600);
  EXPECT_EQ(sights[0].content, "Authorization: Bearer " + token + "\n");
}

TEST_F(HubToken, never_appears_in_an_older_file_that_somebody_holds_open) {
  write_file(header_file(), "older content\n");
  fs::permissions(header_file(), fs::perms(0644));
  const int held = open(header_file().c_str(), O_RDONLY | O_CLOEXEC);
  std::atomic<bool> leaked = false;
  const LoopbackServer looking(
      0,
      [&](const std::string& request) {
        char bytes[256] = {};
        leaked = leaked || (pread(held, bytes, sizeof bytes - 1, 0) > 0 &&
                            std::string(bytes).find(token) != std::string::npos);
        return look_and_serve(request);
      },
      VELUN_HUB_CERTIFICATE);
  use_hub(looking.port());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  close(held);
  EXPECT_FALSE(leaked);
  expect_header_was_private();
}

TEST_F(HubToken, is_not_written_through_a_symbolic_link) {
  write_file(sandbox.root() / "public", "untouched");
  fs::create_directories(sandbox.state_dir());
  fs::create_symlink(sandbox.root() / "public", header_file());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(read_file(sandbox.root() / "public"), "untouched");
  expect_header_was_private();
}

TEST_F(HubToken, is_not_written_through_a_dangling_link) {
  fs::create_directories(sandbox.state_dir());
  fs::create_symlink(sandbox.root() / "created", header_file());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_FALSE(fs::exists(sandbox.root() / "created"));
  expect_header_was_private();
}

TEST_F(HubToken, is_not_written_through_a_hard_link) {
  write_file(sandbox.root() / "public", "untouched");
  fs::create_directories(sandbox.state_dir());
  fs::create_hard_link(sandbox.root() / "public", header_file());
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(read_file(sandbox.root() / "public"), "untouched");
  expect_header_was_private();
}

TEST_F(HubToken, goes_nowhere_when_a_directory_takes_the_files_place) {
  write_file(header_file() / "inside", "kept");
  const Outcome run = sandbox.velun({"model", "fetch"});
  EXPECT_EQ(run.out, failed_fetch);
  EXPECT_TRUE(run.err.ends_with("\ndownload failed: tokenizer/tokenizer.json\n")) << run.err;
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(hub.requests().size(), 0U);
  EXPECT_EQ(names_in(header_file()), std::vector<std::string>{"inside"});
}

}  // namespace
}  // namespace velun::test
