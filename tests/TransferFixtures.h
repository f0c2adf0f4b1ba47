// Stand-ins for the TCP objects of the transfer classes, and what the transfer tests share.
#ifndef TARN_TESTS_TRANSFERFIXTURES_H
#define TARN_TESTS_TRANSFERFIXTURES_H

#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/Ping.h>
#include <Tarn/Generic/TcpClient.h>
#include <Tarn/Generic/TcpServer.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Capture.h"
#include "tests/support/RawPeer.h"
#include "tests/support/Slots.h"
#include "tests/support/Support.h"

namespace tarn_test {

constexpr size_t kBlock = 1048576;

/// MD5 of a text as md5sum computes it.
inline std::string Md5Of(const std::string& content) {
  const TempDir dir;
  WriteFile(dir.File("content"), content);
  return RunCommand("md5sum < '" + dir.File("content") + "'").substr(0, 32);
}

/// Records what a transfer server asks of its TCP server. `onSend` may change the result of
/// a send and act as the network would.
class FakeTcpServer : public Tarn::Generic::ITcpServer {
 public:
  void RegisterEvent(void* newUser, void (*connect)(void*, unsigned int, unsigned int, char*),
                     void (*disconnect)(void*, unsigned int, unsigned int),
                     void (*message)(void*, unsigned int, unsigned int, const char*,
                                     int)) override {
    user = newUser;
    onConnect = connect;
    onDisconnect = disconnect;
    onMessage = message;
  }
  int Start(int port) override {
    startedPort = port;
    return startResult;
  }
  void Stop() override {
    ++stops;
    if (onStop) onStop();
    maxBufferLen = 8192;
    procType = Tarn::Generic::PROTOCOL_BYTE;
    RegisterEvent(nullptr, nullptr, onDisconnect, nullptr);
  }
  int SendMsg(int cid, const char* data, int len) override {
    sent.emplace_back(cid, std::string(data, static_cast<size_t>(len)));
    return onSend ? onSend(sent.size()) : len;
  }
  int Removeclient(int cid) override {
    removed.push_back(cid);
    return 1;
  }
  void SetMaxBufferLen(int len) override { maxBufferLen = len; }
  void SetProcType(Tarn::Generic::protocol_type type) override { procType = type; }
  void DisableEndian() override {}

  void* user = nullptr;
  void (*onConnect)(void*, unsigned int, unsigned int, char*) = nullptr;
  void (*onDisconnect)(void*, unsigned int, unsigned int) = nullptr;
  void (*onMessage)(void*, unsigned int, unsigned int, const char*, int) = nullptr;
  int startResult = 1;
  int startedPort = 0;
  int stops = 0;
  int maxBufferLen = 0;
  Tarn::Generic::protocol_type procType = Tarn::Generic::PROTOCOL_BYTE;
  std::vector<std::pair<int, std::string>> sent;
  std::vector<int> removed;
  std::function<int(size_t count)> onSend;
  std::function<void()> onStop;
};

/// Records what a transfer client asks of its TCP client. `onSend` may change the result of a send
/// and act as the network would.
class FakeTcpClient : public Tarn::Generic::ITcpClient {
 public:
  void RegisterEvent(void* newUser, void (*connect)(void*, Tarn::Generic::ConnType),
                     void (*message)(void*, const char*, int)) override {
    user = newUser;
    onConn = connect;
    onMsg = message;
  }
  int Connect(const char* newIp, int newPort, int newTimeout) override {
    ip = newIp;
    port = newPort;
    timeout = newTimeout;
    ++connects;
    return connectResult;
  }
  void Disconnect() override {
    ++disconnects;
    if (onDisconnect) onDisconnect();
  }
  int SendMsg(const char* data, int len) override {
    sent.emplace_back(data, static_cast<size_t>(len));
    return onSend ? onSend(sent.size()) : len;
  }
  void SetMaxBufferLen(int len) override { maxBufferLen = len; }
  void SetProcType(Tarn::Generic::protocol_type type) override { procType = type; }
  void DisableEndian() override {}
  void StartHeartOpen(bool /*open*/, int /*time*/, int /*interval*/) override {}

  void* user = nullptr;
  void (*onConn)(void*, Tarn::Generic::ConnType) = nullptr;
  void (*onMsg)(void*, const char*, int) = nullptr;
  std::string ip;
  int port = 0;
  int timeout = 0;
  int connects = 0;
  int connectResult = 1;
  int disconnects = 0;
  int maxBufferLen = 0;
  Tarn::Generic::protocol_type procType = Tarn::Generic::PROTOCOL_BYTE;
  std::vector<std::string> sent;
  std::function<int(size_t count)> onSend;
  std::function<void()> onDisconnect;
};

/// Records what a transfer client asks of its pinger.
class FakePing : public Tarn::Generic::IPing {
 public:
  int Ping(unsigned int /*ip*/, unsigned int /*timeout*/) override { return 0; }
  int Ping(char* ip, unsigned int timeout) override {
    asked.emplace_back(ip, timeout);
    return result;
  }

  int result = 1;
  std::vector<std::pair<std::string, unsigned int>> asked;
};

/// Has the default log echo to this process's standard output, at once, while it lives. The log's
/// file is shared with the cases that run at the same time.
class LogCapture {
 public:
  LogCapture() { SetTerminal(1); }
  ~LogCapture() { SetTerminal(0); }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// The messages of the lines with this level's tag, in order.
  std::vector<std::string> Messages(const std::string& tag) {
    const std::string captured = output_.Text();
    std::vector<std::string> messages;
    for (size_t begin = 0; begin < captured.size();) {
      const size_t end = std::min(captured.find('\n', begin), captured.size());
      const std::string line = captured.substr(begin, end - begin);
      const size_t at = line.find(tag);
      if (at != std::string::npos) messages.push_back(line.substr(at + tag.size()));
      begin = end + 1;
    }
    return messages;
  }

  static void SetTerminal(int terminal) {
    Tarn::Generic::IAsyncLog::GetDefaultLogPtr()->SetWriteLogMode(terminal, Tarn::Generic::DEBUG,
                                                                  true, false);
  }

 private:
  StdoutCapture output_;
};

/// What a transfer client has told its host: results of the given kind, each with its `code`, and
/// percentages.
template <class Result>
class TransferEvents {
 public:
  [[nodiscard]] std::vector<Result> Results() const {
    const std::lock_guard lock(mutex_);
    return results_;
  }
  [[nodiscard]] std::vector<unsigned int> Codes() const {
    std::vector<unsigned int> codes;
    for (const Result& result : Results())
      codes.push_back(result.code);
    return codes;
  }
  [[nodiscard]] std::vector<int> Progress() const {
    const std::lock_guard lock(mutex_);
    return progress_;
  }
  [[nodiscard]] std::string ProgressPath() const {
    const std::lock_guard lock(mutex_);
    return progressPath_;
  }
  [[nodiscard]] bool WaitForResults(size_t count, milliseconds limit = 10000ms) const {
    return WaitUntil([this, count] { return Results().size() >= count; }, limit);
  }

  static void OnProgress(void* user, const char* path, int percent) {
    auto* self = static_cast<TransferEvents*>(user);
    std::function<void()> then;
    {
      const std::lock_guard lock(self->mutex_);
      self->progress_.push_back(percent);
      self->progressPath_ = path;
      then = self->onProgress;
    }
    if (then) then();
  }

  // Set before the transfer begins; run inside the callback.
  std::function<void()> onResult;
  std::function<void()> onProgress;

 protected:
  void AddResult(const Result& result) {
    std::function<void()> then;
    {
      const std::lock_guard lock(mutex_);
      results_.push_back(result);
      then = onResult;
    }
    if (then) then();
  }

 private:
  mutable std::mutex mutex_;
  std::vector<Result> results_;
  std::vector<int> progress_;
  std::string progressPath_;
};

class TransferFixture : public testing::Test {
 protected:
  // Before the first case: the log's thread lives as long as the process.
  static void SetUpTestSuite() { LogCapture::SetTerminal(0); }
};

/// Creates a file of this length without writing it.
inline void MakeSparseFile(const std::string& path, uint64_t length) {
  std::ofstream(path, std::ios::binary).close();
  ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(length)), 0);
}

}  // namespace tarn_test

#endif  // TARN_TESTS_TRANSFERFIXTURES_H
