// What the upload tests share.
#ifndef TARN_TESTS_UPLOADFIXTURES_H
#define TARN_TESTS_UPLOADFIXTURES_H

#include <cstdint>
#include <cstring>
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

/// The names of the files stored for the save folder `up` of this folder, without the backslash.
inline std::vector<std::string> StoredIn(const TempDir& dir) {
  std::vector<std::string> names;
  for (const std::string& entry : ListDir(dir.Path())) {
    if (entry.rfind("up\\", 0) == 0) names.push_back(entry.substr(3));
  }
  return names;
}

struct UploadResult {
  std::string localPath;
  bool named;  ///< a stored name was given, not null
  std::string storedName;
  unsigned int code;
  bool operator==(const UploadResult& other) const = default;
};

/// What an upload client has told its host.
class UploadEvents : public TransferEvents<UploadResult> {
 public:
  using Result = UploadResult;

  void Register(Tarn::Generic::IUploadClient& client) {
    client.RegisterEvent(OnResult, OnProgress, static_cast<TransferEvents*>(this));
  }
  static void OnResult(void* user, const char* localPath, const char* storedName,
                       unsigned int code) {
    static_cast<UploadEvents*>(static_cast<TransferEvents*>(user))
        ->AddResult(
            {localPath, storedName != nullptr, storedName == nullptr ? "" : storedName, code});
  }
};

}  // namespace tarn_test

#endif  // TARN_TESTS_UPLOADFIXTURES_H
