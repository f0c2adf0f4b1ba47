#include "utility/os/NumberText.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

using namespace Tarn::Os;

namespace {

const char* const kTexts[] = {"",
                              "0",
                              "12",
                              "12abc",
                              "abc",
                              "-7",
                              "+7",
                              "+-7",
                              "- 7",
                              "  42",
                              "\t\n 42 ",
                              "0x10",
                              "1.5",
                              ".5",
                              "5.",
                              "1e3",
                              "1e",
                              "1e+2x",
                              "-1.5e-3",
                              "0x1.8p3",
                              "0x",
                              "0x.8",
                              "inf",
                              "-INFINITY",
                              "infx",
                              "nan",
                              "-nan(12)",
                              "nanx",
                              "1e400",
                              "-1e400",
                              "1e-400",
                              "1,5",
                              "2147483647",
                              "-2147483648",
                              "00000000000000000012",
                              "1.7976931348623157e308",
                              "0.1"};

bool SameBits(double a, double b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

}  // namespace

TEST(NumberText, ReadsWholeNumbersAsThePlatformDoesInItsPlainLocale) {
  for (const char* text : kTexts) {
    EXPECT_EQ(IntFromText(text), static_cast<int>(strtol(text, nullptr, 10))) << text;
  }
}

TEST(NumberText, NumbersBeyond32BitsKeepTheirLowBitsKept) {
  EXPECT_EQ(IntFromText("2147483648"), -2147483647 - 1);
  EXPECT_EQ(IntFromText("4294967295"), -1);
  EXPECT_EQ(IntFromText("4294967297"), 1);
  EXPECT_EQ(IntFromText("99999999999999999999"), -1);
  EXPECT_EQ(IntFromText("-99999999999999999999"), 0);
}

TEST(NumberText, ReadsFractionsAsThePlatformDoesInItsPlainLocale) {
  for (const char* text : kTexts) {
    const double expected = strtod(text, nullptr);
    EXPECT_TRUE(SameBits(DoubleFromText(text), expected)) << text << ": " << DoubleFromText(text);
  }
}
