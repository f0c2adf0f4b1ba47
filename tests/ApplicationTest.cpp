// Thread names and GUIDs.
#include <Tarn/Generic/Application.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/FailingNew.h"
#include "tests/support/Support.h"

namespace Tarn::Generic {
namespace {

using namespace tarn_test;

// Needs to be the first GUID of its process.
TEST(ApplicationTest, TheFirstGuidNeedsNoMemory) {
  const char* guid = nullptr;
  {
    const FailingNew failing;
    guid = CApplication().CreateGuid();
  }
  EXPECT_EQ(std::strlen(guid), 36U);
}

// Runs `body` on a thread of its own, so that the name of the test's thread stays.
template <typename Body>
void OnAnotherThread(Body body) {
  std::thread(body).join();
}

std::string OwnName() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof(name));
  return name;
}

TEST(ApplicationTest, NamesAThread) {
  OnAnotherThread([] {
    EXPECT_EQ(CApplication().SetThreadName(pthread_self(), "reader"), 0);
    EXPECT_EQ(OwnName(), "reader");
    EXPECT_THAT(ThreadNames(), testing::Contains("reader"));
  });
}

TEST(ApplicationTest, AcceptsNamesOfFifteenCharacters) {
  OnAnotherThread([] {
    EXPECT_EQ(CApplication().SetThreadName(pthread_self(), "123456789012345"), 0);
    EXPECT_EQ(OwnName(), "123456789012345");
    EXPECT_EQ(CApplication().SetThreadName(pthread_self(), ""), 0);
    EXPECT_EQ(OwnName(), "");
  });
}

TEST(ApplicationTest, DoesNotApplyLongerNamesKept) {
  OnAnotherThread([] {
    CApplication application;
    application.SetThreadName(pthread_self(), "before");
    EXPECT_EQ(application.SetThreadName(pthread_self(), "1234567890123456"), ERANGE);
    EXPECT_EQ(OwnName(), "before");
  });
}

TEST(ApplicationTest, RefusesNoThreadAndNoName) {
  EXPECT_EQ(CApplication().SetThreadName(0, "nobody"), ESRCH);
  EXPECT_EQ(CApplication().SetThreadName(pthread_self(), nullptr), EINVAL);
}

TEST(ApplicationTest, GuidsShareOneBufferThatHoldsTheLastKept) {
  CApplication one;
  CApplication two;
  char* const first = one.CreateGuid();
  const std::string firstText = first;
  char* const second = two.CreateGuid();
  EXPECT_EQ(first, second);
  EXPECT_STRNE(firstText.c_str(), second);
}

TEST(ApplicationTest, GuidsAreRandomOnesInLowerCase) {
  const std::string guid = CApplication().CreateGuid();
  int status = -1;
  EXPECT_EQ(
      RunCommand("python3 -c 'import uuid,sys; u=uuid.UUID(sys.argv[1]); "
                 "print(u.version, u.variant==uuid.RFC_4122, str(u)==sys.argv[1], end=\"\")' " +
                     guid,
                 &status),
      "4 True True");
  EXPECT_EQ(status, 0);
}

TEST(ApplicationTest, ManyThreadsMayMakeGuidsAtOnce) {
  char* const buffer = CApplication().CreateGuid();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 200; ++round)
        CApplication().CreateGuid();
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(std::strlen(buffer), 36U);
}

}  // namespace
}  // namespace Tarn::Generic
