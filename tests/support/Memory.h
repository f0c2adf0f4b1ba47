// Memory that shows what was done to it: bytes in front of an unreadable page, a stack to look at.
#ifndef TARN_TESTS_SUPPORT_MEMORY_H
#define TARN_TESTS_SUPPORT_MEMORY_H

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>

namespace tarn_test {

/// A copy of `content` that ends where the readable memory ends.
class BytesBeforeGuard {
 public:
  explicit BytesBeforeGuard(const std::string& content)
      : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
        size_((content.size() + page_ - 1) / page_ * page_ + page_),
        memory_(static_cast<char*>(
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    std::memcpy(End() - content.size(), content.data(), content.size());
    mprotect(End(), page_, PROT_NONE);
  }
  ~BytesBeforeGuard() { munmap(memory_, size_); }
  BytesBeforeGuard(const BytesBeforeGuard&) = delete;
  BytesBeforeGuard& operator=(const BytesBeforeGuard&) = delete;

  /// The last `count` bytes.
  [[nodiscard]] char* Last(size_t count) const { return End() - count; }

 private:
  [[nodiscard]] char* End() const { return memory_ + size_ - page_; }

  size_t page_, size_;
  char* memory_;
};

/// Whether 8 bytes of `secret`, from any multiple of 4 on, stand in the memory.
inline bool HoldsPartOf(const std::string& secret, const void* memory, size_t size) {
  for (size_t at = 0; at + 8 <= secret.size(); at += 4) {
    if (memmem(memory, size, secret.data() + at, 8) != nullptr) return true;
  }
  return false;
}

/// Whether the compiler itself leaves copies of registers on the stack, so that looking for them
/// there says nothing: unoptimised code does, and what calls the thread sanitizer at every access.
#if !defined(__OPTIMIZE__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kStackHoldsRegisters = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
inline constexpr bool kStackHoldsRegisters = true;
#else
inline constexpr bool kStackHoldsRegisters = false;
#endif
#else
inline constexpr bool kStackHoldsRegisters = false;
#endif

/// Runs functions on a stack of its own, which stays to be looked at.
class ObservedStack {
 public:
  ObservedStack() : memory_(mmap(nullptr, kSize, PROT_READ | PROT_WRITE, kFlags, -1, 0)) {}
  ~ObservedStack() { munmap(memory_, kSize); }
  ObservedStack(const ObservedStack&) = delete;
  ObservedStack& operator=(const ObservedStack&) = delete;

  void Run(const std::function<void()>& body) {
    pthread_attr_t attributes;
    pthread_t thread;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstack(&attributes, memory_, kSize), 0);
    void* argument = const_cast<std::function<void()>*>(&body);
    ASSERT_EQ(pthread_create(&thread, &attributes, Body, argument), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
  }

  [[nodiscard]] bool HoldsPartOf(const std::string& secret) const {
    return tarn_test::HoldsPartOf(secret, memory_, kSize);
  }

 private:
  static constexpr size_t kSize = 1 << 20;
  static constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK;

  static void* Body(void* body) {
    (*static_cast<const std::function<void()>*>(body))();
    return nullptr;
  }

  void* memory_;
};

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_MEMORY_H
