// Deadlines as the platform's timed waits take them.
#include "utility/core/Deadline.h"

#include <gtest/gtest.h>

#include <climits>

namespace Tarn::Core {
namespace {

TEST(DeadlineTest, CarriesAFullSecondOfNanoseconds) {
  const timespec deadline = DeadlineAfter({100, 600'000'000}, 1500);
  EXPECT_EQ(deadline.tv_sec, 102);
  EXPECT_EQ(deadline.tv_nsec, 100'000'000);
}

TEST(DeadlineTest, KeepsTheLastNanosecondOfASecond) {
  const timespec deadline = DeadlineAfter({100, 999'999}, 999);
  EXPECT_EQ(deadline.tv_sec, 100);
  EXPECT_EQ(deadline.tv_nsec, 999'999'999);
}

TEST(DeadlineTest, CarriesExactlyOneSecond) {
  const timespec deadline = DeadlineAfter({100, 500'000'000}, 500);
  EXPECT_EQ(deadline.tv_sec, 101);
  EXPECT_EQ(deadline.tv_nsec, 0);
}

TEST(DeadlineTest, LeavesTheMomentForNoTime) {
  const timespec deadline = DeadlineAfter({7, 8}, 0);
  EXPECT_EQ(deadline.tv_sec, 7);
  EXPECT_EQ(deadline.tv_nsec, 8);
}

TEST(DeadlineTest, DoesNotBorrowForNegativeTimesKept) {
  const timespec refused = DeadlineAfter({100, 300'000'000}, -400);
  EXPECT_EQ(refused.tv_sec, 100);
  EXPECT_EQ(refused.tv_nsec, -100'000'000);
  const timespec past = DeadlineAfter({100, 300'000'000}, -1200);
  EXPECT_EQ(past.tv_sec, 99);
  EXPECT_EQ(past.tv_nsec, 100'000'000);
}

TEST(DeadlineTest, TakesTheWholeRangeOfMilliseconds) {
  const timespec late = DeadlineAfter({100, 0}, INT_MAX);
  EXPECT_EQ(late.tv_sec, 100 + 2'147'483);
  EXPECT_EQ(late.tv_nsec, 647'000'000);
  const timespec early = DeadlineAfter({100, 0}, INT_MIN);
  EXPECT_EQ(early.tv_sec, 100 - 2'147'483);
  EXPECT_EQ(early.tv_nsec, -648'000'000);
}

}  // namespace
}  // namespace Tarn::Core
