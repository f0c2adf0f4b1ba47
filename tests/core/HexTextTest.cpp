#include "utility/core/HexText.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/Oracle.h"

using namespace Tarn::Core;
using namespace tarn_test;

namespace {

constexpr unsigned char kUntouched = 0x5C;

std::vector<unsigned char> Read(const std::string& text) {
  std::vector<unsigned char> out(text.size() / 2 + 1, kUntouched);
  const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
  out.resize(ReadHexText(exact.data(), out.data()));
  return out;
}

// Pair by pair with the scanf that the promise names.
std::vector<unsigned char> ReadWithScanf(const std::string& text) {
  std::vector<unsigned char> out;
  for (const char* at = text.c_str(); *at != '\0';) {
    if (*at == ' ') {
      ++at;
      continue;
    }
    out.push_back(kUntouched);
    sscanf(at, "%02hhX", &out.back());
    at += at[1] == '\0' ? 1 : 2;
  }
  return out;
}

using Result = std::vector<unsigned char>;

}  // namespace

TEST(HexText, WritesTwoUpperCaseDigitsAndABlankPerByte) {
  std::string bytes;
  for (int i = 0; i < 256; ++i)
    bytes += static_cast<char>(i);
  std::string text(3 * bytes.size(), '?');
  WriteHexText(Bytes(bytes), bytes.size(), text.data());
  const auto lines = PythonLines("print(''.join('%02X ' % b for b in d))", bytes);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(text, lines[0]);
}

TEST(HexText, ReadsPairsInEitherCaseWithAndWithoutBlanks) {
  EXPECT_EQ(Read("0a ff"), (Result{0x0A, 0xFF}));
  EXPECT_EQ(Read("0AFF"), (Result{0x0A, 0xFF}));
  EXPECT_EQ(Read("  0a   Ff  "), (Result{0x0A, 0xFF}));
  EXPECT_EQ(Read(""), Result{});
  EXPECT_EQ(Read("   "), Result{});
}

TEST(HexText, ReadsALoneLastDigitAndStopsThere) {
  EXPECT_EQ(Read("0a f"), (Result{0x0A, 0x0F}));
  EXPECT_EQ(Read("7"), Result{0x07});
}

TEST(HexText, PairThatDoesNotParseCountsAndLeavesItsByteKept) {
  EXPECT_EQ(Read("zz 12"), (Result{kUntouched, 0x12}));
  EXPECT_EQ(Read("z"), Result{kUntouched});
}

TEST(HexText, FollowsScanfForEveryShortText) {
  // Every kind of character that scanf tells apart, in all texts of up to five of them.
  const std::string characters = " \t\n09aFgxX+-\xFF";
  std::vector<std::string> texts{""};
  size_t first = 0;
  for (int length = 1; length <= 5; ++length) {
    const size_t last = texts.size();
    for (size_t i = first; i < last; ++i) {
      for (const char c : characters) {
        const std::string text = texts[i] + c;
        if (Read(text) != ReadWithScanf(text)) {
          FAIL() << testing::PrintToString(text) << ": " << testing::PrintToString(Read(text))
                 << " instead of " << testing::PrintToString(ReadWithScanf(text));
        }
        if (length < 5) texts.push_back(text);
      }
    }
    first = last;
  }
}

TEST(HexText, RunsOfWhiteSpaceAreWalkedOnce) {
  const std::string text(1 << 20, '\t');
  const Stopwatch watch;
  EXPECT_EQ(Read(text).size(), text.size() / 2);
  EXPECT_LT(watch.ElapsedMs(), AtMost(20000));
}
