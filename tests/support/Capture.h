// Collects what is written to standard output or standard error, below all buffering.
#ifndef TARN_TESTS_SUPPORT_CAPTURE_H
#define TARN_TESTS_SUPPORT_CAPTURE_H

#include <cstdio>
#include <string>

namespace tarn_test {

/// Redirects one stream into a file (lines may outgrow a pipe) until it goes out of scope.
class StreamCapture {
 public:
  explicit StreamCapture(FILE* stream);
  ~StreamCapture();
  StreamCapture(const StreamCapture&) = delete;
  StreamCapture& operator=(const StreamCapture&) = delete;
  /// Everything captured so far.
  [[nodiscard]] std::string Text();

 private:
  FILE* stream_;
  int saved_;
  int file_;
};

class StdoutCapture : public StreamCapture {
 public:
  StdoutCapture() : StreamCapture(stdout) {}
};

class StderrCapture : public StreamCapture {
 public:
  StderrCapture() : StreamCapture(stderr) {}
};

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_CAPTURE_H
