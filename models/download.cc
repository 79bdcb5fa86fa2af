#include "models/download.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>
#include <vector>

#include "config/locations.h"
#include "config/outside_locations.h"
#include "models/token_header.h"
#include "system/child.h"
#include "system/exit_status.h"
#include "system/files.h"
#include "system/output.h"

namespace fs = std::filesystem;

namespace velun {
namespace {

// Runs in the child and never returns.
[[noreturn]] void become_curl(pid_t parent, std::vector<std::string>& words) {
  // A curl that outlives a killed velun would write into the next run's file. Not SIGTERM: curl may
  // inherit that as ignored.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // If velun has already ended, no signal comes. A parent in another process namespace reads as 0.
  if (getppid() == parent || getppid() == 0) {
    execute(words);
  }
  _exit(status_exec_failed);
}

void explain_gate(const ModelCard& card, const BundleFile& file) {
  print_error("\n" + card.display_name + " on " + hub_host +
              " is licence-gated. Either\n  1. wait for the Quorvane mirror (" +
              mirror_url(card, file) + "), or\n  2. sign in at " + hub_base_url + card.repository +
              ", accept the licence, create a READ token and run\n"
              "     VELUN_HF_TOKEN=hf_... velun model fetch\n");
}

int download_from_hub(const Config& config, const ModelCard& card, const BundleFile& file,
                      const std::string& part) {
  const std::string url = hub_url(card, file);
  const char* token = std::getenv("VELUN_HF_TOKEN");
  if (token != nullptr && *token != '\0') {
    const TokenHeader header(token_header_of(config), token);
    return run_curl(url, part, header.path().string());
  }
  // With a token, no explanation is printed: the user has already followed it.
  const int status = run_curl(url, part, "");
  if (status != 0 && card.gated) {
    explain_gate(card, file);
  }
  return status;
}

}  // namespace

std::string size_text(std::int64_t bytes) {
  if (bytes < 1'000'000'000) {
    return std::to_string(bytes / 1'000'000) + " MB";
  }
  // Truncate first; six decimals would show the remainder.
  const std::int64_t tenths = bytes / 100'000'000;
  return std::to_string(static_cast<double>(tenths) / 10.0) + " GB";
}

int run_curl(const std::string& url, const std::string& output, const std::string& header_file) {
  std::vector<std::string> words = {"curl", "-L", "--fail", "--progress-bar", "--retry", "3"};
  if (!header_file.empty()) {
    words.insert(words.end(), {"-H", "@" + header_file});
  }
  words.insert(words.end(), {"-o", output, url});

  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) {
    return status_failure;
  }
  if (pid == 0) {
    become_curl(parent, words);
  }
  // A failed wait leaves 0 and counts as success; the rename then fails if there is no file.
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFSIGNALED(status) ? status_failure : WEXITSTATUS(status);
}

bool download_file(const Config& config, const ModelCard& card, const BundleFile& file,
                   const fs::path& bundle) {
  const fs::path final_path = bundle / file.local_name;
  std::error_code error;
  // A directory, which has no size, counts as present. It does so in a complete bundle, too.
  if (path_exists(final_path) && fs::file_size(final_path, error) != 0) {
    print("  " + file.local_name + " — already here\n");
    return true;
  }
  print("  " + file.local_name + " (~" + size_text(file.expected_size) + ")\n");
  // curl overwrites a part that an interrupted run has left.
  const std::string part = final_path.string() + ".part";
  if (run_curl(mirror_url(card, file), part, "") != 0) {
    remove_file(part);
    if (download_from_hub(config, card, file, part) != 0) {
      print_error("download failed: " + file.remote_path + "\n");
      remove_file(part);
      return false;
    }
  }
  fs::rename(part, final_path);
  return true;
}

}  // namespace velun
