// Runs the cases of one test program; after each one the process must hold as many descriptors and
// threads as before it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "tests/support/Support.h"

namespace tarn_test {

namespace {

std::atomic<bool> growthAllowed{false};

class ResourceCheck : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo& /*info*/) override {
    growthAllowed = false;
    descriptors_ = OpenDescriptors();
    threads_ = LiveThreads();
  }
  void OnTestEnd(const testing::TestInfo& /*info*/) override {
    if (growthAllowed) return;
    EXPECT_TRUE(WaitUntil([this] { return OpenDescriptors() <= descriptors_; }, 2000ms))
        << "the test began with " << descriptors_ << " open descriptors and left "
        << OpenDescriptors();
    EXPECT_TRUE(WaitUntil([this] { return LiveThreads() <= threads_; }, 2000ms))
        << "the test began with " << threads_ << " threads and left " << LiveThreads();
  }
  int descriptors_ = 0;
  int threads_ = 0;
};

}  // namespace

void AllowResourceGrowth() {
  growthAllowed = true;
}

}  // namespace tarn_test

int main(int argc, char** argv) {
  // Hosts of the library must ignore the broken-pipe signal; the tests are hosts.
  std::signal(SIGPIPE, SIG_IGN);
  testing::InitGoogleMock(&argc, argv);
  // The first thread of a process makes a sanitizer start one of its own.
  std::thread([] {}).join();
  testing::UnitTest::GetInstance()->listeners().Append(new tarn_test::ResourceCheck);
  return RUN_ALL_TESTS();
}
