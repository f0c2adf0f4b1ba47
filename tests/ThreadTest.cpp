// One function on one named thread: starting, ending and stopping in every order.
#include <Tarn/Generic/Thread.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>

#include "tests/support/FailingNew.h"
#include "tests/support/Slots.h"
#include "tests/support/Support.h"

namespace {

std::atomic<bool> creatingFails{false};
std::atomic<bool> creatingWaits{false};
std::atomic<int> waiting{0};  // threads that are held up by it
std::atomic<int> created{0};
std::atomic<int> ended{0};

template <typename Call>
Call Platform(const char* name) {
  return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// These stand in front of the platform's own: they count threads and what has become of them.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*entry)(void*), void* arg) noexcept {
  static const auto next = Platform<decltype(&pthread_create)>("pthread_create");
  if (creatingFails) return EAGAIN;
  if (creatingWaits) {
    ++waiting;
    while (creatingWaits)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    --waiting;
  }
  ++created;
  return next(thread, attributes, entry, arg);
}

extern "C" int pthread_join(pthread_t thread, void** result) {
  static const auto next = Platform<int (*)(pthread_t, void**)>("pthread_join");
  ++ended;
  return next(thread, result);
}

extern "C" int pthread_detach(pthread_t thread) noexcept {
  static const auto next = Platform<int (*)(pthread_t)>("pthread_detach");
  ++ended;
  return next(thread);
}

namespace Tarn::Generic {
namespace {

using namespace tarn_test;
using testing::Contains;
using testing::Not;

static_assert(sizeof(CThread) == 104);
static_assert(std::has_virtual_destructor_v<CThread>);
static_assert(!std::is_copy_constructible_v<CThread>);

// A function for a CThread that counts its calls and runs until it is let go.
class Task {
 public:
  static void Run(void* arg) {
    auto* const task = static_cast<Task*>(arg);
    task->id = static_cast<unsigned int>(pthread_self());
    ++task->calls;
    while (!task->release)
      std::this_thread::sleep_for(1ms);
    ++task->returns;
  }
  [[nodiscard]] bool WaitForCalls(int count) const {
    return WaitUntil([&] { return calls == count; });
  }
  std::atomic<bool> release{false};
  std::atomic<int> calls{0};
  std::atomic<int> returns{0};
  std::atomic<unsigned int> id{0};
};

// A task that ends by itself at once.
struct ShortTask : Task {
  ShortTask() { release = true; }
};

// Needs to be the first thread of its process.
TEST(ThreadTest, TheFirstThreadNeedsNoMemoryOfOurs) {
  ShortTask task;
  CThread thread("short_memory");
  bool started = false;
  {
    const FailingNew failing;
    started = thread.Start(&task, Task::Run);
    thread.Stop();
  }
  EXPECT_TRUE(started);
  EXPECT_EQ(task.returns, 1);
}

TEST(ThreadTest, RunsTheFunctionOnceWithItsArgument) {
  ShortTask task;
  CThread thread("once");
  EXPECT_TRUE(thread.Start(&task, Task::Run));
  ASSERT_TRUE(task.WaitForCalls(1));
  thread.Stop();
  EXPECT_EQ(task.calls, 1);
}

TEST(ThreadTest, NamesItsThread) {
  Task task;
  CThread thread("my_reader");
  thread.Start(&task, Task::Run);
  EXPECT_THAT(ThreadNames(), Contains("my_reader"));
  task.release = true;
}

TEST(ThreadTest, CutsNamesToFifteenCharactersKept) {
  Task task;
  CThread thread("12345678901234567890");
  thread.Start(&task, Task::Run);
  EXPECT_THAT(ThreadNames(), Contains("123456789012345"));
  task.release = true;
}

TEST(ThreadTest, ANullNameIsEmpty) {
  Task task;
  CThread thread(nullptr);
  thread.Start(&task, Task::Run);
  EXPECT_THAT(ThreadNames(), Contains(""));
  task.release = true;
}

TEST(ThreadTest, RenamesARunningThread) {
  Task task;
  CThread thread("old_name");
  thread.Start(&task, Task::Run);
  thread.SetThreadName("new_name");
  EXPECT_THAT(ThreadNames(), Contains("new_name"));
  EXPECT_THAT(ThreadNames(), Not(Contains("old_name")));
  thread.SetThreadName("abcdefghijklmnopqrstuvwxyz");
  EXPECT_THAT(ThreadNames(), Contains("abcdefghijklmno"));
  thread.SetThreadName(nullptr);
  EXPECT_THAT(ThreadNames(), Contains(""));
  task.release = true;
}

TEST(ThreadTest, AnIdleObjectTakesItsNewNameToTheNextThread) {
  Task task;
  CThread thread("first_name");
  thread.SetThreadName("second_name");
  thread.Start(&task, Task::Run);
  EXPECT_THAT(ThreadNames(), Contains("second_name"));
  task.release = true;
}

TEST(ThreadTest, WithoutAFunctionTheThreadEndsAtOnceAndTheObjectIsIdleAgainKept) {
  CThread thread("empty");
  EXPECT_TRUE(thread.Start());
  EXPECT_TRUE(WaitUntil([&] { return thread.Start(); }));
  EXPECT_EQ(thread.GetThreadId(), 0U);
}

TEST(ThreadTest, ASecondStartWhileRunningIsRefused) {
  Task task;
  CThread thread("twice");
  EXPECT_TRUE(thread.Start(&task, Task::Run));
  ASSERT_TRUE(task.WaitForCalls(1));
  const int before = created;
  EXPECT_FALSE(thread.Start());
  EXPECT_EQ(created, before);
  task.release = true;
  thread.Stop();
  EXPECT_EQ(task.calls, 1);
}

TEST(ThreadTest, StopWaitsForTheFunctionHoweverLongItTakesKept) {
  for (const int ignored : {-1, 0, 1, 5000}) {
    Task task;
    CThread thread("waiting");
    thread.Start(&task, Task::Run);
    std::thread releaser([&] {
      std::this_thread::sleep_for(40ms);
      task.release = true;
    });
    thread.Stop(ignored);
    EXPECT_EQ(task.returns, 1);
    releaser.join();
  }
}

TEST(ThreadTest, StopRightAfterStartWaitsForTheFunction) {
  for (int i = 0; i < 50; ++i) {
    ShortTask task;
    CThread thread("at_once");
    ASSERT_TRUE(thread.Start(&task, Task::Run));
    thread.Stop();
    // The thread ends by itself or is waited for; in both cases its function has returned.
    EXPECT_EQ(task.returns, 1);
  }
}

TEST(ThreadTest, TheDestructorWaitsForTheFunction) {
  ShortTask task;
  {
    CThread thread("scoped");
    thread.Start(&task, Task::Run);
  }
  EXPECT_EQ(task.returns, 1);
}

TEST(ThreadTest, StopOfAnIdleObjectDoesNothing) {
  CThread thread("idle");
  thread.Stop();
  thread.Stop(5);
  EXPECT_EQ(thread.GetThreadId(), 0U);
}

TEST(ThreadTest, CanBeStartedAgainAfterStop) {
  ShortTask task;
  CThread thread("again");
  for (int round = 1; round <= 3; ++round) {
    EXPECT_TRUE(thread.Start(&task, Task::Run));
    thread.Stop();
    EXPECT_EQ(task.returns, round);
  }
}

TEST(ThreadTest, CanBeStartedAgainAfterItsFunctionHasReturned) {
  ShortTask task;
  CThread thread("again");
  for (int round = 1; round <= 3; ++round) {
    EXPECT_TRUE(WaitUntil([&] { return thread.Start(&task, Task::Run); }));
    EXPECT_TRUE(WaitUntil([&] { return task.returns == round; }));
  }
}

TEST(ThreadTest, TheIdIsThatOfTheThreadWhileItsFunctionRunsKept) {
  Task task;
  CThread thread("id");
  EXPECT_EQ(thread.GetThreadId(), 0U);
  thread.Start(&task, Task::Run);
  ASSERT_TRUE(task.WaitForCalls(1));
  EXPECT_EQ(thread.GetThreadId(), task.id);
  task.release = true;
  EXPECT_TRUE(WaitUntil([&] { return thread.GetThreadId() == 0; }));
}

TEST(ThreadTest, TheIdIsZeroAfterStop) {
  Task task;
  CThread thread("id");
  thread.Start(&task, Task::Run);
  ASSERT_TRUE(task.WaitForCalls(1));
  task.release = true;
  thread.Stop();
  EXPECT_EQ(thread.GetThreadId(), 0U);
}

TEST(ThreadTest, OnceTheIdIsZeroAgainTheObjectCanBeStarted) {
  Task task;
  CThread thread("id");
  CThread other("other");
  ASSERT_TRUE(thread.Start(&task, Task::Run));
  ASSERT_TRUE(task.WaitForCalls(1));
  // A start that takes its time keeps the thread from giving up its object.
  std::thread starter([&] {
    creatingWaits = true;
    other.Start();
  });
  EXPECT_TRUE(WaitUntil([&] { return waiting == 1; }));
  task.release = true;
  EXPECT_FALSE(WaitUntil([&] { return thread.GetThreadId() == 0; }, 20ms));
  creatingWaits = false;
  starter.join();
  EXPECT_TRUE(WaitUntil([&] { return thread.GetThreadId() == 0; }));
  EXPECT_TRUE(thread.Start());
}

TEST(ThreadTest, AFailedStartLeavesTheObjectIdle) {
  ShortTask task;
  CThread thread("refused");
  creatingFails = true;
  EXPECT_FALSE(thread.Start(&task, Task::Run));
  creatingFails = false;
  thread.Stop();
  EXPECT_EQ(task.calls, 0);
  EXPECT_TRUE(thread.Start());
  thread.Stop();
  EXPECT_EQ(task.calls, 1);
}

TEST(ThreadTest, NoThreadIsLeftUnjoined) {
  ShortTask task;
  CThread thread("ended");
  const int createdBefore = created;
  const int endedBefore = ended;
  for (int round = 1; round <= 20; ++round) {
    ASSERT_TRUE(WaitUntil([&] { return thread.Start(&task, Task::Run); }));
    ASSERT_TRUE(WaitUntil([&] { return task.returns == round; }));
  }
  thread.Stop();
  EXPECT_TRUE(WaitUntil([&] { return ended - endedBefore == created - createdBefore; }));
}

TEST(ThreadTest, ReRegisteringAppliesToTheNextStart) {
  ShortTask first;
  ShortTask second;
  CThread thread("register");
  thread.RegisterEvent(&first, Task::Run);
  thread.Start();
  thread.Stop();
  thread.RegisterEvent(&second, Task::Run);
  thread.Start();
  thread.Stop();
  EXPECT_EQ(first.calls, 1);
  EXPECT_EQ(second.calls, 1);
}

// What a thread does that stops, restarts or destroys its own object.
struct SelfEnding {
  std::unique_ptr<CThread> thread = std::make_unique<CThread>("self");
  std::atomic<int> done{0};
};

TEST(ThreadTest, AFunctionMayStopItsOwnObject) {
  SelfEnding self;
  self.thread->Start(&self, [](void* arg) {
    auto* const own = static_cast<SelfEnding*>(arg);
    own->thread->Stop();
    own->thread->Stop();
    ++own->done;
  });
  EXPECT_TRUE(WaitUntil([&] { return self.done == 1; }));
  EXPECT_EQ(self.thread->GetThreadId(), 0U);
  ShortTask task;
  EXPECT_TRUE(self.thread->Start(&task, Task::Run));
  self.thread->Stop();
  EXPECT_EQ(task.returns, 1);
}

TEST(ThreadTest, AFunctionThatHasStoppedItsObjectDoesNotEndTheNextThread) {
  SelfEnding self;
  Task next;
  std::atomic<bool> restarted{false};
  struct Context {
    SelfEnding& self;
    std::atomic<bool>& restarted;
  } context{self, restarted};
  self.thread->Start(&context, [](void* arg) {
    auto* const own = static_cast<Context*>(arg);
    own->self.thread->Stop();
    ++own->self.done;
    while (!own->restarted)
      std::this_thread::sleep_for(1ms);
    ++own->self.done;
  });
  ASSERT_TRUE(WaitUntil([&] { return self.done == 1; }));
  ASSERT_TRUE(self.thread->Start(&next, Task::Run));
  ASSERT_TRUE(next.WaitForCalls(1));
  restarted = true;
  ASSERT_TRUE(WaitUntil([&] { return self.done == 2; }));
  EXPECT_FALSE(WaitUntil([&] { return self.thread->GetThreadId() != next.id; }, 20ms));
  EXPECT_FALSE(self.thread->Start());
  next.release = true;
  self.thread->Stop();
  EXPECT_EQ(next.returns, 1);
}

TEST(ThreadTest, AFunctionMayDestroyItsOwnObject) {
  for (int i = 0; i < 20; ++i) {
    SelfEnding self;
    self.thread->Start(&self, [](void* arg) {
      auto* const own = static_cast<SelfEnding*>(arg);
      own->thread.reset();
      ++own->done;
    });
    ASSERT_TRUE(WaitUntil([&] { return self.done == 1; }));
  }
}

// The thread's own end and the owner's Stop and destruction meet at every moment.
TEST(ThreadTest, TheOwnerMayDestroyTheObjectWhileItsThreadEnds) {
  for (int i = 0; i < 300; ++i) {
    ShortTask task;
    auto thread = std::make_unique<CThread>("racing");
    ASSERT_TRUE(thread->Start(&task, Task::Run));
    while (i % 3 != 0 && task.returns == 0)
      std::this_thread::yield();
    if (i % 2 == 0) thread->Stop();
    thread.reset();
    ASSERT_EQ(task.returns, 1);
  }
}

TEST(ThreadTest, RenamingMayMeetTheEndOfTheThread) {
  for (int i = 0; i < 100; ++i) {
    CThread thread("renamed");
    thread.Start();
    thread.SetThreadName("other");
    thread.Stop();
  }
}

TEST(ThreadTest, StartsAndStopsOfManyThreadsLeaveNothingRunning) {
  ShortTask task;
  CThread thread("contended");
  thread.RegisterEvent(&task, Task::Run);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 50; ++round) {
        if (i % 2 == 0) {
          thread.Start();
        } else {
          thread.Stop();
        }
      }
    });
  }
  for (std::thread& each : threads)
    each.join();
  thread.Stop();
  EXPECT_TRUE(WaitUntil([&] { return task.returns == task.calls; }));
}

// Records which of its operations are called.
class Overriding : public CThread {
 public:
  Overriding() : CThread("overriding") {}
  ~Overriding() override { CThread::Stop(); }
  void SetThreadName(const char* name) override { log += std::string("name:") + name + " "; }
  bool Start() override {
    log += "start ";
    return CThread::Start();
  }
  bool Start(void* arg, void (*fn)(void* arg)) override {
    log += "start2 ";
    return CThread::Start(arg, fn);
  }
  void Stop() override { log += "stop "; }
  void Stop(int ignored) override { log += "stop:" + std::to_string(ignored) + " "; }
  void ThreadProc() override {
    log += "proc ";
    ran = true;
  }
  std::string log;
  std::atomic<bool> ran{false};
};

TEST(ThreadTest, TheVirtualTableHasItsFixedOrder) {
  Overriding thread;
  CallSlot<void>(&thread, 2, "x");
  CallSlot<void>(&thread, 5);
  CallSlot<void>(&thread, 6, 7);
  CallSlot<void>(&thread, 7);
  EXPECT_EQ(thread.log, "name:x stop stop:7 proc ");
  thread.log.clear();
  thread.ran = false;
  using Function = void (*)(void*);
  EXPECT_TRUE((CallSlot<bool, void*, Function>(&thread, 4, nullptr, nullptr)));
  EXPECT_TRUE(WaitUntil([&] { return thread.ran.load(); }));
  thread.CThread::Stop();
  // Start with a function goes through the virtual Start(), the thread through the virtual body.
  EXPECT_EQ(thread.log, "start2 start proc ");
  thread.log.clear();
  EXPECT_TRUE(CallSlot<bool>(&thread, 3));
  thread.CThread::Stop();
  EXPECT_EQ(thread.log, "start proc ");
}

}  // namespace
}  // namespace Tarn::Generic
