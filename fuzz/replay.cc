// Runs a fuzz target once for each file of its corpus: replay DIRECTORY
// Each input runs in its own process, so all failing inputs are named. Fails if there is no file.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

#include "fuzz/target.h"

namespace {

// The memory ends where the input ends, so a sanitizer sees a read beyond it.
std::vector<char> content_of(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  bytes.shrink_to_fit();
  return bytes;
}

// Whether the target returns for this input within half a minute.
bool passes(const std::vector<char>& input) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(30);
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    std::exit(EXIT_SUCCESS);  // with its destructors and the search for leaks
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
    return EXIT_FAILURE;
  }
  const std::filesystem::directory_iterator entries(argv[1]);
  const std::set<std::filesystem::path> files(begin(entries), end(entries));
  // A fuzzer begins with the empty input.
  bool all_pass = passes({});
  if (!all_pass) {
    std::fprintf(stderr, "failed: the empty input\n");
  }
  for (const auto& file : files) {
    if (!passes(content_of(file))) {
      std::fprintf(stderr, "failed: %s\n", file.c_str());
      all_pass = false;
    }
  }
  return all_pass && !files.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}
