// server PATH=FILE…
//
// Answers each request for PATH with the content of FILE, on a free port of 127.0.0.1 that it
// prints. It ends with its parent.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "tests/support/loopback_server.h"

int main(int argc, char* argv[]) {
  using velun::test::Reply;
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  std::map<std::string, Reply> replies;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const std::size_t equals = word.find('=');
    std::ostringstream body;
    body << std::ifstream(word.substr(equals + 1), std::ios::binary).rdbuf();
    replies[word.substr(0, equals)] = velun::test::answer(200, body.str());
  }
  const velun::test::LoopbackServer server(0, [&](const std::string& request) {
    const auto reply = replies.find(velun::test::path_of(request));
    return reply == replies.end() ? velun::test::answer(404, "") : reply->second;
  });
  std::printf("%d\n", server.port());
  std::fflush(stdout);
  pause();
}
