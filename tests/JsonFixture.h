// JSON wrappers whose cJSON memory is counted and, on demand, refused.
#ifndef TARN_TESTS_JSONFIXTURE_H
#define TARN_TESTS_JSONFIXTURE_H

#include <Tarn/Generic/Json.h>
#include <cjson/cJSON.h>

#include <atomic>
#include <cstdlib>
#include <memory>

#include <gtest/gtest.h>

namespace Tarn::Generic {

struct JsonDeleter {
  void operator()(IJson* json) const { IJson::Delete(json); }
};
using JsonPtr = std::unique_ptr<IJson, JsonDeleter>;

inline JsonPtr NewObject(int release = 1) {
  return JsonPtr(IJson::CreateObject(release));
}
inline JsonPtr NewArray(int release = 1) {
  return JsonPtr(IJson::CreateArray(release));
}
inline JsonPtr Parsed(const char* text, int release = 1) {
  return JsonPtr(IJson::CreateObject(text, release));
}

/// After each case, all that cJSON has allocated must have gone back to it.
class JsonTest : public testing::Test {
 protected:
  JsonTest() {
    live_ = 0;
    SetAllowed(-1);
    cJSON_Hooks hooks = {Allocate, Release};
    cJSON_InitHooks(&hooks);
  }
  ~JsonTest() override {
    SetAllowed(-1);
    EXPECT_EQ(LiveBlocks(), 0) << "blocks of cJSON have not been freed";
    cJSON_InitHooks(nullptr);
  }

  static int LiveBlocks() { return live_; }
  /// How many allocations of cJSON succeed from now on; negative: all.
  static void SetAllowed(int count) { allowed_ = count; }

 private:
  static void* Allocate(size_t size) {
    if (allowed_ == 0) return nullptr;
    if (allowed_ > 0) --allowed_;
    ++live_;
    return std::malloc(size);
  }
  static void Release(void* block) {
    if (block != nullptr) --live_;
    std::free(block);
  }

  static inline std::atomic<int> live_{0};
  static inline std::atomic<int> allowed_{-1};
};

}  // namespace Tarn::Generic

#endif  // TARN_TESTS_JSONFIXTURE_H
