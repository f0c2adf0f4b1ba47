// What the upload tests share.
#ifndef TARN_TESTS_UPLOADFIXTURES_H
#define TARN_TESTS_UPLOADFIXTURES_H

#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tests/TransferFixtures.h"
#include "utility/UploadClient.h"
#include "utility/UploadServer.h"

namespace tarn_test {

inline std::string UploadHeaderFor(uint32_t total, const std::string& md5, const std::string& ext) {
  std::string header(50, '\0');
  std::memcpy(header.data(), &total, 4);
  md5.copy(header.data() + 4, 32);
  ext.copy(header.data() + 36, 14);
  return header;
}

/// The whole stream of one upload.
inline std::string UploadStream(const std::string& content, const std::string& ext) {
  return UploadHeaderFor(static_cast<uint32_t>(content.size()) + 50, Md5Of(content), ext) + content;
}

/// What an upload client has told its host.
class UploadEvents {
 public:
  struct Result {
    std::string localPath;
    bool named;  ///< a stored name was given, not null
    std::string storedName;
    unsigned int code;
    bool operator==(const Result& other) const = default;
  };

  static void OnResult(void* user, const char* localPath, const char* storedName,
                       unsigned int code) {
    auto* self = static_cast<UploadEvents*>(user);
    const std::function<void()> then = self->Add(
        {localPath, storedName != nullptr, storedName == nullptr ? "" : storedName, code});
    if (then) then();
  }
  static void OnProgress(void* user, const char* localPath, int percent) {
    auto* self = static_cast<UploadEvents*>(user);
    std::function<void()> then;
    {
      const std::lock_guard lock(self->mutex_);
      self->progress_.push_back(percent);
      self->progressPath_ = localPath;
      then = self->onProgress;
    }
    if (then) then();
  }

  void Register(Tarn::Generic::IUploadClient& client) {
    client.RegisterEvent(OnResult, OnProgress, this);
  }
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

  // Set before the upload begins; run inside the callback.
  std::function<void()> onResult;
  std::function<void()> onProgress;

 private:
  std::function<void()> Add(const Result& result) {
    const std::lock_guard lock(mutex_);
    results_.push_back(result);
    return onResult;
  }

  mutable std::mutex mutex_;
  std::vector<Result> results_;
  std::vector<int> progress_;
  std::string progressPath_;
};

}  // namespace tarn_test

#endif  // TARN_TESTS_UPLOADFIXTURES_H
