#include "tests/support/Support.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

namespace tarn_test {

namespace {

int CountEntries(const char* folder) {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder))
    ++count;
  return count;
}

}  // namespace

int Patience() {
  static const int patience = [] {
    const char* text = std::getenv("TARN_TEST_PATIENCE");
    return text == nullptr ? 1 : std::clamp(std::atoi(text), 1, 100);
  }();
  return patience;
}

milliseconds Bound(milliseconds limit) {
  return limit < 1s ? limit : limit * Patience();
}

bool WaitUntil(const std::function<bool()>& condition, milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + Bound(limit);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return condition();
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

long Stopwatch::ElapsedMs() const {
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start_)
      .count();
}

TempDir::TempDir() {
  std::string pattern = std::filesystem::temp_directory_path() / "tarn-test-XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) std::abort();
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

bool Exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

std::vector<std::string> ListDir(const std::string& path) {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(path, ignored)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string PatternBytes(size_t length, unsigned seed) {
  std::mt19937 generator(seed);
  std::string bytes(length, '\0');
  for (auto& byte : bytes)
    byte = static_cast<char>(generator());
  return bytes;
}

std::string ProgramDir() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

int FreePortFor(int kind) {
  static std::atomic<int> tried{0};
  constexpr int kLowest = 10000;
  constexpr int kCount = 22000;
  for (int attempt = 0; attempt < 100; ++attempt) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    const int port = kLowest + (getpid() * 61 + tried++) % kCount;
    address.sin_port = htons(static_cast<unsigned short>(port));
    const int probe = socket(AF_INET, kind | SOCK_CLOEXEC, 0);
    const int bound = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    close(probe);
    if (bound == 0) return port;
  }
  return 0;
}

std::string Today(const char* pattern) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), pattern, &parts);
  return text.data();
}

std::string RunCommand(const std::string& command, int* status) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) std::abort();
  std::string output;
  std::array<char, 4096> block{};
  size_t count = 0;
  while ((count = fread(block.data(), 1, block.size(), pipe)) > 0)
    output.append(block.data(), count);
  const int result = pclose(pipe);
  if (status != nullptr) *status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
  return output;
}

int RunInChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = -1;
  while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
  }
  return status;
}

std::vector<std::string> ThreadNames() {
  std::vector<std::string> names;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task", ignored)) {
    std::string name = ReadFile(entry.path() / "comm");
    if (!name.empty()) name.pop_back();
    names.push_back(name);
  }
  return names;
}

int OpenDescriptors() {
  return CountEntries("/proc/self/fd");
}

int LiveThreads() {
  return CountEntries("/proc/self/task");
}

}  // namespace tarn_test
