// The wall clock and the local calendar.
#include "utility/os/WallClock.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "tests/support/Support.h"

namespace {

using namespace tarn_test;

std::string Text(const std::tm& time) {
  char text[64];
  std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &time);
  return text;
}

TEST(WallClock, ReadsTheTimeOfDay) {
  const std::time_t before = std::time(nullptr);
  const Tarn::Os::WallTime now = Tarn::Os::ReadWallClock();
  // time() may still show the second before.
  EXPECT_GE(now.second, before);
  EXPECT_LE(now.second, std::time(nullptr) + 1);
  EXPECT_GE(now.millisecond, 0);
  EXPECT_LE(now.millisecond, 999);
}

TEST(WallClock, LocalTimeAgreesWithTheSystem) {
  for (const long second : {0L, 951782400L, 1709622489L, 4102444799L}) {
    const std::string expected =
        RunCommand("date -d @" + std::to_string(second) + " '+%Y-%m-%d %H:%M:%S'");
    EXPECT_EQ(Text(Tarn::Os::LocalTime(second)) + "\n", expected);
  }
}

TEST(WallClock, AYearThatCannotBeToldGivesZeroes) {
  const std::tm time = Tarn::Os::LocalTime(LONG_MAX);
  EXPECT_EQ(time.tm_year, 0);
  EXPECT_EQ(time.tm_mday, 0);
}

}  // namespace
