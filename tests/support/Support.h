// Helpers shared by the tests: waiting for conditions, temporary folders, files, processes.
#ifndef TARN_TESTS_SUPPORT_SUPPORT_H
#define TARN_TESTS_SUPPORT_SUPPORT_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace tarn_test {

using std::chrono::milliseconds;
using namespace std::chrono_literals;

/// How much slower than the developers' machine this one may be, at least 1: the value of the
/// environment variable TARN_TEST_PATIENCE. scripts/test sets it for busy build servers.
int Patience();

/// An upper bound, in milliseconds, for what should take less; Patience() widens it.
inline long AtMost(long count) {
  return count * Patience();
}

/// A wait of a second or more only ends a hopeless test, so that Patience() lengthens it. A shorter
/// one is a look at what happens meanwhile.
milliseconds Bound(milliseconds limit);

/// Polls until `condition` holds; false when it still does not after Bound(limit).
bool WaitUntil(const std::function<bool()>& condition, milliseconds limit = 5000ms);

/// Milliseconds on the monotonic clock since construction.
class Stopwatch {
 public:
  Stopwatch() : start_(std::chrono::steady_clock::now()) {}
  [[nodiscard]] long ElapsedMs() const;

 private:
  std::chrono::steady_clock::time_point start_;
};

/// A folder that lives as long as the object.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  [[nodiscard]] const std::string& Path() const { return path_; }
  [[nodiscard]] std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

std::string ReadFile(const std::string& path);  // "" when it cannot be read
void WriteFile(const std::string& path, const std::string& content);
bool Exists(const std::string& path);
std::vector<std::string> ListDir(const std::string& path);  // sorted names without . and ..

/// `length` bytes that look random and depend on `seed` only.
std::string PatternBytes(size_t length, unsigned seed = 1);

/// The folder of the running test program, without a trailing separator.
std::string ProgramDir();

/// A port that no socket of the kind (SOCK_STREAM, SOCK_DGRAM) had a moment ago. It lies below
/// those that the platform gives out by itself, so that nobody takes it by chance; each process has
/// its own.
int FreePortFor(int kind);

/// Today's date in local time with the given strftime pattern.
std::string Today(const char* pattern);

/// Runs a shell command; its standard output, or with `status` also its exit status.
std::string RunCommand(const std::string& command, int* status = nullptr);

/// Runs `body` in a forked child and returns the child's wait status (0 when `body` returned 0).
int RunInChild(const std::function<int()>& body);

/// The names of this process's threads, as the platform shows them.
std::vector<std::string> ThreadNames();
int OpenDescriptors();
int LiveThreads();

/// Call in a test that leaves descriptors or threads behind on purpose (a process-wide log, say):
/// the check after every test then takes the new counts as they are.
void AllowResourceGrowth();

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_SUPPORT_H
