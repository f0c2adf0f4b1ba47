// Runs a fuzz target over the files of its corpus, built with any compiler: an ordinary test.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/FuzzInput.h"

namespace {

std::vector<std::filesystem::path> FilesIn(const char* path) {
  std::vector<std::filesystem::path> files;
  if (!std::filesystem::is_directory(path)) return {path};
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool Replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  // Named before it runs: a failed check ends the program.
  std::printf("%s\n", path.filename().c_str());
  std::fflush(stdout);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& path : FilesIn(argv[i])) {
      if (!Replay(path)) {
        std::fprintf(stderr, "%s cannot be read\n", path.c_str());
        return 1;
      }
      ++count;
    }
  }
  // The empty input is in no corpus, and a corpus without files is a mistake in the call.
  LLVMFuzzerTestOneInput(nullptr, 0);
  std::printf("%zu inputs replayed\n", count);
  return count == 0 ? 1 : 0;
}
