// The work queue: what is delivered, when, on which worker, and what stays queued.
#include "utility/Deque.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/DequeFaults.h"
#include "tests/support/FailingNew.h"
#include "tests/support/Slots.h"
#include "tests/support/Support.h"

namespace Tarn::Generic {
namespace {

using namespace tarn_test;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;

void* Item(intptr_t number) {
  return reinterpret_cast<void*>(number);
}
intptr_t Number(void* item) {
  return reinterpret_cast<intptr_t>(item);
}

struct Deleter {
  void operator()(IDeque* queue) const { IDeque::Delete(queue); }
};
using QueuePtr = std::unique_ptr<IDeque, Deleter>;

// A queue that stops quickly.
QueuePtr NewQueue(const char* name = "test") {
  QueuePtr queue(IDeque::Create(name));
  queue->SetWaitTime(10);
  return queue;
}

CDeque& Concrete(const QueuePtr& queue) {
  return static_cast<CDeque&>(*queue);
}

// Records deliveries; holds its callers while the gate is closed.
class Receiver {
 public:
  static void OnItem(void* arg, void* item) { static_cast<Receiver*>(arg)->Take(item); }

  [[nodiscard]] bool WaitForCount(size_t count) {
    return WaitUntil([&] { return Count() >= count; });
  }
  [[nodiscard]] size_t Count() {
    const std::lock_guard lock(mutex_);
    return numbers_.size();
  }
  [[nodiscard]] std::vector<intptr_t> Numbers() {
    const std::lock_guard lock(mutex_);
    return numbers_;
  }
  [[nodiscard]] size_t Threads() {
    const std::lock_guard lock(mutex_);
    return threads_.size();
  }
  std::atomic<bool> gateOpen{true};

 private:
  void Take(void* item) {
    {
      const std::lock_guard lock(mutex_);
      numbers_.push_back(Number(item));
      threads_.insert(std::this_thread::get_id());
    }
    while (!gateOpen)
      std::this_thread::sleep_for(1ms);
  }

  std::mutex mutex_;
  std::vector<intptr_t> numbers_;
  std::set<std::thread::id> threads_;
};

void Push(IDeque& queue, intptr_t from, intptr_t to) {
  for (intptr_t i = from; i <= to; ++i)
    queue.PushOneData(Item(i));
}

TEST(DequeTest, DeliversItemsInOrder) {
  Receiver receiver;
  const QueuePtr queue = NewQueue();
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  EXPECT_TRUE(queue->Start(1));
  Push(*queue, 1, 500);
  ASSERT_TRUE(receiver.WaitForCount(500));
  const std::vector<intptr_t> numbers = receiver.Numbers();
  for (size_t i = 0; i < numbers.size(); ++i)
    ASSERT_EQ(numbers[i], static_cast<intptr_t>(i) + 1);
  EXPECT_EQ(queue->GetLength(), 0);
}

TEST(DequeTest, AnItemPushedBeforeStartIsDeliveredAsSoonAsAWorkerWaits) {
  Receiver receiver;
  const QueuePtr queue(IDeque::Create("early"));
  queue->SetWaitTime(3000);
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  queue->PushOneData(Item(1));
  const Stopwatch watch;
  queue->Start(1);
  ASSERT_TRUE(receiver.WaitForCount(1));
  EXPECT_LT(watch.ElapsedMs(), AtMost(2500));
  queue->SetWaitTime(1);
  queue->PushOneData(Item(2));
}

TEST(DequeTest, AnIdleQueueStopsWithinItsWaitTime) {
  const QueuePtr queue(IDeque::Create("idle"));
  queue->SetWaitTime(100);
  queue->Start(2);
  const Stopwatch watch;
  queue->Stop();
  EXPECT_LT(watch.ElapsedMs(), AtMost(600));
}

// How long the Stop of an idle queue takes, in milliseconds: the first time that reaches `enough`,
// or the longest of some. On a busy machine a worker may see the stop before it first sleeps.
long IdleStopMs(long enough, const std::function<void(IDeque&)>& prepare) {
  long longest = 0;
  for (int attempt = 0; attempt < 20 && longest < enough; ++attempt) {
    const QueuePtr queue(IDeque::Create("idle"));
    prepare(*queue);
    queue->Start(1);
    std::this_thread::sleep_for(20ms);
    const Stopwatch watch;
    queue->Stop(0);
    longest = std::max(longest, watch.ElapsedMs());
  }
  return longest;
}

TEST(DequeTest, WaitsAThousandMillisecondsAtFirst) {
  const long milliseconds = IdleStopMs(500, [](IDeque& /*queue*/) {});
  EXPECT_GE(milliseconds, 500);
  EXPECT_LT(milliseconds, AtMost(5000));
}

TEST(DequeTest, ASecondStartIsRefused) {
  const QueuePtr queue = NewQueue("twice");
  EXPECT_TRUE(queue->Start(2));
  EXPECT_FALSE(queue->Start(2));
  EXPECT_TRUE(queue->IsWorking());
  queue->Stop();
  EXPECT_TRUE(queue->Start(1));
}

TEST(DequeTest, IsWorkingBetweenStartAndStop) {
  const QueuePtr queue = NewQueue();
  EXPECT_FALSE(queue->IsWorking());
  queue->Start(1);
  EXPECT_TRUE(queue->IsWorking());
  queue->Stop();
  EXPECT_FALSE(queue->IsWorking());
  queue->Stop();
  EXPECT_FALSE(queue->IsWorking());
}

TEST(DequeTest, AStartOfNoWorkersSucceedsAndDeliversNothingKept) {
  Receiver receiver;
  const QueuePtr queue = NewQueue();
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  queue->PushOneData(Item(1));
  EXPECT_TRUE(queue->Start(0));
  EXPECT_TRUE(queue->IsWorking());
  EXPECT_FALSE(queue->Start(1));
  queue->Stop();
  EXPECT_EQ(receiver.Count(), 0U);
  EXPECT_EQ(queue->GetLength(), 1);
}

TEST(DequeTest, ANegativeCountIsRefused) {
  const QueuePtr queue = NewQueue();
  EXPECT_FALSE(queue->Start(-1));
  EXPECT_FALSE(queue->Start(INT_MIN));
  EXPECT_FALSE(queue->IsWorking());
  EXPECT_TRUE(queue->Start(1));
}

TEST(DequeTest, WorkersThatCannotBeCreatedAreMissingSilentlyKept) {
  Receiver receiver;
  const QueuePtr queue = NewQueue();
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  creatingFails = true;
  EXPECT_TRUE(queue->Start(3));
  creatingFails = false;
  EXPECT_TRUE(queue->IsWorking());
  queue->SetDequeName("renamed");
  queue->PushOneData(Item(1));
  queue->Stop();
  EXPECT_EQ(queue->GetLength(), 1);
  queue->Start(1);
  EXPECT_TRUE(receiver.WaitForCount(1));
}

TEST(DequeTest, AStartWithoutMemoryIsRefused) {
  const QueuePtr queue = NewQueue();
  {
    const FailingNew failing;
    EXPECT_FALSE(queue->Start(4));
  }
  EXPECT_FALSE(queue->IsWorking());
  EXPECT_TRUE(queue->Start(1));
}

TEST(DequeTest, CreateGivesNullWithoutMemory) {
  const FailingNew failing;
  EXPECT_EQ(IDeque::Create("a name that is longer than what fits into a short text"), nullptr);
  IDeque::Delete(nullptr);
}

TEST(DequeTest, APushWithoutMemoryKeepsTheItemOutAndTellsSo) {
  const QueuePtr queue = NewQueue();
  CDeque& concrete = Concrete(queue);
  int queued = 0;
  {
    const FailingNew failing;
    while (queued < 10000 && concrete.TryPush(Item(1)))
      ++queued;
  }
  EXPECT_LT(queued, 10000);
  EXPECT_EQ(queue->GetLength(), queued);
  EXPECT_TRUE(concrete.TryPush(Item(2)));
  EXPECT_EQ(queue->GetLength(), queued + 1);
}

TEST(DequeTest, IsBeyondMaxComparesWithTheNumberOfItemsKept) {
  const QueuePtr queue = NewQueue();
  CDeque& concrete = Concrete(queue);
  EXPECT_TRUE(concrete.IsBeyondMax(0));
  EXPECT_TRUE(concrete.IsBeyondMax(-5));
  EXPECT_FALSE(concrete.IsBeyondMax(1));
  Push(*queue, 1, 2);
  EXPECT_FALSE(concrete.IsBeyondMax(3));
  Push(*queue, 3, 3);
  EXPECT_TRUE(concrete.IsBeyondMax(3));
  EXPECT_FALSE(concrete.IsBeyondMax(INT_MAX));
}

TEST(DequeTest, PopTakesTheFrontItemAndNullWhenEmpty) {
  const QueuePtr queue = NewQueue();
  CDeque& concrete = Concrete(queue);
  EXPECT_TRUE(concrete.IsDequeEmpty());
  EXPECT_EQ(concrete.PopOneFromDeque(), nullptr);
  Push(*queue, 1, 2);
  EXPECT_EQ(concrete.PopOneFromDeque(), Item(1));
  Push(*queue, 3, 4);
  EXPECT_FALSE(concrete.IsDequeEmpty());
  EXPECT_EQ(queue->GetLength(), 3);
  EXPECT_EQ(concrete.PopOneFromDeque(), Item(2));
  EXPECT_EQ(concrete.PopOneFromDeque(), Item(3));
  EXPECT_EQ(concrete.PopOneFromDeque(), Item(4));
  EXPECT_EQ(concrete.PopOneFromDeque(), nullptr);
  EXPECT_TRUE(concrete.IsDequeEmpty());
}

TEST(DequeTest, WithoutACallbackItemsAreTakenAndLostKept) {
  Receiver receiver;
  const QueuePtr queue = NewQueue();
  queue->Start(1);
  Push(*queue, 1, 3);
  EXPECT_TRUE(WaitUntil([&] { return queue->GetLength() == 0; }));
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  Push(*queue, 4, 4);
  ASSERT_TRUE(receiver.WaitForCount(1));
  EXPECT_THAT(receiver.Numbers(), ElementsAre(4));
}

TEST(DequeTest, NullItemsAreDroppedWithoutACallKept) {
  Receiver receiver;
  const QueuePtr queue = NewQueue();
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  queue->PushOneData(nullptr);
  EXPECT_EQ(queue->GetLength(), 1);
  Push(*queue, 1, 1);
  queue->PushOneData(nullptr);
  Push(*queue, 2, 2);
  queue->Start(1);
  ASSERT_TRUE(receiver.WaitForCount(2));
  EXPECT_THAT(receiver.Numbers(), ElementsAre(1, 2));
}

TEST(DequeTest, AStoppedQueueKeepsItsItemsForTheNextStartKept) {
  Receiver receiver;
  const QueuePtr queue = NewQueue();
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  queue->Start(1);
  queue->Stop();
  Push(*queue, 1, 3);
  EXPECT_EQ(queue->GetLength(), 3);
  EXPECT_EQ(receiver.Count(), 0U);
  queue->Start(1);
  ASSERT_TRUE(receiver.WaitForCount(3));
  EXPECT_THAT(receiver.Numbers(), ElementsAre(1, 2, 3));
}

TEST(DequeTest, StopDoesNotWakeAWorkerForItemsThatStayQueuedKept) {
  EXPECT_GE(IdleStopMs(100, [](IDeque& queue) { queue.SetWaitTime(300); }), 100);
}

TEST(DequeTest, ADrainEmptiesTheQueueBeforeTheWorkerNoticesAStopKept) {
  Receiver receiver;
  receiver.gateOpen = false;
  const QueuePtr queue = NewQueue();
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  Push(*queue, 1, 5);
  queue->Start(1);
  ASSERT_TRUE(receiver.WaitForCount(1));
  Push(*queue, 6, 8);
  std::thread opener([&] {
    EXPECT_TRUE(WaitUntil([&] { return !queue->IsWorking(); }));
    receiver.gateOpen = true;
  });
  queue->Stop();
  opener.join();
  EXPECT_THAT(receiver.Numbers(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
}

TEST(DequeTest, OneWorkerDrainsWhatWasQueuedBeforeTheStartKept) {
  Receiver receiver;
  const QueuePtr queue = NewQueue();
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  Push(*queue, 1, 50);
  receiver.gateOpen = false;
  queue->Start(3);
  ASSERT_TRUE(receiver.WaitForCount(1));
  // The others time out again and again meanwhile: that is no reason to take items.
  EXPECT_FALSE(WaitUntil([&] { return receiver.Count() > 1; }, 60ms));
  receiver.gateOpen = true;
  ASSERT_TRUE(receiver.WaitForCount(50));
  EXPECT_EQ(receiver.Threads(), 1U);
}

TEST(DequeTest, APushWakesAnotherWorkerWhileOneIsBusy) {
  Receiver receiver;
  receiver.gateOpen = false;
  const QueuePtr queue = NewQueue();
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  queue->Start(3);
  for (intptr_t i = 1; i <= 3; ++i) {
    Push(*queue, i, i);
    ASSERT_TRUE(receiver.WaitForCount(static_cast<size_t>(i)));
  }
  EXPECT_EQ(receiver.Threads(), 3U);
  Push(*queue, 4, 4);
  EXPECT_FALSE(WaitUntil([&] { return receiver.Count() > 3; }, 30ms));
  receiver.gateOpen = true;
  EXPECT_TRUE(receiver.WaitForCount(4));
}

// What the callback of one item sees of the others.
struct Observer {
  CDeque* queue;
  std::vector<int> lengths;
  std::vector<intptr_t> popped;
  std::atomic<int> calls{0};
};

TEST(DequeTest, ItemsNotYetDeliveredCountAsQueuedDuringADrain) {
  const QueuePtr queue = NewQueue();
  Observer observer{&Concrete(queue), {}, {}};
  queue->RegisterEvent(&observer, [](void* arg, void* /*item*/) {
    auto* const self = static_cast<Observer*>(arg);
    self->lengths.push_back(self->queue->GetLength());
    EXPECT_EQ(self->queue->IsDequeEmpty(), self->lengths.back() == 0);
    EXPECT_TRUE(self->queue->IsBeyondMax(self->lengths.back()));
    EXPECT_FALSE(self->queue->IsBeyondMax(self->lengths.back() + 1));
    ++self->calls;
  });
  Push(*queue, 1, 4);
  queue->Start(1);
  ASSERT_TRUE(WaitUntil([&] { return observer.calls == 4; }));
  queue->Stop();
  EXPECT_THAT(observer.lengths, ElementsAre(3, 2, 1, 0));
}

TEST(DequeTest, ACallbackMayTakeTheNextItemItself) {
  const QueuePtr queue = NewQueue();
  Observer observer{&Concrete(queue), {}, {}};
  queue->RegisterEvent(&observer, [](void* arg, void* item) {
    auto* const self = static_cast<Observer*>(arg);
    self->popped.push_back(Number(item));
    self->popped.push_back(Number(self->queue->PopOneFromDeque()));
    ++self->calls;
  });
  Push(*queue, 1, 5);
  queue->Start(1);
  ASSERT_TRUE(WaitUntil([&] { return observer.calls == 3; }));
  queue->Stop();
  EXPECT_THAT(observer.popped, ElementsAre(1, 2, 3, 4, 5, 0));
}

TEST(DequeTest, ACallbackMayPushAgain) {
  const QueuePtr queue = NewQueue();
  Observer observer{&Concrete(queue), {}, {}};
  queue->RegisterEvent(&observer, [](void* arg, void* item) {
    auto* const self = static_cast<Observer*>(arg);
    if (Number(item) < 100) self->queue->PushOneData(Item(Number(item) + 1));
    ++self->calls;
  });
  queue->Start(1);
  Push(*queue, 1, 1);
  EXPECT_TRUE(WaitUntil([&] { return observer.calls == 100; }));
}

TEST(DequeTest, WorkersAreNamedAfterTheQueue) {
  const QueuePtr queue = NewQueue("rx");
  EXPECT_STREQ(queue->GetDequeName(), "rx");
  queue->Start(2);
  EXPECT_THAT(ThreadNames(), Contains("rx_1"));
  EXPECT_THAT(ThreadNames(), Contains("rx_2"));
}

TEST(DequeTest, WorkerNamesOfSixteenCharactersAreNotAppliedKept) {
  const QueuePtr queue = NewQueue("12345678901234");
  queue->Start(1);
  for (const std::string& name : ThreadNames())
    EXPECT_THAT(name, Not(testing::HasSubstr("12345678")));
  const QueuePtr fitting = NewQueue("abcdefghijklm");
  fitting->Start(1);
  EXPECT_THAT(ThreadNames(), Contains("abcdefghijklm_1"));
}

TEST(DequeTest, RenamingAppliesToTheWorkers) {
  const QueuePtr queue = NewQueue("before");
  queue->Start(2);
  queue->SetDequeName("after");
  EXPECT_STREQ(queue->GetDequeName(), "after");
  EXPECT_THAT(ThreadNames(), Contains("after_1"));
  EXPECT_THAT(ThreadNames(), Contains("after_2"));
  EXPECT_THAT(ThreadNames(), Not(Contains("before_1")));
}

TEST(DequeTest, RenamingAStoppedQueueStoresTheName) {
  const QueuePtr queue = NewQueue("before");
  queue->Start(1);
  queue->Stop();
  queue->SetDequeName("after");
  EXPECT_STREQ(queue->GetDequeName(), "after");
  queue->Start(1);
  EXPECT_THAT(ThreadNames(), Contains("after_1"));
}

TEST(DequeTest, NullNamesAreEmpty) {
  const QueuePtr queue = NewQueue(nullptr);
  EXPECT_STREQ(queue->GetDequeName(), "");
  queue->SetDequeName("x");
  queue->SetDequeName(nullptr);
  EXPECT_STREQ(queue->GetDequeName(), "");
}

TEST(DequeTest, VeryLongNamesAreStoredWhole) {
  const std::string name(5000, 'n');
  const QueuePtr queue = NewQueue(name.c_str());
  EXPECT_EQ(queue->GetDequeName(), name);
  EXPECT_TRUE(queue->Start(1));
}

double CpuMs() {
  return 1000.0 * static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

TEST(DequeTest, AWaitTimeOfZeroOrBeyondTheIntegersDoesNotSpin) {
  for (const unsigned int waitTime : {0U, UINT_MAX, 0x80000000U}) {
    Receiver receiver;
    const QueuePtr queue(IDeque::Create("clamped"));
    queue->SetWaitTime(waitTime);
    queue->RegisterEvent(&receiver, Receiver::OnItem);
    queue->Start(1);
    const double before = CpuMs();
    std::this_thread::sleep_for(100ms);
    EXPECT_LT(CpuMs() - before, 60);
    queue->SetWaitTime(1);
    queue->PushOneData(Item(1));
    EXPECT_TRUE(receiver.WaitForCount(1));
  }
}

TEST(DequeTest, DeleteStopsARunningQueueAndDropsItsItemsKept) {
  Receiver receiver;
  QueuePtr queue = NewQueue();
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  Push(*queue, 1, 3);
  queue->Start(0);
  queue.reset();
  EXPECT_EQ(receiver.Count(), 0U);
}

TEST(DequeTest, ManyProducersAndWorkersDeliverEveryItemOnce) {
  constexpr intptr_t kProducers = 3;
  constexpr intptr_t kItems = 3000;
  std::vector<std::atomic<int>> seen(kProducers * kItems + 1);
  const QueuePtr queue = NewQueue();
  queue->RegisterEvent(&seen, [](void* arg, void* item) {
    ++(*static_cast<std::vector<std::atomic<int>>*>(arg))[static_cast<size_t>(Number(item))];
  });
  queue->Start(3);
  std::vector<std::thread> producers;
  for (intptr_t i = 0; i < kProducers; ++i) {
    producers.emplace_back([&, i] { Push(*queue, i * kItems + 1, (i + 1) * kItems); });
  }
  for (std::thread& producer : producers)
    producer.join();
  EXPECT_TRUE(WaitUntil([&] { return queue->GetLength() == 0; }));
  queue->Stop();
  for (size_t i = 1; i < seen.size(); ++i)
    ASSERT_EQ(seen[i], 1) << i;
}

TEST(DequeTest, SettingsMayChangeWhileWorkersRun) {
  Receiver receiver;
  const QueuePtr queue = NewQueue();
  queue->Start(2);
  for (int i = 0; i < 100; ++i) {
    queue->RegisterEvent(&receiver, Receiver::OnItem);
    queue->SetWaitTime(static_cast<unsigned int>(1 + i % 5));
    queue->SetDequeName(i % 2 == 0 ? "even" : "odd");
    Push(*queue, 1, 1);
  }
  EXPECT_TRUE(receiver.WaitForCount(100));
}

TEST(DequeTest, ConcurrentStopsEndTheWorkersOnce) {
  for (int i = 0; i < 10; ++i) {
    const QueuePtr queue = NewQueue();
    queue->SetWaitTime(2);
    queue->Start(2);
    std::thread other([&] { queue->Stop(); });
    queue->Stop();
    other.join();
    EXPECT_FALSE(queue->IsWorking());
  }
}

TEST(DequeTest, ACallbackThatStopsItsQueueDoesNotHang) {
  const QueuePtr queue = NewQueue();
  Observer observer{&Concrete(queue), {}, {}};
  queue->RegisterEvent(&observer, [](void* arg, void* /*item*/) {
    auto* const self = static_cast<Observer*>(arg);
    self->queue->Stop();
    ++self->calls;
  });
  queue->Start(3);
  Push(*queue, 1, 1);
  ASSERT_TRUE(WaitUntil([&] { return observer.calls == 1; }));
  EXPECT_FALSE(queue->IsWorking());
  Receiver receiver;
  queue->RegisterEvent(&receiver, Receiver::OnItem);
  EXPECT_TRUE(queue->Start(1));
  Push(*queue, 2, 2);
  EXPECT_TRUE(receiver.WaitForCount(1));
}

TEST(DequeTest, ACallbackThatDeletesItsQueueLeavesItAlone) {
  struct Owner {
    IDeque* queue;
    std::atomic<int> calls{0};
  };
  for (int i = 0; i < 10; ++i) {
    Owner owner{NewQueue().release()};
    owner.queue->RegisterEvent(&owner, [](void* arg, void* /*item*/) {
      auto* const self = static_cast<Owner*>(arg);
      IDeque::Delete(self->queue);
      ++self->calls;
    });
    Push(*owner.queue, 1, 3);
    owner.queue->Start(2);
    ASSERT_TRUE(WaitUntil([&] { return owner.calls == 1; }));
  }
}

TEST(DequeTest, TheVirtualTableHasItsFixedOrder) {
  Receiver receiver;
  const QueuePtr owner(IDeque::Create("slots"));
  void* const queue = owner.get();
  CallSlot<void>(queue, 10, 10U);                          // SetWaitTime
  CallSlot<void>(queue, 9, Item(7));                       // PushOneData
  EXPECT_EQ(CallSlot<int>(queue, 5), 1);                   // GetLength
  EXPECT_TRUE(CallSlot<bool>(queue, 12, 1));               // IsBeyondMax
  EXPECT_FALSE(CallSlot<bool>(queue, 13));                 // IsDequeEmpty
  EXPECT_EQ(CallSlot<void*>(queue, 14), Item(7));          // PopOneFromDeque
  CallSlot<void>(queue, 15);                               // ThreadProc: not started, ends at once
  CallSlot<void>(queue, 6, "named");                       // SetDequeName
  EXPECT_STREQ(CallSlot<const char*>(queue, 7), "named");  // GetDequeName
  CallSlot<void, void*, void (*)(void*, void*)>(queue, 8, &receiver, Receiver::OnItem);
  EXPECT_TRUE(CallSlot<bool>(queue, 2, 1));  // Start
  EXPECT_TRUE(CallSlot<bool>(queue, 11));    // IsWorking
  CallSlot<void>(queue, 3);                  // Stop
  EXPECT_FALSE(CallSlot<bool>(queue, 11));
  EXPECT_TRUE(CallSlot<bool>(queue, 2, 1));
  CallSlot<void>(queue, 4, 5);  // Stop(int)
  EXPECT_FALSE(CallSlot<bool>(queue, 11));
}

}  // namespace
}  // namespace Tarn::Generic
