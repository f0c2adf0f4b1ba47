// Events: who gets through, for how long a wait lasts, and on which clock.
#include <Tarn/Generic/SyncEvent.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <ctime>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/Support.h"

namespace {

// Seconds that the wall clock is wrong by, and whether waking waiters fails: see the calls below.
std::atomic<long> wallClockError{0};
std::atomic<bool> wakingFails{false};

using SignalCall = int (*)(pthread_cond_t*);

SignalCall Platform(const char* name) {
  return reinterpret_cast<SignalCall>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// These stand in front of the platform's own.
extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const long result = syscall(SYS_clock_gettime, clock, now);
  if (clock == CLOCK_REALTIME) now->tv_sec += wallClockError.load(std::memory_order_relaxed);
  return static_cast<int>(result);
}

extern "C" int pthread_cond_signal(pthread_cond_t* condition) noexcept {
  static const SignalCall next = Platform("pthread_cond_signal");
  return wakingFails.load(std::memory_order_relaxed) ? EINVAL : next(condition);
}

extern "C" int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
  static const SignalCall next = Platform("pthread_cond_broadcast");
  return wakingFails.load(std::memory_order_relaxed) ? EINVAL : next(condition);
}

namespace Tarn::Generic {
namespace {

using namespace tarn_test;

struct EventLayout {
  bool signalled;
  bool manualReset;
  pthread_mutex_t mutex;
  pthread_cond_t condition;
};
static_assert(sizeof(SyncEvent) == sizeof(EventLayout));
static_assert(!std::is_copy_constructible_v<SyncEvent> && !std::is_copy_assignable_v<SyncEvent>);
static_assert(!std::is_polymorphic_v<SyncEvent>);

// Waits for a moment of the second with `low` <= microseconds < `high`.
void AwaitMicroseconds(long low, long high) {
  ASSERT_TRUE(WaitUntil([&] {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now.tv_usec >= low && now.tv_usec < high;
  }));
}

// Threads in Wait() that count themselves once they are through.
class Waiters {
 public:
  Waiters(SyncEvent& event, int count) : event_(event) {
    for (int i = 0; i < count; ++i) {
      threads_.emplace_back([this] {
        ++waiting;
        if (event_.Wait()) ++through;
      });
    }
  }
  ~Waiters() {
    for (std::thread& thread : threads_)
      thread.join();
  }
  std::atomic<int> waiting{0};
  std::atomic<int> through{0};

 private:
  SyncEvent& event_;
  std::vector<std::thread> threads_;
};

TEST(SyncEventTest, StartsAsAnAutoResetEventThatIsNotSignalled) {
  SyncEvent event;
  EXPECT_EQ(event.TimedWait(0), 0);
  EXPECT_TRUE(event.Set());
  EXPECT_EQ(event.TimedWait(0), 1);
  EXPECT_EQ(event.TimedWait(0), 0);
}

TEST(SyncEventTest, StartsInTheGivenState) {
  SyncEvent autoReset(false, true);
  EXPECT_EQ(autoReset.TimedWait(0), 1);
  EXPECT_EQ(autoReset.TimedWait(0), 0);
  SyncEvent manualReset(true, true);
  EXPECT_EQ(manualReset.TimedWait(0), 1);
  EXPECT_EQ(manualReset.TimedWait(0), 1);
  SyncEvent unset(true, false);
  EXPECT_EQ(unset.TimedWait(0), 0);
}

TEST(SyncEventTest, AManualResetEventLetsEveryWaitThroughUntilReset) {
  SyncEvent event(true, false);
  EXPECT_TRUE(event.Set());
  EXPECT_TRUE(event.Wait());
  EXPECT_TRUE(event.Wait());
  EXPECT_TRUE(event.Reset());
  EXPECT_EQ(event.TimedWait(0), 0);
}

TEST(SyncEventTest, SettingASignalledAutoResetEventDoesNotCountTwiceKept) {
  SyncEvent event;
  event.Set();
  event.Set();
  EXPECT_TRUE(event.Wait());
  EXPECT_EQ(event.TimedWait(0), 0);
}

TEST(SyncEventTest, ResetTakesBackASet) {
  SyncEvent event;
  event.Set();
  EXPECT_TRUE(event.Reset());
  EXPECT_EQ(event.TimedWait(0), 0);
}

TEST(SyncEventTest, AnAutoResetEventLetsOneWaiterThroughPerSet) {
  SyncEvent event;
  Waiters waiters(event, 3);
  ASSERT_TRUE(WaitUntil([&] { return waiters.waiting == 3; }));
  for (int sets = 1; sets <= 3; ++sets) {
    event.Set();
    EXPECT_TRUE(WaitUntil([&] { return waiters.through == sets; }));
    EXPECT_FALSE(WaitUntil([&] { return waiters.through > sets; }, 30ms));
  }
}

TEST(SyncEventTest, AManualResetEventLetsAllWaitersThrough) {
  SyncEvent event(true, false);
  Waiters waiters(event, 3);
  ASSERT_TRUE(WaitUntil([&] { return waiters.waiting == 3; }));
  event.Set();
  EXPECT_TRUE(WaitUntil([&] { return waiters.through == 3; }));
}

TEST(SyncEventTest, ATimedWaitLastsAsLongAsAskedFor) {
  SyncEvent event;
  const Stopwatch watch;
  EXPECT_EQ(event.TimedWait(120), 0);
  EXPECT_GE(watch.ElapsedMs(), 119);
  EXPECT_LT(watch.ElapsedMs(), AtMost(2000));
}

TEST(SyncEventTest, ATimedWaitEndsWhenTheEventIsSet) {
  SyncEvent event;
  std::thread setter([&] { event.Set(); });
  const Stopwatch watch;
  EXPECT_EQ(event.TimedWait(20000), 1);
  EXPECT_LT(watch.ElapsedMs(), AtMost(10000));
  setter.join();
  EXPECT_EQ(event.TimedWait(0), 0);
}

TEST(SyncEventTest, ATimeoutChangesNothing) {
  SyncEvent event;
  EXPECT_EQ(event.TimedWait(5), 0);
  event.Set();
  EXPECT_EQ(event.TimedWait(5), 1);
}

TEST(SyncEventTest, TheLongestTimeIsAccepted) {
  SyncEvent event(false, true);
  EXPECT_EQ(event.TimedWait(INT_MAX), 1);
  std::thread setter([&] { event.Set(); });
  EXPECT_EQ(event.TimedWait(INT_MAX), 1);
  setter.join();
}

TEST(SyncEventTest, ANegativeTimeIsRefusedWhenItsFractionReachesBelowTheSecondKept) {
  SyncEvent event;
  AwaitMicroseconds(200'000, 600'000);
  EXPECT_EQ(event.TimedWait(-850), -1);
  AwaitMicroseconds(200'000, 600'000);
  EXPECT_EQ(event.TimedWait(-7850), -1);
}

TEST(SyncEventTest, ANegativeTimeThatIsMerelyPastIsATimeoutKept) {
  SyncEvent event;
  AwaitMicroseconds(200'000, 600'000);
  EXPECT_EQ(event.TimedWait(-100), 0);
  EXPECT_EQ(event.TimedWait(-1000), 0);
  EXPECT_EQ(event.TimedWait(-5000), 0);
}

TEST(SyncEventTest, ASignalledEventDoesNotLookAtTheTime) {
  SyncEvent event(true, true);
  AwaitMicroseconds(200'000, 600'000);
  EXPECT_EQ(event.TimedWait(-850), 1);
  EXPECT_EQ(event.TimedWait(INT_MIN), 1);
}

TEST(SyncEventTest, ARefusedWaitLeavesTheEventUsable) {
  SyncEvent event;
  AwaitMicroseconds(200'000, 600'000);
  EXPECT_EQ(event.TimedWait(-850), -1);
  EXPECT_TRUE(event.Set());
  EXPECT_EQ(event.TimedWait(0), 1);
}

TEST(SyncEventTest, AWallClockThatIsSetBackDoesNotLengthenOrShortenAWait) {
  for (const long error : {-3600L, 3600L}) {
    wallClockError = error;
    SyncEvent event;
    const Stopwatch watch;
    EXPECT_EQ(event.TimedWait(60), 0);
    EXPECT_GE(watch.ElapsedMs(), 59);
    EXPECT_LT(watch.ElapsedMs(), AtMost(2000));
    wallClockError = 0;
  }
}

TEST(SyncEventTest, SetKeepsTheMutexWhenWakingFailsKept) {
  for (const bool manualReset : {false, true}) {
    SyncEvent event(manualReset, false);
    wakingFails = true;
    EXPECT_FALSE(event.Set());
    wakingFails = false;
    auto& mutex = reinterpret_cast<EventLayout&>(event).mutex;
    int result = 0;
    std::thread([&] { result = pthread_mutex_trylock(&mutex); }).join();
    EXPECT_EQ(result, EBUSY);
    pthread_mutex_unlock(&mutex);
    EXPECT_EQ(event.TimedWait(0), 1);
  }
}

TEST(SyncEventTest, EverySetOfAManyThreadedExchangeIsSeen) {
  constexpr int kRounds = 2000;
  SyncEvent ping;
  SyncEvent pong;
  int shared = 0;
  std::thread other([&] {
    for (int i = 0; i < kRounds; ++i) {
      ping.Wait();
      ++shared;
      pong.Set();
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    ++shared;
    ping.Set();
    ASSERT_EQ(pong.TimedWait(20000), 1);
  }
  other.join();
  EXPECT_EQ(shared, 2 * kRounds);
}

}  // namespace
}  // namespace Tarn::Generic
