// The texts of log lines and log files.
#include "utility/core/LogText.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <ctime>
#include <string>

namespace {

using namespace Tarn::Core;

std::tm At(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
  std::tm time{};
  time.tm_year = year - 1900;
  time.tm_mon = month - 1;
  time.tm_mday = day;
  time.tm_hour = hour;
  time.tm_min = minute;
  time.tm_sec = second;
  return time;
}

std::string Printed(const char* pattern, const std::tm& time) {
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), pattern, &time);
  return text.data();
}

TEST(LogText, ClockPrefixEndsWithABlank) {
  EXPECT_EQ(ClockPrefix(At(2024, 3, 5, 7, 8, 9), 123).View(), "07:08:09.123 ");
  EXPECT_EQ(ClockPrefix(At(2024, 3, 5, 23, 59, 60), 7).View(), "23:59:60.007 ");
}

TEST(LogText, DailyFileNamesCarryTheDate) {
  EXPECT_EQ(DailyFileName(At(2024, 3, 5)).View(), "20240305.log");
  EXPECT_EQ(DailyFileName(At(987, 12, 31)).View(), "09871231.log");
}

TEST(LogText, LinePrefixIsStampMillisecondsAndTag) {
  const SecondStamp stamp = StampSecond(At(2024, 3, 5, 7, 8, 9));
  EXPECT_EQ(stamp.Date(), "2024-03-05");
  EXPECT_EQ(LinePrefix(stamp, 123, 2).View(), "2024-03-05 07-08-09:123 INFO ");
  EXPECT_EQ(LinePrefix(stamp, 0, 2).View(), "2024-03-05 07-08-09:000 INFO ");
  EXPECT_EQ(LinePrefix(stamp, 45, 2).View(), "2024-03-05 07-08-09:045 INFO ");
}

TEST(LogText, StampsAgreeWithTheCalendarOfThePlatform) {
  for (std::time_t second = 0; second < std::time_t{4102444800}; second += 7654321) {
    std::tm time{};
    gmtime_r(&second, &time);
    ASSERT_EQ(StampSecond(time).text.View(), Printed("%Y-%m-%d %H-%M-%S", time));
    ASSERT_EQ(StampSecond(time).Date(), Printed("%Y-%m-%d", time));
    ASSERT_EQ(DailyFileName(time).View(), Printed("%Y%m%d.log", time));
    ASSERT_EQ(ClockPrefix(time, 0).View(), Printed("%H:%M:%S.000 ", time));
  }
}

TEST(LogText, EveryLevelHasItsTag) {
  const SecondStamp stamp = StampSecond(At(2024, 3, 5));
  const char* const tags[] = {" TRACEALL3 ", " TRACEALL2 ", " TRACEALL1 ", " TRACE ", " DEBUG ",
                              " INFO ",      " WARN ",      " ERROR ",     " FATAL "};
  for (int level = -3; level <= 5; ++level) {
    EXPECT_EQ(LinePrefix(stamp, 1, level).View(),
              std::string("2024-03-05 00-00-00:001") + tags[level + 3]);
  }
}

TEST(LogText, LevelsOutsideTheListHaveNoTagKept) {
  const SecondStamp stamp = StampSecond(At(2024, 3, 5));
  for (const int level : {-4, 6, 100, INT_MIN, INT_MAX}) {
    EXPECT_EQ(LinePrefix(stamp, 1, level).View(), "2024-03-05 00-00-00:001") << level;
  }
}

TEST(LogText, FourLevelsHaveAWordForTheConsole) {
  EXPECT_EQ(LevelWord(1), "debug ");
  EXPECT_EQ(LevelWord(2), "info ");
  EXPECT_EQ(LevelWord(3), "warn ");
  EXPECT_EQ(LevelWord(4), "error ");
  for (const int level : {-3, 0, 5, 6, INT_MIN, INT_MAX})
    EXPECT_EQ(LevelWord(level), " ");
}

TEST(LogText, NonsenseTimesStayInBounds) {
  std::tm time{};
  time.tm_year = INT_MAX - 1900;
  time.tm_mon = INT_MIN;
  time.tm_mday = time.tm_hour = time.tm_min = time.tm_sec = INT_MIN;
  const SecondStamp stamp = StampSecond(time);
  EXPECT_LE(LinePrefix(stamp, 999, -3).length, sizeof(ShortText::bytes));
  EXPECT_EQ(stamp.Date(), "2147483647--2147483647--2147483648");
}

TEST(LogText, TheDateGoesBetweenNameAndExtension) {
  EXPECT_EQ(DatedFilePath("/a/AsyncLogs/Log.log", "2024-03-05"), "/a/AsyncLogs/Log-2024-03-05.log");
  EXPECT_EQ(DatedFilePath("/x/app.log", "2024-12-31"), "/x/app-2024-12-31.log");
  EXPECT_EQ(DatedFilePath("/x/app.log", "2025-01-01"), "/x/app-2025-01-01.log");
  EXPECT_EQ(DatedFilePath("/x/a.b.txt", "D"), "/x/a.b-D.txt");
  EXPECT_EQ(DatedFilePath("/app.log", "D"), "/app-D.log");
  EXPECT_EQ(DatedFilePath("/x/.log", "D"), "/x/-D.log");
  EXPECT_EQ(DatedFilePath("/x/app.", "D"), "/x/app-D.");
}

TEST(LogText, ABackslashSeparatesAsWell) {
  EXPECT_EQ(DatedFilePath("C:\\logs\\app.log", "D"), "C:\\logs/app-D.log");
  EXPECT_EQ(DatedFilePath("/a/b\\app.log", "D"), "/a/b/app-D.log");
}

TEST(LogText, NoFileNameWithoutFolderOrExtension) {
  EXPECT_EQ(DatedFilePath("app.log", "D"), "");
  EXPECT_EQ(DatedFilePath("/x/app", "D"), "");
  EXPECT_EQ(DatedFilePath("/x.y/app", "D"), "");
  EXPECT_EQ(DatedFilePath("/x/", "D"), "");
  EXPECT_EQ(DatedFilePath("", "D"), "");
}

TEST(LogText, TheFolderIsWhatStandsBeforeTheLastSeparator) {
  EXPECT_EQ(FolderPart("/a/b/c.log"), "/a/b");
  EXPECT_EQ(FolderPart("a\\b\\c.log"), "a\\b");
  EXPECT_EQ(FolderPart("/c.log"), "");
  EXPECT_EQ(FolderPart("c.log"), "c.log");
  EXPECT_EQ(FolderPart(""), "");
}

TEST(LogText, ControlBytesOfAPeerBecomeVisible) {
  EXPECT_EQ(PrintableText("a\r\nb\x1b[2J\x7f"), "a\\x0D\\x0Ab\\x1B[2J\\x7F");
  EXPECT_EQ(PrintableText(std::string_view("\0", 1)), "\\x00");
  EXPECT_EQ(PrintableText(""), "");
}

TEST(LogText, AllOtherBytesOfAPeerStay) {
  std::string bytes;
  for (int byte = 0x20; byte < 0x100; ++byte) {
    if (byte != 0x7F) bytes.push_back(static_cast<char>(byte));
  }
  EXPECT_EQ(PrintableText(bytes), bytes);
}

}  // namespace
