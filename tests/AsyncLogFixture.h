// What the cases of the asynchronous log share.
#ifndef TARN_TESTS_ASYNCLOGFIXTURE_H
#define TARN_TESTS_ASYNCLOGFIXTURE_H

#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Support.h"
#include "utility/AsyncLog.h"

namespace tarn_test {

using namespace Tarn::Generic;

constexpr size_t kStamp = 23;  // characters of a line's stamp
constexpr LogLevel kLowest = static_cast<LogLevel>(INT_MIN);

/// A log in a folder of its own, deleted at the end of a case.
class AsyncLog : public testing::Test {
 protected:
  ~AsyncLog() override { IAsyncLog::Delete(log_); }

  // For the file only, all levels.
  CAsyncLog& FileLog(const std::string& name = "app.log") {
    log_ = IAsyncLog::Create(dir_.File(name).c_str(), false);
    log_->SetWriteLogMode(2, kLowest, false, false);
    return static_cast<CAsyncLog&>(*log_);
  }
  // As above without a writer: on a slow machine it could come in between.
  CAsyncLog& QuietLog(const std::string& name = "app.log") {
    CAsyncLog& log = FileLog(name);
    log.StopFileLog();
    return log;
  }
  void Forget() { log_ = nullptr; }
  [[nodiscard]] std::string TodaysFile(const std::string& name = "app") const {
    return dir_.File(name + "-" + Today("%Y-%m-%d") + ".log");
  }
  [[nodiscard]] std::string Text() const { return ReadFile(TodaysFile()); }

  TempDir dir_;
  IAsyncLog* log_ = nullptr;
};

inline std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  return lines;
}

// The text with every digit shown as 0.
inline std::string ShapeOf(std::string text) {
  for (char& c : text) {
    if (c >= '1' && c <= '9') c = '0';
  }
  return text;
}

// The messages behind stamp and tag.
inline std::vector<std::string> MessagesOf(const std::string& text) {
  std::vector<std::string> messages;
  for (const std::string& line : LinesOf(text)) {
    messages.push_back(line.substr(line.find(' ', kStamp + 1) + 1));
  }
  return messages;
}

}  // namespace tarn_test

#endif  // TARN_TESTS_ASYNCLOGFIXTURE_H
