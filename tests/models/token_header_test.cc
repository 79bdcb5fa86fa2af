// The file of the hub token, alone and with the real curl, which sends the token to the hub only.

#include "models/token_header.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "tests/models/fetch_fixture.h"
#include "tests/support/failing_call.h"

namespace fs = std::filesystem;

namespace velun::test {
namespace {

class HubToken : public Fetching {
 protected:
  HubToken() {
    at_hub = watching(hub_files);
    use_token(token);
  }

  // The requests, byte for byte, with which curl asks for these paths one after another.
  static Words requests_for(const Words& paths, const std::string& host,
                            const std::string& more = "") {
    Words requests;
    for (const std::string& path : paths) {
      requests.push_back("GET " + path + " HTTP/1.1\r\nHost: " + host +
                         "\r\nUser-Agent: curl\r\nAccept: */*\r\n" + more + "\r\n");
    }
    return requests;
  }

  Words requests_with_token() const {
    return requests_for(hub_paths, hub_host, "Authorization: Bearer " + token + "\r\n");
  }

  static std::string host_of(const LoopbackServer& server) {
    return "127.0.0.1:" + std::to_string(server.port());
  }

  // The header file as it is while curl waits for an answer.
  std::string header_now() const {
    if (fs::symlink_status(header_file()).type() != fs::file_type::regular) {
      return "no file";
    }
    return (mode_of(header_file()) == 0600 ? "private: " : "open: ") + read_file(header_file());
  }

  // Serves files, and records the state of the header file at each request.
  LoopbackServer::Handler watching(const Files& files) {
    return [this, serve = serving(files)](const std::string& request) {
      sights.push_back(header_now());
      return serve(request);
    };
  }

  std::string private_header() const { return "private: Authorization: Bearer " + token + "\n"; }

  std::string token = "hf_secret";
  Words sights;
};

TEST_F(HubToken, goes_to_the_hub_in_an_owner_only_file_that_curl_reads) {
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(sights, Words(3, private_header()));
  EXPECT_EQ(names_in(sandbox.state_dir()), Words{"models"});
  EXPECT_EQ(hub.requests(), requests_with_token());
}

TEST_F(HubToken, is_neither_written_for_the_mirror_nor_sent_there) {
  at_mirror = watching({{tokenizer_path, tokenizer_body}});
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(sights, (Words{"no file", "no file", private_header(), "no file", private_header()}));
  EXPECT_EQ(mirror_server.requests(), requests_for(mirror_paths, host_of(mirror_server)));
}

TEST_F(HubToken, does_not_follow_a_redirect_to_another_host) {
  const LoopbackServer store(0, serving({{"/blob", "[]"}}));
  at_hub = [&](const std::string&) {
    return answer(302, "", "Location: http://" + host_of(store) + "/blob\r\n");
  };
  EXPECT_EQ(fetch(), success(fresh_fetch));
  EXPECT_EQ(hub.requests(), requests_with_token());
  EXPECT_EQ(store.requests(), requests_for(Words(3, "/blob"), host_of(store)));
}

using HubTokenWithFaults = WithFaults<HubToken>;

TEST_F(HubTokenWithFaults, is_private_from_its_creation_even_if_permissions_cannot_be_changed) {
  RunOptions options;
  options.in_child = [] { umask(0); };
  EXPECT_EQ(seen(with_fault(sandbox, {"model", "fetch"}, "fchmod,fchmodat:error=EPERM:when=1+", {},
                            options)),
            success(fresh_fetch));
  EXPECT_EQ(sights, Words(3, private_header()));
}

TEST_F(HubToken, of_a_killed_run_is_removed_when_the_next_fetch_begins) {
  sandbox.environment.erase("VELUN_HF_TOKEN");
  at_mirror = watching(mirror_files);
  for (const std::string& out : {fresh_fetch, second_fetch}) {
    write_file(header_file(), "Authorization: Bearer hf_older\n");
    EXPECT_EQ(fetch(), success(out));
    EXPECT_FALSE(fs::exists(header_file()));
  }
  EXPECT_EQ(sights, Words(3, "no file"));
}

// Without a header file some releases of curl send no request; others send one without the field,
// which this hub refuses. Their messages differ.
TEST_F(HubToken, is_not_sent_if_a_directory_is_at_the_files_path) {
  at_hub = [this](const std::string& request) {
    return request.find(token) == std::string::npos ? answer(401, "") : serving(hub_files)(request);
  };
  write_file(header_file() / "inside", "kept");
  const Outcome run = sandbox.velun({"model", "fetch"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, failed_fetch);
  EXPECT_TRUE(run.err.ends_with("download failed: tokenizer/tokenizer.json\n")) << run.err;
  for (const std::string& request : hub.requests()) {
    EXPECT_EQ(request.find(token), std::string::npos) << request;
  }
  EXPECT_EQ(names_in(header_file()), Words{"inside"});
}

TEST(TokenHeaderFile, is_removed_if_the_token_does_not_fit_whole) {
  const Sandbox sandbox;
  signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full{std::string("Authorization: Bearer hf_").size(), before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(names_in(sandbox.root()), std::vector<std::string>{"home"});
}

// The second name stands for a file that cannot be removed.
TEST(TokenHeaderFile, is_truncated_at_the_end_even_if_it_has_a_second_name) {
  const Sandbox sandbox;
  const fs::path second_name = sandbox.root() / "second name";
  {
    const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
    fs::create_hard_link(header.path(), second_name);
    EXPECT_EQ(read_file(second_name), "Authorization: Bearer hf_0123456789\n");
  }
  EXPECT_EQ(read_file(second_name), "");
}

TEST(TokenHeaderFile, is_closed_in_the_end) {
  const Sandbox sandbox;
  const auto descriptors = names_in("/proc/self/fd");
  { const TokenHeader header(sandbox.root() / "header", "hf_0123456789"); }
  EXPECT_EQ(names_in("/proc/self/fd"), descriptors);
}

TEST(TokenHeaderFile, holds_the_token_byte_for_byte) {
  const Sandbox sandbox;
  for (const std::string token :
       {" \tblanks at its ends \t ", "two\nlines", "\n", "\r\xff'\"\\%s$x"}) {
    const TokenHeader header(sandbox.root() / "header", token);
    EXPECT_EQ(read_file(header.path()), "Authorization: Bearer " + token + "\n");
  }
}

TEST(TokenHeaderFile, is_for_the_owner_alone_under_any_mask) {
  const Sandbox sandbox;
  for (const mode_t mask : {0U, 0777U}) {
    const mode_t before = umask(mask);
    const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
    umask(before);
    EXPECT_EQ(mode_of(header.path()), 0600);
  }
}

TEST(TokenHeaderFile, is_not_written_through_a_dangling_link) {
  const Sandbox sandbox;
  fs::create_symlink(sandbox.root() / "created", sandbox.root() / "header");
  const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
  EXPECT_EQ(read_file(header.path()), "Authorization: Bearer hf_0123456789\n");
  EXPECT_FALSE(fs::exists(sandbox.root() / "created"));
}

// The second name stands for a descriptor of another process.
TEST(TokenHeaderFile, never_puts_the_token_into_an_older_file_that_others_have_open) {
  const Sandbox sandbox;
  write_file(sandbox.root() / "older", "older content\n");
  fs::create_hard_link(sandbox.root() / "older", sandbox.root() / "header");
  {
    const TokenHeader header(sandbox.root() / "header", "hf_0123456789");
    EXPECT_EQ(read_file(sandbox.root() / "older"), "older content\n");
    EXPECT_EQ(read_file(header.path()), "Authorization: Bearer hf_0123456789\n");
  }
  EXPECT_EQ(read_file(sandbox.root() / "older"), "older content\n");
}

}  // namespace
}  // namespace velun::test
