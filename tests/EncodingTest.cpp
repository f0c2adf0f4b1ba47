#include <Tarn/Generic/Encoding.h>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/FailingNew.h"
#include "tests/support/Oracle.h"
#include "tests/support/ProgramCopy.h"

using namespace tarn_test;
using Tarn::Generic::CEncoding;

static_assert(sizeof(CEncoding) == 2 * sizeof(char*), "hosts construct encodings themselves");

namespace {

unsigned char* Data(std::string& text) {
  return reinterpret_cast<unsigned char*>(text.data());
}

// Every pair of the two-byte area that all GBK tables share, in one text.
std::string CommonGbk() {
  std::string text;
  for (int row = 0xB0; row <= 0xD6; ++row) {
    for (int cell = 0xA1; cell <= 0xFE; ++cell) {
      text += static_cast<char>(row);
      text += static_cast<char>(cell);
    }
    text += "ascii, too\n";
  }
  return text;
}

}  // namespace

TEST(Encoding, EncodesBase64WithPadding) {
  CEncoding encoding;
  std::string text = "abc";
  EXPECT_STREQ(encoding.ToBase64String(Data(text), 3), "YWJj");
  EXPECT_STREQ(encoding.ToBase64String(Data(text), 2), "YWI=");
  EXPECT_STREQ(encoding.ToBase64String(Data(text), 1), "YQ==");
}

TEST(Encoding, EmptyOrNullBytesGiveNoBase64Kept) {
  CEncoding encoding;
  std::string text = "abc";
  EXPECT_EQ(encoding.ToBase64String(Data(text), 0), nullptr);
  EXPECT_EQ(encoding.ToBase64String(nullptr, 3), nullptr);
}

TEST(Encoding, DecodesBase64UpToTheFirstForeignCharacterKept) {
  CEncoding encoding;
  int len = -1;
  EXPECT_STREQ(encoding.FromBase64String("YWJj!ignored", len), "abc");
  EXPECT_EQ(len, 3);
  EXPECT_STREQ(encoding.FromBase64String("YWI=YWI=", len), "ab");
  EXPECT_EQ(len, 2);
}

TEST(Encoding, NothingToDecodeGivesNullAndLength0) {
  CEncoding encoding;
  for (const char* text : {"=YWJj", "", "Y", "!", static_cast<const char*>(nullptr)}) {
    int len = -1;
    EXPECT_EQ(encoding.FromBase64String(text, len), nullptr);
    EXPECT_EQ(len, 0);
  }
}

TEST(Encoding, DecodedBytesMayHoldNulsAndEndInOne) {
  CEncoding encoding;
  int len = 0;
  const char* bytes = encoding.FromBase64String("AABhAA==", len);
  ASSERT_EQ(len, 4);
  EXPECT_EQ(std::string(bytes, 5), std::string("\0\0a\0\0", 5));
}

TEST(Encoding, FreeFunctionsAgreeWithPythonInBothDirections) {
  const std::string bytes = PatternBytes(1000);
  const auto lines = PythonLines(
      "import base64\nfor n in range(0, 1000, 37): print(base64.b64encode(d[:n]).decode())", bytes);
  ASSERT_EQ(lines.size(), 28u);
  for (size_t i = 0; i < lines.size(); ++i) {
    const unsigned int n = static_cast<unsigned int>(37 * i);
    EXPECT_EQ(base64_encode(Bytes(bytes), n), lines[i]);
    EXPECT_EQ(base64_decode(lines[i]), bytes.substr(0, n));
  }
  EXPECT_EQ(base64_encode(nullptr, 5), "");
  EXPECT_EQ(base64_decode(std::string("YWJj\0YWJj", 9)), "abc");
  EXPECT_EQ(Tarn::Generic::base64_encode(Bytes(bytes), 3), base64_encode(Bytes(bytes), 3));
  EXPECT_EQ(Tarn::Generic::base64_decode("YWJj"), "abc");
}

TEST(Encoding, PlainVariantsConvertNothingKept) {
  CEncoding encoding;
  const char* const text = "a\xD6\xD0\xE4\xB8\xAD\xFF";
  EXPECT_STREQ(encoding.ToUTF8(text), text);
  EXPECT_STREQ(encoding.ToGBK(text), text);
  // The buffer is twice as long as the text: callers extend the text in it.
  char* copy = encoding.ToUTF8("abc");
  std::memcpy(copy, "abcdef", 7);
  EXPECT_STREQ(copy, "abcdef");
}

TEST(Encoding, AsciiStaysAsItIs) {
  CEncoding encoding;
  EXPECT_STREQ(encoding.ToUTF8v2("plain ASCII\r\n"), "plain ASCII\r\n");
  EXPECT_STREQ(encoding.ToGBKv2("plain ASCII\r\n"), "plain ASCII\r\n");
  EXPECT_STREQ(encoding.ToUTF8v2(""), "");
  EXPECT_STREQ(encoding.ToGBKv2(""), "");
}

TEST(Encoding, ConvertsAsTheIconvCommandAndPythonDo) {
  const std::string gbk = CommonGbk().substr(0, 7200);
  const TempDir dir;
  WriteFile(dir.File("gbk"), gbk);
  const std::string utf8 = RunCommand("iconv -f gbk -t utf-8 '" + dir.File("gbk") + "'");
  ASSERT_GT(utf8.size(), gbk.size());
  const auto hex = PythonLines("print(d.decode('gbk').encode('utf-8').hex())", gbk);
  ASSERT_EQ(hex.size(), 1u);
  EXPECT_EQ(Hex(Bytes(utf8), utf8.size()), hex[0]);

  CEncoding encoding;
  EXPECT_EQ(std::string(encoding.ToUTF8v2(gbk.c_str())), utf8);
  EXPECT_EQ(std::string(encoding.ToGBKv2(utf8.c_str())), gbk);
}

TEST(Encoding, RestThatCannotBeConvertedTakesThePlaceOfTheResultKept) {
  CEncoding encoding;
  EXPECT_STREQ(encoding.ToUTF8v2("lost\xFF\xFF rest \xD6\xD0"), "\xFF\xFF rest \xD6\xD0");
  EXPECT_STREQ(encoding.ToUTF8v2("cut \xD6"), "\xD6");
  EXPECT_STREQ(encoding.ToGBKv2("\xE4\xB8\xAD\xE4\xB8"), "\xE4\xB8");
  EXPECT_STREQ(encoding.ToGBKv2("no such character: \xF0\x9F\x98\x80!"), "\xF0\x9F\x98\x80!");
  EXPECT_STREQ(encoding.ToGBKv2("\xE4\xB8\xAD"), "\xD6\xD0");
}

TEST(Encoding, RestMayBeLongerThanTheResult) {
  CEncoding encoding;
  const std::string rest = "\xFF" + std::string(100000, 'r');
  EXPECT_EQ(std::string(encoding.ToUTF8v2(("a" + rest).c_str())), rest);
  EXPECT_EQ(std::string(encoding.ToGBKv2(("a" + rest).c_str())), rest);
}

TEST(Encoding, WithoutConverterTheTextStaysAsItIsKept) {
  if (!InProgramCopy()) {
    // In a program of its own: no converter may have been opened before.
    const TempDir dir;
    RunInProgramCopy(dir.Path());
    return;
  }
  AllowResourceGrowth();
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit none{0, usual.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  CEncoding encoding;
  EXPECT_STREQ(encoding.ToUTF8v2("\xD6\xD0 text"), "\xD6\xD0 text");
  EXPECT_STREQ(encoding.ToGBKv2("\xE4\xB8\xAD text"), "\xE4\xB8\xAD text");
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
}

TEST(Encoding, EveryConversionMayTakeTheLastResult) {
  CEncoding encoding;
  std::string text = "\xD6\xD0";
  EXPECT_STREQ(encoding.ToUTF8v2(encoding.ToGBK(text.c_str())), "\xE4\xB8\xAD");
  EXPECT_STREQ(encoding.ToGBKv2(encoding.ToUTF8v2(text.c_str())), "\xD6\xD0");
  int len = 0;
  EXPECT_STREQ(encoding.FromBase64String(encoding.ToBase64String(Data(text), 2), len), "\xD6\xD0");
  char* last = encoding.ToUTF8("ab");
  EXPECT_STREQ(encoding.ToBase64String(reinterpret_cast<unsigned char*>(last), 2), "YWI=");
}

TEST(Encoding, NullTextGivesNull) {
  CEncoding encoding;
  EXPECT_EQ(encoding.ToUTF8(nullptr), nullptr);
  EXPECT_EQ(encoding.ToGBK(nullptr), nullptr);
  EXPECT_EQ(encoding.ToUTF8v2(nullptr), nullptr);
  EXPECT_EQ(encoding.ToGBKv2(nullptr), nullptr);
}

TEST(Encoding, WritesUpperCasePairsWithABlankBehindEachKept) {
  CEncoding encoding;
  unsigned char bytes[] = {0x0A, 0xFF};
  char text[8] = "#######";
  EXPECT_EQ(encoding.Bin2Str(text, bytes, 2), 2);
  EXPECT_STREQ(text, "0A FF ");
  EXPECT_EQ(encoding.Bin2Str(text, bytes, 0), 0);
  EXPECT_STREQ(text, "");
}

TEST(Encoding, Bin2StrOfNoBytesAtAllIsEmpty) {
  CEncoding encoding;
  char text[] = "untouched";
  EXPECT_EQ(encoding.Bin2Str(text, nullptr, 0), 0);
  EXPECT_STREQ(text, "");
}

TEST(Encoding, Bin2StrIgnoresNullAndNegativeLengths) {
  CEncoding encoding;
  unsigned char bytes[] = {1};
  char text[] = "untouched";
  EXPECT_EQ(encoding.Bin2Str(text, bytes, -1), 0);
  EXPECT_EQ(encoding.Bin2Str(text, nullptr, 1), 0);
  EXPECT_EQ(encoding.Bin2Str(nullptr, bytes, 1), 0);
  EXPECT_STREQ(text, "untouched");
}

TEST(Encoding, ReadsPairsOfEitherCase) {
  CEncoding encoding;
  unsigned char bytes[3] = {0x11, 0x22, 0x33};
  EXPECT_EQ(encoding.Str2Bin(bytes, "0a ff"), 2);
  EXPECT_EQ(bytes[0], 0x0A);
  EXPECT_EQ(bytes[1], 0xFF);
  EXPECT_EQ(bytes[2], 0x33);
  EXPECT_EQ(encoding.Str2Bin(bytes, "zz 0B"), 2);
  EXPECT_EQ(bytes[0], 0x0A);
  EXPECT_EQ(bytes[1], 0x0B);
  EXPECT_EQ(encoding.Str2Bin(bytes, nullptr), 0);
  EXPECT_EQ(encoding.Str2Bin(nullptr, "0a"), 0);
}

TEST(Encoding, LoneLastDigitDoesNotLeadBeyondTheText) {
  CEncoding encoding;
  // Exactly as long as the text: a read behind it is seen by the address sanitizer.
  const std::vector<char> text{'1', '2', '3', '\0'};
  unsigned char bytes[2] = {};
  EXPECT_EQ(encoding.Str2Bin(bytes, text.data()), 2);
  EXPECT_EQ(bytes[0], 0x12);
  EXPECT_EQ(bytes[1], 0x03);
}

TEST(Encoding, WideStubsGiveNullKept) {
  EXPECT_EQ(AnsiToUnicode("text"), nullptr);
  EXPECT_EQ(UnicodeToAnsi(L"text"), nullptr);
}

TEST(Encoding, ShortMemoryGivesNull) {
  CEncoding encoding;
  std::string text(100, 'a');
  const std::string base64(100, 'Y');
  int len = -1;
  for (int i = 0; i < 6; ++i) {
    encoding.ToUTF8("the last result");
    const char* const unset = "unset";
    const char* result = unset;
    std::string free = "unset";
    {
      const FailingNew failing(1, 60);
      if (i == 0) result = encoding.ToBase64String(Data(text), 100);
      if (i == 1) result = encoding.FromBase64String(base64.c_str(), len);
      if (i == 2) result = encoding.ToUTF8(text.c_str());
      if (i == 3) result = encoding.ToGBKv2(text.c_str());
      if (i == 4) free = base64_encode(Bytes(text), 100);
      if (i == 5) free = base64_decode(base64);
      EXPECT_EQ(failing.Failed(), 1) << i;
    }
    EXPECT_EQ(result, i < 4 ? nullptr : unset) << i;
    EXPECT_EQ(free, i < 4 ? "unset" : "") << i;
  }
  EXPECT_EQ(len, 0);
}

TEST(Encoding, ObjectsOnSeveralThreadsDoNotMeet) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&wrong] {
      CEncoding encoding;
      for (int i = 0; i < 300; ++i) {
        if (std::strcmp(encoding.ToUTF8v2("\xD6\xD0"), "\xE4\xB8\xAD") != 0) ++wrong;
        if (std::strcmp(encoding.ToGBKv2("\xE4\xB8\xAD\xE4"), "\xE4") != 0) ++wrong;
        if (std::strcmp(encoding.ToGBKv2("\xE4\xB8\xAD"), "\xD6\xD0") != 0) ++wrong;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
}
