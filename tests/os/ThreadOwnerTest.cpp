// Threads whose handles live in fields: every order of their ends.
#include "utility/os/ThreadOwner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

#include "tests/support/Support.h"

namespace Tarn::Os {
namespace {

using namespace tarn_test;
using testing::Contains;

// An object with one thread, as the classes above have them.
struct Owner {
  ThreadHandle handle{0};
  std::atomic<int> running{0};
  std::atomic<bool> release{false};
  std::atomic<bool> returned{false};
  std::atomic<int> orphan{-1};
  std::atomic<int> detached{-1};

  static void* Wait(void* arg) {
    auto* const self = static_cast<Owner*>(arg);
    while (!self->release)
      std::this_thread::sleep_for(1ms);
    self->returned = true;
    return nullptr;
  }
  // Ends by itself and tells whether the handle was still its own.
  static void* EndAlone(void* arg) {
    auto* const self = static_cast<Owner*>(arg);
    while (!self->release)
      std::this_thread::sleep_for(1ms);
    const bool detached = DetachSelf(
        self->handle, [](void* object) { static_cast<Owner*>(object)->running = 0; }, self);
    self->detached = detached ? 1 : 0;
    return nullptr;
  }
  // Stops itself, as a callback may do.
  static void* StopSelf(void* arg) {
    auto* const self = static_cast<Owner*>(arg);
    while (!self->release)
      std::this_thread::sleep_for(1ms);
    JoinThread(self->handle);
    self->orphan = IsOrphan() ? 1 : 0;
    return nullptr;
  }
};

TEST(ThreadOwnerTest, StartsNamesAndJoins) {
  Owner owner;
  ASSERT_EQ(StartThread(owner.handle, Owner::Wait, &owner, "owned_thread"), 0);
  EXPECT_NE(owner.handle, 0U);
  EXPECT_THAT(ThreadNames(), Contains("owned_thread"));
  owner.release = true;
  EXPECT_TRUE(JoinThread(owner.handle));
  EXPECT_TRUE(owner.returned);
  EXPECT_EQ(owner.handle, 0U);
}

TEST(ThreadOwnerTest, ANameThatIsTooLongIsNotAppliedKept) {
  Owner owner;
  ASSERT_EQ(StartThread(owner.handle, Owner::Wait, &owner, "a_name_of_sixteen"), 0);
  EXPECT_EQ(NameThread(owner.handle, "a_name_of_sixteen"), ERANGE);
  EXPECT_EQ(NameThread(owner.handle, "short_name"), 0);
  EXPECT_THAT(ThreadNames(), Contains("short_name"));
  owner.release = true;
  JoinThread(owner.handle);
}

TEST(ThreadOwnerTest, WithoutAThreadThereIsNothingToJoinOrName) {
  ThreadHandle handle{0};
  EXPECT_FALSE(JoinThread(handle));
  EXPECT_EQ(NameThread(handle, "nobody"), ESRCH);
  EXPECT_FALSE(IsSelf(handle));
}

TEST(ThreadOwnerTest, TheRunningFlagMovesWithTheHandle) {
  Owner owner;
  ASSERT_EQ(StartThread(owner.handle, owner.running, Owner::Wait, &owner, "flagged"), 0);
  EXPECT_EQ(owner.running, 1);
  const pthread_t first = owner.handle;
  EXPECT_EQ(StartThread(owner.handle, owner.running, Owner::Wait, &owner, "flagged"), EALREADY);
  EXPECT_EQ(owner.handle, first);
  owner.release = true;
  EXPECT_TRUE(JoinThread(owner.handle, owner.running));
  EXPECT_EQ(owner.running, 0);
  EXPECT_FALSE(JoinThread(owner.handle, owner.running));
}

TEST(ThreadOwnerTest, AThreadThatEndsAloneTakesItsHandle) {
  Owner owner;
  StartThread(owner.handle, owner.running, Owner::EndAlone, &owner, "alone");
  owner.release = true;
  EXPECT_TRUE(WaitUntil([&] { return owner.detached == 1; }));
  EXPECT_EQ(owner.handle, 0U);
  EXPECT_EQ(owner.running, 0);
  EXPECT_FALSE(JoinThread(owner.handle, owner.running));
}

TEST(ThreadOwnerTest, AThreadThatIsBeingJoinedDoesNotDetach) {
  Owner owner;
  StartThread(owner.handle, owner.running, Owner::EndAlone, &owner, "joined");
  std::thread joiner([&] { JoinThread(owner.handle, owner.running); });
  EXPECT_TRUE(WaitUntil([&] { return owner.handle == 0U; }));
  owner.release = true;
  joiner.join();
  EXPECT_EQ(owner.detached, 0);
}

TEST(ThreadOwnerTest, AThreadThatStopsItselfIsAnOrphan) {
  Owner owner;
  StartThread(owner.handle, Owner::StopSelf, &owner, "self");
  owner.release = true;
  EXPECT_TRUE(WaitUntil([&] { return owner.orphan == 1; }));
  EXPECT_EQ(owner.handle, 0U);
  EXPECT_FALSE(IsOrphan());
}

TEST(ThreadOwnerTest, KnowsItsOwnHandle) {
  ThreadHandle handle{pthread_self()};
  EXPECT_TRUE(IsSelf(handle));
  bool other = true;
  std::thread([&] { other = IsSelf(handle); }).join();
  EXPECT_FALSE(other);
}

TEST(ThreadOwnerTest, EndsAndJoinsMayMeetAtEveryMoment) {
  for (int i = 0; i < 300; ++i) {
    Owner owner;
    owner.release = true;
    ASSERT_EQ(StartThread(owner.handle, owner.running, Owner::EndAlone, &owner, "racing"), 0);
    if (i % 2 == 0) std::this_thread::yield();
    if (!JoinThread(owner.handle, owner.running)) {
      ASSERT_TRUE(WaitUntil([&] { return owner.detached == 1; }));
    }
  }
}

}  // namespace
}  // namespace Tarn::Os
