// Calendar time, day arithmetic, the clock and the sleep.
#include <Tarn/Generic/DateTime.h>

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Support.h"

namespace {

std::atomic<bool> calendarFails{false};

}  // namespace

// Stands in front of the platform's own.
extern "C" tm* localtime_r(const time_t* seconds, tm* parts) noexcept {
  static const auto next =
      reinterpret_cast<tm* (*)(const time_t*, tm*)>(dlsym(RTLD_NEXT, "localtime_r"));
  if (!calendarFails) return next(seconds, parts);
  memset(parts, 0x55, sizeof(*parts));
  return nullptr;
}

namespace {

using Tarn::_SYSTEMTIME;
using Tarn::Generic::CDateTime;
using tarn_test::AtMost;
using tarn_test::Stopwatch;
using tarn_test::WaitUntil;

void UseZone(const char* zone) {
  setenv("TZ", zone, 1);
  tzset();
}

std::string ToString(CDateTime time, const char* format) {
  return time.ToString(format);
}

// Year, month, day, hour, minute, second, milliseconds.
std::vector<int> Parts(CDateTime time) {
  return {time.Year(),   time.Month(),  time.Day(),         time.Hour(),
          time.Minute(), time.Second(), time.Milliseconds()};
}

std::vector<int> Parse(const char* text) {
  return Parts(CDateTime(text));
}

class DateTime : public testing::Test {
 protected:
  DateTime() { UseZone("UTC0"); }
};

// Layout

TEST_F(DateTime, HasTheLayoutThatHostsAllocate) {
  static_assert(sizeof(_SYSTEMTIME) == 16 && std::is_trivially_copyable<_SYSTEMTIME>::value);
  static_assert(offsetof(_SYSTEMTIME, year) == 0 && offsetof(_SYSTEMTIME, month) == 2);
  static_assert(offsetof(_SYSTEMTIME, dayOfWeek) == 4 && offsetof(_SYSTEMTIME, day) == 6);
  static_assert(offsetof(_SYSTEMTIME, hour) == 8 && offsetof(_SYSTEMTIME, minute) == 10);
  static_assert(offsetof(_SYSTEMTIME, second) == 12 && offsetof(_SYSTEMTIME, milliseconds) == 14);
  static_assert(sizeof(CDateTime) == 80);
  CDateTime time(123456789L);
  const auto* bytes = reinterpret_cast<const char*>(&time);
  EXPECT_EQ(time.ToString(nullptr), bytes + 16);
  int64_t seconds = 0;
  memcpy(&seconds, bytes + 72, sizeof(seconds));
  EXPECT_EQ(seconds, 123456789);
}

// Construction

TEST_F(DateTime, IsNowInLocalTime) {
  UseZone("XYZ-05:45");
  const std::string before = tarn_test::Today("%Y-%m-%d %H:%M:%S");
  CDateTime now;
  const std::string after = tarn_test::Today("%Y-%m-%d %H:%M:%S");
  const std::string text = now.ToString("yyyy-MM-dd hh:mm:ss");
  EXPECT_GE(text, before);
  EXPECT_LE(text, after);
  EXPECT_EQ(now.ToTime(), 0);
  EXPECT_LT(now.Milliseconds(), 1000);
  EXPECT_LT(now.DayOfWeek(), 7);
}

TEST_F(DateTime, ComesFormattedWhenMadeOfTheCurrentTime) {
  CDateTime now;
  const char* text = reinterpret_cast<const char*>(&now) + 16;
  const std::string formatted = text;
  EXPECT_EQ(formatted.size(), 23U);
  EXPECT_EQ(formatted, now.ToString(nullptr));
}

TEST_F(DateTime, FromSecondsCountsYearsFrom1900AndMonthsFromZeroKept) {
  CDateTime epoch(0L);
  EXPECT_THAT(Parts(epoch), testing::ElementsAre(70, 0, 1, 0, 0, 0, 0));
  EXPECT_EQ(epoch.DayOfWeek(), 4);
  EXPECT_STREQ(epoch.ToString("yyyy-MM-dd"), "0070-00-01");
  CDateTime later(1709622489L);  // 2024-03-05 07:08:09
  EXPECT_THAT(Parts(later), testing::ElementsAre(124, 2, 5, 7, 8, 9, 0));
  EXPECT_EQ(later.DayOfWeek(), 2);
  EXPECT_EQ(later.ToTime(), 1709622489);
}

TEST_F(DateTime, FromSecondsUsesLocalTime) {
  UseZone("XYZ-05:45");
  EXPECT_THAT(Parts(CDateTime(0L)), testing::ElementsAre(70, 0, 1, 5, 45, 0, 0));
}

TEST_F(DateTime, FromSecondsBeforeTheEpoch) {
  CDateTime time(-1L);
  EXPECT_THAT(Parts(time), testing::ElementsAre(69, 11, 31, 23, 59, 59, 0));
  EXPECT_EQ(time.ToTime(), -1);
}

TEST_F(DateTime, FromSecondsBeyondTheCalendarIsZero) {
  for (const long seconds : {LONG_MAX, LONG_MIN}) {
    CDateTime time(seconds);
    EXPECT_THAT(Parts(time), testing::Each(0));
    EXPECT_EQ(time.DayOfWeek(), 0);
    EXPECT_EQ(time.ToTime(), seconds);
  }
}

TEST_F(DateTime, ReadsBothTextForms) {
  EXPECT_THAT(Parse("2024-03-05 07:08:09.123"), testing::ElementsAre(2024, 3, 5, 7, 8, 9, 123));
  EXPECT_THAT(Parse("2024/03/05 07:08:09.123"), testing::ElementsAre(2024, 3, 5, 7, 8, 9, 123));
  EXPECT_THAT(Parse("2024/03/05"), testing::ElementsAre(2024, 3, 5, 0, 0, 0, 0));
  EXPECT_THAT(Parse("2024-3-5 7:8"), testing::ElementsAre(2024, 3, 5, 7, 8, 0, 0));
}

TEST_F(DateTime, ADashAnywhereChoosesTheDashFormKept) {
  EXPECT_THAT(Parse("2024/03/05 -"), testing::ElementsAre(2024, 0, 0, 0, 0, 0, 0));
  EXPECT_THAT(Parse("2024.03.05"), testing::ElementsAre(2024, 0, 0, 0, 0, 0, 0));
}

TEST_F(DateTime, WhatIsNoTimeIsZero) {
  EXPECT_THAT(Parse(""), testing::Each(0));
  EXPECT_THAT(Parse("yesterday"), testing::Each(0));
  EXPECT_THAT(Parse(nullptr), testing::Each(0));
}

TEST_F(DateTime, AReadTextSetsNeitherWeekdayNorSecondsKept) {
  CDateTime time("2024-03-05 07:08:09.123");
  EXPECT_EQ(time.DayOfWeek(), 0);
  EXPECT_EQ(time.ToTime(), 0);
}

TEST_F(DateTime, ACopyTakesEverything) {
  CDateTime time(86400L);
  CDateTime copy(time);
  EXPECT_EQ(copy.ToTime(), 86400);
  EXPECT_EQ(Parts(copy), Parts(time));
}

TEST_F(DateTime, AnAssignmentTakesTheCalendarTimeOnlyKept) {
  CDateTime time(1000L);
  const std::string text = time.ToString("hh:mm:ss");
  const char* buffer = reinterpret_cast<const char*>(&time) + 16;
  CDateTime other("2024-03-05 07:08:09");
  EXPECT_EQ(&(time = other), &time);
  EXPECT_EQ(time.Year(), 2024);
  EXPECT_EQ(time.ToTime(), 1000);
  EXPECT_EQ(buffer, text);
  const CDateTime& same = time;
  time = same;
  EXPECT_EQ(time.Year(), 2024);
}

// Access

TEST_F(DateTime, NowRefillsTheCalendarTimeOnlyKept) {
  CDateTime time(5L);
  const std::string text = time.ToString("hh:mm:ss");
  EXPECT_EQ(&time.Now(), &time);
  EXPECT_EQ(std::to_string(time.Year()), tarn_test::Today("%Y"));
  EXPECT_EQ(time.ToTime(), 5);
  EXPECT_EQ(reinterpret_cast<const char*>(&time) + 16, text);
}

TEST_F(DateTime, GivesItsRecord) {
  const _SYSTEMTIME record = CDateTime("2024-03-05 07:08:09.123").GetTime();
  EXPECT_EQ(record.year, 2024);
  EXPECT_EQ(record.month, 3);
  EXPECT_EQ(record.day, 5);
  EXPECT_EQ(record.hour, 7);
  EXPECT_EQ(record.minute, 8);
  EXPECT_EQ(record.second, 9);
  EXPECT_EQ(record.milliseconds, 123);
  EXPECT_EQ(record.dayOfWeek, 0);
}

// Arithmetic

TEST_F(DateTime, DifferencesAndOrderAreThoseOfTheSeconds) {
  CDateTime early(1000L);
  CDateTime late(87401L);
  EXPECT_EQ(late - early, 86401);
  EXPECT_EQ(early - late, -86401);
  EXPECT_TRUE(late > early);
  EXPECT_FALSE(early > late);
  EXPECT_FALSE(early > early);
  CDateTime most(LONG_MAX);
  CDateTime least(LONG_MIN);
  EXPECT_EQ(most - least, -1);
}

TEST_F(DateTime, DaysThatHaveBegunCountOnBothSidesOfZeroKept) {
  const auto days = [](long from, long to) {
    CDateTime a(to);
    CDateTime b(from);
    return a.DaysTo(b);
  };
  EXPECT_EQ(days(1000, 87401), 2);
  EXPECT_EQ(days(87401, 1000), 0);
  EXPECT_EQ(days(0, 86400), 1);
  EXPECT_EQ(days(0, 1), 1);
  EXPECT_EQ(days(0, 0), 0);
  EXPECT_EQ(days(1, 0), 1);
  EXPECT_EQ(days(86400, 0), -1);
  EXPECT_EQ(days(86401, 0), 0);
}

TEST_F(DateTime, DaysComeFromADifferenceOf32BitsKept) {
  CDateTime late(0x100000000L + 86400);
  CDateTime early(0L);
  EXPECT_EQ(late.DaysTo(early), 1);
  CDateTime half(0x80000000L);
  EXPECT_EQ(half.DaysTo(early), INT_MIN / 86400 + 1);
}

TEST_F(DateTime, AddsDays) {
  CDateTime time(1000L);
  EXPECT_EQ(time.AddDays(1).ToTime(), 87400);
  EXPECT_EQ(time.AddDays(-1).ToTime(), -85400);
  EXPECT_EQ(time.AddDays(0).ToTime(), 1000);
  EXPECT_EQ(time.AddDays(24855).ToTime(), 1000 + 24855L * 86400);
  EXPECT_THAT(Parts(time.AddDays(31)), testing::ElementsAre(70, 1, 1, 0, 16, 40, 0));
}

TEST_F(DateTime, DaysBeyondA32BitProductWrapKept) {
  CDateTime time(0L);
  EXPECT_EQ(time.AddDays(24856).ToTime(), 24856L * 86400 - 0x100000000L);
  EXPECT_EQ(time.AddDays(INT_MAX).ToTime(), static_cast<int>(0x7fffffffU * 86400U));
  EXPECT_EQ(time.AddDays(INT_MIN).ToTime(), 0);
  EXPECT_EQ(CDateTime(LONG_MAX).AddDays(1).ToTime(), LONG_MIN + 86399);
}

TEST_F(DateTime, ArithmeticIgnoresTimesThatWereNotMadeOfSecondsKept) {
  CDateTime now;
  CDateTime read("2024-03-05");
  EXPECT_EQ(now - read, 0);
  EXPECT_EQ(read.AddDays(2).ToTime(), 172800);
}

TEST_F(DateTime, KnowsTheLengthOfEveryMonth) {
  CDateTime time(0L);
  EXPECT_EQ(time.GetDaysInMonth(1900, 2), 28);
  EXPECT_EQ(time.GetDaysInMonth(2000, 2), 29);
  EXPECT_EQ(time.GetDaysInMonth(2024, 2), 29);
  EXPECT_EQ(time.GetDaysInMonth(2023, 2), 28);
  std::string ours;
  for (int year = 1896; year <= 2104; ++year) {
    for (int month = 1; month <= 12; ++month) {
      ours += std::to_string(time.GetDaysInMonth(year, month)) + " ";
    }
  }
  EXPECT_EQ(ours, tarn_test::RunCommand("python3 -c \"import calendar\n"
                                        "for y in range(1896, 2105):\n"
                                        "  for m in range(1, 13):\n"
                                        "    print(calendar.monthrange(y, m)[1], end=' ')\""));
}

TEST_F(DateTime, AMonthThatIsNoneHasNoDays) {
  CDateTime time(0L);
  for (const int month : {0, 13, -1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(time.GetDaysInMonth(2024, month), 0);
  }
}

// Formatting

TEST_F(DateTime, FormatsByWholeKeywords) {
  CDateTime time("2024-03-05 07:08:09.012");
  EXPECT_STREQ(time.ToString(nullptr), "2024-03-05 07:08:09.012");
  EXPECT_STREQ(time.ToString("yyyy-MM-dd"), "2024-03-05");
  EXPECT_STREQ(time.ToString("yyyy/MM/dd"), "2024/03/05");
  EXPECT_STREQ(time.ToString("yyyy.MM.dd"), "2024.03.05");
  EXPECT_STREQ(time.ToString("yyyyMMdd"), "20240305");
  EXPECT_STREQ(time.ToString("yyyy-MM-dd hh:mm:ss"), "2024-03-05 07:08:09");
  EXPECT_STREQ(time.ToString("hh:mm:ss"), "07:08:09");
  EXPECT_STREQ(time.ToString("hhmmss"), "070809");
  EXPECT_STREQ(time.ToString("hh:mm:ss.mi"), "07:08:09.012");
  EXPECT_STREQ(time.ToString("hh.mm"), "07.08");
  EXPECT_STREQ(time.ToString("yyyyMMddhhmmss.mi"), "20240305070809.012");
}

TEST_F(DateTime, AnyOtherFormatGivesTheEmptyTextKept) {
  CDateTime time("2024-03-05 07:08:09.012");
  for (const char* format : {"HH:mm:ss", "yyyy-MM-dd hh:mm", "", " yyyyMMdd", "yyyyMMdd ", "%s"}) {
    EXPECT_STREQ(time.ToString(format), "") << format;
  }
}

TEST_F(DateTime, ShortYearsArePaddedWithZerosOrBlanksKept) {
  CDateTime time("70-01-02 03:04:05.006");
  EXPECT_STREQ(time.ToString("yyyy-MM-dd"), "0070-01-02");
  EXPECT_STREQ(time.ToString("yyyy/MM/dd"), "0070/01/02");
  EXPECT_STREQ(time.ToString("yyyy.MM.dd"), "0070.01.02");
  EXPECT_STREQ(time.ToString("yyyyMMdd"), "00700102");
  EXPECT_STREQ(time.ToString(nullptr), "  70-01-02 03:04:05.006");
  EXPECT_STREQ(time.ToString("yyyy-MM-dd hh:mm:ss"), "  70-01-02 03:04:05");
  EXPECT_STREQ(time.ToString("yyyyMMddhhmmss.mi"), "  700102030405.006");
}

TEST_F(DateTime, TheWidestValuesFitTheText) {
  CDateTime time("65535-65535-65535 65535:65535:65535.65535");
  EXPECT_STREQ(time.ToString(nullptr), "65535-65535-65535 65535:65535:65535.65535");
}

TEST_F(DateTime, FormatsIntoItsOwnBufferAndClearsTheRest) {
  CDateTime time("2024-03-05 07:08:09.012");
  char* text = time.ToString(nullptr);
  EXPECT_EQ(time.ToString("hh.mm"), text);
  EXPECT_EQ(std::string(text, 50), "07.08" + std::string(45, '\0'));
  EXPECT_EQ(ToString(time, "yyyyMMdd"), "20240305");
}

// Clock functions

TEST_F(DateTime, TheLocalTimeIsCorrectedToFullYearsAndMonths) {
  UseZone("XYZ+03");
  _SYSTEMTIME record{};
  const std::string before = tarn_test::Today("%Y %m %d %w %H");
  CDateTime::GetLocalTime(&record);
  const std::string after = tarn_test::Today("%Y %m %d %w %H");
  char text[64];
  snprintf(text, sizeof(text), "%04d %02d %02d %d %02d", record.year, record.month, record.day,
           record.dayOfWeek, record.hour);
  EXPECT_TRUE(text == before || text == after) << text;
  EXPECT_LT(record.milliseconds, 1000);
  CDateTime::GetLocalTime(nullptr);
}

TEST_F(DateTime, ALocalTimeThatThePlatformCannotTellIsZero) {
  _SYSTEMTIME record{2024, 3, 2, 5, 7, 8, 9, 123};
  calendarFails = true;
  CDateTime::GetLocalTime(&record);
  CDateTime now;
  CDateTime made(1709622489L);
  calendarFails = false;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&record), sizeof(record)),
            std::string(sizeof(record), '\0'));
  EXPECT_STREQ(now.ToString(nullptr), "   0-00-00 00:00:00.000");
  EXPECT_THAT(Parts(made), testing::Each(0));
}

TEST_F(DateTime, TheMillisecondClockFollowsTheWallClockInWholeMillisecondsKept) {
  timeval before{};
  timeval after{};
  EXPECT_EQ(CDateTime::gettimeofday(&before, nullptr), 0);
  const double now = CDateTime::GetMilisecondTime();
  EXPECT_EQ(CDateTime::gettimeofday(&after, nullptr), 0);
  EXPECT_GE(now, static_cast<double>(before.tv_sec * 1000 + before.tv_usec / 1000));
  EXPECT_LE(now, static_cast<double>(after.tv_sec * 1000 + after.tv_usec / 1000));
  EXPECT_EQ(now, static_cast<double>(static_cast<long>(now)));
}

TEST_F(DateTime, ForwardsTheTimeOfDay) {
  timeval tv{};
  EXPECT_EQ(CDateTime::gettimeofday(&tv, nullptr), 0);
  EXPECT_NEAR(static_cast<double>(tv.tv_sec), static_cast<double>(time(nullptr)), 2.0);
  EXPECT_LT(tv.tv_usec, 1000000);
  EXPECT_EQ(CDateTime::gettimeofday(nullptr, nullptr), 0);
}

TEST_F(DateTime, SleepingForNothingReturnsAtOnce) {
  const Stopwatch watch;
  for (int i = 0; i < 1000; ++i)
    CDateTime::SleepMilisecond(0);
  EXPECT_LT(watch.ElapsedMs(), AtMost(500));
}

TEST_F(DateTime, SleepsAsLongAsTold) {
  for (const unsigned long ms : {1UL, 30UL, 1005UL}) {
    const Stopwatch watch;
    CDateTime::SleepMilisecond(ms);
    EXPECT_GE(watch.ElapsedMs(), static_cast<long>(ms));
    EXPECT_LT(watch.ElapsedMs(), AtMost(static_cast<long>(ms) + 1000));
  }
}

TEST_F(DateTime, SleepingOpensNoDescriptor) {
  const int before = tarn_test::OpenDescriptors();
  CDateTime::SleepMilisecond(1);
  EXPECT_EQ(tarn_test::OpenDescriptors(), before);
}

TEST_F(DateTime, ASignalEndsEvenTheLongestSleepKept) {
  struct sigaction action {};
  struct sigaction old {};
  action.sa_handler = [](int) {};
  action.sa_flags = SA_RESTART;
  ASSERT_EQ(sigaction(SIGUSR1, &action, &old), 0);
  for (const unsigned long ms : {60000UL, ULONG_MAX}) {
    std::atomic<bool> awake{false};
    std::thread sleeper([&] {
      CDateTime::SleepMilisecond(ms);
      awake = true;
    });
    // Again and again: the first ones may come before the sleep.
    EXPECT_TRUE(WaitUntil([&] {
      if (!awake) pthread_kill(sleeper.native_handle(), SIGUSR1);
      return awake.load();
    }));
    sleeper.join();
  }
  sigaction(SIGUSR1, &old, nullptr);
}

TEST_F(DateTime, TheStaticFunctionsServeManyThreads) {
  std::vector<std::thread> threads;
  std::atomic<int> good{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 200; ++i) {
        _SYSTEMTIME record{};
        CDateTime::GetLocalTime(&record);
        CDateTime time(1709622489L + i);
        if (record.month >= 1 && time.Second() == (9 + i) % 60) ++good;
      }
      CDateTime::SleepMilisecond(1);
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(good, 800);
}

}  // namespace
