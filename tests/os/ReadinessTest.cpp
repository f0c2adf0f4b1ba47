// Waiting for many descriptors.
#include "utility/os/Readiness.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "tests/support/Support.h"

namespace {

using Tarn::Os::Descriptor;
using Tarn::Os::Readiness;
using namespace tarn_test;

struct Pipe {
  Pipe() {
    int fds[2] = {-1, -1};
    EXPECT_EQ(pipe(fds), 0);
    out.Reset(fds[0]);
    in.Reset(fds[1]);
  }
  void Fill() const { EXPECT_EQ(write(in.Get(), "x", 1), 1); }
  Descriptor out;
  Descriptor in;
};

std::vector<uint64_t> Ready(Readiness& readiness, int timeoutMs) {
  const auto ready = readiness.Wait(timeoutMs);
  return {ready.begin(), ready.end()};
}

TEST(Readiness, ReportsIdsInAscendingOrder) {
  Readiness readiness;
  ASSERT_EQ(readiness.Open(), 0);
  std::vector<Pipe> pipes(4);
  const uint64_t ids[] = {40, 10, 1ULL << 40, 20};
  for (size_t i = 0; i < pipes.size(); ++i) {
    ASSERT_EQ(readiness.Add(pipes[i].out.Get(), ids[i]), 0);
    if (i != 3) pipes[i].Fill();
  }
  EXPECT_EQ(Ready(readiness, 1000), (std::vector<uint64_t>{10, 40, 1ULL << 40}));
}

TEST(Readiness, IsEmptyAfterTheTimeOut) {
  Readiness readiness;
  ASSERT_EQ(readiness.Open(), 0);
  const Stopwatch watch;
  EXPECT_TRUE(Ready(readiness, 50).empty());
  EXPECT_GE(watch.ElapsedMs(), 45);
}

TEST(Readiness, AnEndOfStreamIsReadable) {
  Readiness readiness;
  ASSERT_EQ(readiness.Open(), 0);
  Pipe pipe;
  ASSERT_EQ(readiness.Add(pipe.out.Get(), 5), 0);
  pipe.in.Reset();
  EXPECT_EQ(Ready(readiness, 1000), (std::vector<uint64_t>{5}));
}

TEST(Readiness, ForgetsWhatIsRemoved) {
  Readiness readiness;
  ASSERT_EQ(readiness.Open(), 0);
  Pipe pipe;
  ASSERT_EQ(readiness.Add(pipe.out.Get(), 5), 0);
  pipe.Fill();
  readiness.Remove(pipe.out.Get());
  readiness.Remove(pipe.out.Get());
  EXPECT_TRUE(Ready(readiness, 20).empty());
}

TEST(Readiness, AddingWakesAnOngoingWait) {
  Readiness readiness;
  ASSERT_EQ(readiness.Open(), 0);
  Pipe pipe;
  pipe.Fill();
  const Stopwatch watch;
  std::thread adder([&] { EXPECT_EQ(readiness.Add(pipe.out.Get(), 9), 0); });
  EXPECT_EQ(Ready(readiness, 5000), (std::vector<uint64_t>{9}));
  EXPECT_LT(watch.ElapsedMs(), AtMost(3000));
  adder.join();
}

TEST(Readiness, OpeningAnewForgetsEverything) {
  Readiness readiness;
  ASSERT_EQ(readiness.Open(), 0);
  Pipe pipe;
  pipe.Fill();
  ASSERT_EQ(readiness.Add(pipe.out.Get(), 1), 0);
  ASSERT_EQ(readiness.Open(), 0);
  EXPECT_TRUE(Ready(readiness, 20).empty());
}

TEST(Readiness, FailuresNeitherCrashNorSpin) {
  Readiness readiness;
  EXPECT_LT(readiness.Add(0, 1), 0);
  const Stopwatch watch;
  EXPECT_TRUE(Ready(readiness, 50).empty());
  EXPECT_GE(watch.ElapsedMs(), 45);
}

}  // namespace
