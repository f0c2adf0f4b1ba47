// Bounded formatting: limits, the texts around the message, the move to the heap.
#include "utility/core/Format.h"

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

namespace {

using Tarn::Core::FormattedText;

constexpr size_t kNoLimit = 100000;

__attribute__((format(printf, 2, 3))) std::string Limited(size_t limit, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const FormattedText text(limit, format, args);
  va_end(args);
  EXPECT_EQ(text.View(), std::string_view(text.Data()));
  EXPECT_EQ(text.Length(), text.View().size());
  return text.Data();
}

__attribute__((format(printf, 4, 5))) std::string Around(std::string_view prefix,
                                                         std::string_view suffix, size_t limit,
                                                         const char* format, ...) {
  va_list args;
  va_start(args, format);
  const FormattedText text(prefix, suffix, limit, format, args);
  va_end(args);
  EXPECT_EQ(text.View(), std::string_view(text.Data()));
  return text.Data();
}

// Numbers from 1 on until there are enough characters.
std::string Counted(size_t length) {
  std::string text;
  for (int i = 1; text.size() < length; ++i)
    text += std::to_string(i) + " ";
  return text.substr(0, length);
}

TEST(FormattedText, HoldsWhatThePlatformPrints) {
  char expected[200];
  snprintf(expected, sizeof(expected), "%-5d|%05.1f|%s|%c|%lx|%%", 42, 3.14159, "text", 'x', 255L);
  EXPECT_EQ(Limited(kNoLimit, "%-5d|%05.1f|%s|%c|%lx|%%", 42, 3.14159, "text", 'x', 255L),
            expected);
  EXPECT_EQ(Limited(kNoLimit, "%s", ""), "");
}

TEST(FormattedText, StandsBetweenPrefixAndSuffix) {
  EXPECT_EQ(Around("10:20 ", "\r\n", kNoLimit, "%s:%d", "port", 80), "10:20 port:80\r\n");
  EXPECT_EQ(Around("10:20 ", "\r\n", kNoLimit, "%s", ""), "10:20 \r\n");
  EXPECT_EQ(Around("only prefix", "", kNoLimit, "%s", ""), "only prefix");
}

TEST(FormattedText, EveryLengthComesOutWholeOnBothSidesOfTheInlineBuffer) {
  for (size_t length = 2030; length <= 2060; ++length) {
    const std::string message = Counted(length);
    ASSERT_EQ(Limited(kNoLimit, "%s", message.c_str()), message);
    ASSERT_EQ(Around("<<", ">>>", kNoLimit, "%s", message.c_str()), "<<" + message + ">>>");
  }
  const std::string message = Counted(90000);
  EXPECT_EQ(Around("<<", ">>>", kNoLimit, "%s", message.c_str()), "<<" + message + ">>>");
}

TEST(FormattedText, TheLimitCutsTheMessageOnly) {
  const std::string message = Counted(5000);
  for (const size_t limit : {0U, 1U, 10U, 63U, 2000U, 2047U, 2048U, 3000U, 4999U, 5000U, 5001U}) {
    EXPECT_EQ(Around("<<", ">>>", limit, "%s", message.c_str()),
              "<<" + message.substr(0, limit) + ">>>");
    EXPECT_EQ(Limited(limit, "%s", message.c_str()), message.substr(0, limit));
  }
}

TEST(FormattedText, ReadsTheArgumentsAnewForALongMessage) {
  const std::string message = Counted(4000);
  EXPECT_EQ(Limited(kNoLimit, "%d %s %.1f %s", 7, message.c_str(), 2.5, "end"),
            "7 " + message + " 2.5 end");
}

TEST(FormattedText, TheMessageEndsAtItsFirstNul) {
  EXPECT_EQ(Around("<", ">", kNoLimit, "ab%ccd", 0), "<ab>");
  EXPECT_EQ(Limited(kNoLimit, "%c%s", 0, Counted(4000).c_str()), "");
}

TEST(FormattedText, ANullFormatIsAnEmptyMessage) {
  const char* none = nullptr;
  EXPECT_EQ(Around("<", ">", kNoLimit, none, 1), "<>");
  EXPECT_EQ(Limited(kNoLimit, none, 1), "");
}

TEST(FormattedText, AMessageThatThePlatformRefusesHalfWayIsShortened) {
  ASSERT_STREQ(setlocale(LC_CTYPE, "C"), "C");
  const wchar_t wide[] = {0x4e2d, 0};  // no such character in this locale
  const std::string text = Around("<", ">", kNoLimit, "before %ls after", wide);
  EXPECT_TRUE(text == "<>" || text == "<before >") << text;
}

TEST(FormattedText, TextsAroundItAreShortByNature) {
  const std::string around = Counted(3000);
  const std::string text = Around(around, around, kNoLimit, "%s", "message");
  const size_t kept = (text.size() - 7) / 2;
  EXPECT_GE(kept, 100U);
  EXPECT_EQ(text, around.substr(0, kept) + "message" + around.substr(0, kept));
}

}  // namespace
