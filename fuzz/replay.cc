// Runs a fuzz target once for every file of its corpus: replay DIRECTORY. Fails without any file.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>

#include "fuzz/target.h"

namespace {

std::string content_of(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// In memory that ends where the input ends, so that a sanitizer sees a read beyond it.
void run(const std::string& input) {
  const auto bytes = std::make_unique<std::uint8_t[]>(input.size());
  std::copy(input.begin(), input.end(), bytes.get());
  LLVMFuzzerTestOneInput(bytes.get(), input.size());
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
    return EXIT_FAILURE;
  }
  std::set<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    files.insert(entry.path());
  }
  // The nothing that every fuzzer begins with.
  run("");
  for (const auto& file : files) {
    // Before it is run: the last line names the file that ended the process.
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);
    run(content_of(file));
  }
  return files.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}
