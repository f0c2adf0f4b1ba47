// The recursive mutex and its scope guards.
#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/DateTime.h>
#include <Tarn/Generic/Lock.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace Tarn::Generic {
namespace {

// Hosts construct these: their sizes are part of the binary interface.
static_assert(sizeof(CLock) == sizeof(pthread_mutex_t));
static_assert(sizeof(CLockEx) == sizeof(pthread_mutex_t));
static_assert(sizeof(CAutoLocker) == 1056);
static_assert(!std::is_copy_constructible_v<CLock> && !std::is_copy_assignable_v<CLock>);
static_assert(!std::is_copy_constructible_v<CAutoLocker>);
static_assert(!std::is_polymorphic_v<CLock> && !std::is_polymorphic_v<CAutoLocker> &&
              !std::is_polymorphic_v<CLockEx>);

// What stands in a CAutoLocker, for attaching a logger, which no operation does.
struct LockerLayout {
  CLock* lock;
  char name[1024];
  double start;
  IAsyncLog* log;
  int level;
};
static_assert(sizeof(LockerLayout) == sizeof(CAutoLocker));

pthread_mutex_t& MutexOf(CLock& lock) {
  return reinterpret_cast<pthread_mutex_t&>(lock);
}

// Whether another thread could take the mutex at this moment.
bool IsFree(pthread_mutex_t& mutex) {
  bool taken = false;
  std::thread([&] {
    taken = pthread_mutex_trylock(&mutex) == 0;
    if (taken) pthread_mutex_unlock(&mutex);
  }).join();
  return taken;
}

// Keeps the last line and whether the lock was free while it was written.
class RecordingLog : public IAsyncLog {
 public:
  explicit RecordingLog(CLock& lock) : lock_(lock) {}
  void SetCharSet(CharSet /*set*/) override {}
  void SetWriteLogMode(int /*terminal*/, LogLevel /*level*/, bool /*sync*/,
                       bool /*close*/) override {}
  void GetWriteLogMode(int& /*terminal*/, LogLevel& /*level*/, bool& /*sync*/,
                       bool& /*close*/) override {}
  __attribute__((format(printf, 3, 4))) int WriteLog(LogLevel level, const char* fmt,
                                                     ...) override {
    char text[2048];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    lines.emplace_back(text);
    lastLevel = level;
    lockWasFree = IsFree(MutexOf(lock_));
    return 0;
  }
  void Flush() override {}

  std::vector<std::string> lines;
  LogLevel lastLevel = FATAL;
  bool lockWasFree = false;

 private:
  CLock& lock_;
};

// A CAutoLocker whose bytes can be reached; ends with Release or with this object.
class OpenLocker {
 public:
  explicit OpenLocker(CLock& lock) {
    std::memset(bytes_, 0xEE, sizeof(bytes_));
    locker_ = new (bytes_) CAutoLocker(lock);
  }
  ~OpenLocker() { Release(); }
  LockerLayout Read() const {
    LockerLayout layout{};
    std::memcpy(&layout, bytes_, sizeof(layout));
    return layout;
  }
  template <typename T>
  void Write(size_t offset, const T& value) {
    std::memcpy(bytes_ + offset, &value, sizeof(value));
  }
  void Release() {
    if (locker_ != nullptr) locker_->~CAutoLocker();
    locker_ = nullptr;
  }

 private:
  alignas(CAutoLocker) unsigned char bytes_[sizeof(CAutoLocker)];
  CAutoLocker* locker_;
};

TEST(LockTest, TheSameThreadLocksAgainAndUnlocksAsManyTimes) {
  CLock lock;
  lock.Lock();
  lock.Lock();
  lock.UnLock();
  EXPECT_FALSE(IsFree(MutexOf(lock)));
  lock.UnLock();
  EXPECT_TRUE(IsFree(MutexOf(lock)));
}

TEST(LockTest, KeepsThreadsApart) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  CLock lock;
  int counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        lock.Lock();
        lock.Lock();
        ++counter;
        lock.UnLock();
        lock.UnLock();
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(counter, kThreads * kRounds);
}

TEST(AutoLockerTest, HoldsTheLockForItsScope) {
  CLock lock;
  {
    const CAutoLocker outer(lock);
    {
      const CAutoLocker inner(lock);
      EXPECT_FALSE(IsFree(MutexOf(lock)));
    }
    EXPECT_FALSE(IsFree(MutexOf(lock)));
  }
  EXPECT_TRUE(IsFree(MutexOf(lock)));
}

TEST(AutoLockerTest, StartsWithoutALoggerAtLevelDebugWithAnEmptyNameKept) {
  CLock lock;
  const OpenLocker locker(lock);
  const LockerLayout layout = locker.Read();
  EXPECT_EQ(layout.lock, &lock);
  EXPECT_EQ(std::string(layout.name, sizeof(layout.name)), std::string(1024, '\0'));
  EXPECT_EQ(layout.start, 0.0);
  EXPECT_EQ(layout.log, nullptr);
  EXPECT_EQ(layout.level, 1);
}

TEST(AutoLockerTest, ReportsTheHoldTimeToAnAttachedLogger) {
  CLock lock;
  RecordingLog log(lock);
  OpenLocker locker(lock);
  locker.Write(offsetof(LockerLayout, log), static_cast<IAsyncLog*>(&log));
  locker.Write(offsetof(LockerLayout, level), static_cast<int>(WARN));
  locker.Write(offsetof(LockerLayout, name), "clients");
  locker.Write(offsetof(LockerLayout, start), CDateTime::GetMilisecondTime() - 1500.0);
  locker.Release();

  ASSERT_EQ(log.lines.size(), 1U);
  EXPECT_THAT(log.lines[0],
              testing::MatchesRegex(
                  R"(CAutoLocker clients execute period:1[5-9][0-9][0-9]\.[0-9][0-9][0-9]ms\.)"));
  EXPECT_EQ(log.lastLevel, WARN);
}

TEST(AutoLockerTest, ReportsAfterTheReleaseKept) {
  CLock lock;
  RecordingLog log(lock);
  OpenLocker locker(lock);
  locker.Write(offsetof(LockerLayout, log), static_cast<IAsyncLog*>(&log));
  locker.Release();
  ASSERT_EQ(log.lines.size(), 1U);
  EXPECT_TRUE(log.lockWasFree);
}

TEST(LockExTest, LeavesTheCallersMutexUnlockedKept) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  {
    CLockEx guard(mutex);
    EXPECT_TRUE(IsFree(mutex));
    EXPECT_FALSE(IsFree(reinterpret_cast<pthread_mutex_t&>(guard)));
  }
  EXPECT_TRUE(IsFree(mutex));
  pthread_mutex_destroy(&mutex);
}

TEST(LockExTest, CopiesTheWholeMutexWithItsKindKept) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_t mutex;
  pthread_mutex_init(&mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
  {
    CLockEx guard(mutex);
    EXPECT_EQ(pthread_mutex_lock(reinterpret_cast<pthread_mutex_t*>(&guard)), EDEADLK);
  }
  pthread_mutex_destroy(&mutex);
}

}  // namespace
}  // namespace Tarn::Generic
