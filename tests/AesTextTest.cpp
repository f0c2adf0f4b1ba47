// Texts through CAes: against openssl and plain Rijndael, with every limit of its buffers.
#include <Tarn/Generic/Aes.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <thread>

#include "tests/support/AesOracle.h"
#include "tests/support/Memory.h"
#include "tests/support/Support.h"
#include "utility/core/CpuFeatures.h"

using namespace tarn_test;
using Tarn::Core::kCpuAll;
using Tarn::Core::LimitCpuFeatures;
using Tarn::Generic::CAes;

namespace {

constexpr char kKey[] = "0123456789abcdef";
constexpr char kChain[] = "fedcba9876543210";

// Letters and bytes above 127, no zeros.
std::string TextOf(size_t length) {
  std::string text = PatternBytes(length, 4);
  for (char& c : text)
    c = c == '\0' ? 'x' : c;
  return text;
}

std::string Base64Of(const std::string& bytes) {
  const TempDir dir;
  WriteFile(dir.File("in"), bytes);
  return RunCommand("openssl base64 -A -in " + dir.File("in"));
}

// What openssl makes of a text, padding included.
std::string OpensslText(const char* mode, const std::string& text) {
  const size_t pad = 16 - text.size() % 16;
  return Base64Of(
      OpensslAes(mode, true, kKey, kChain, text + std::string(pad, static_cast<char>(pad))));
}

// The base64 text of a ciphertext that decrypts (ECB, kKey) to exactly these bytes.
std::string CodeOf(const std::string& bytes) {
  return Base64Of(OpensslAes("ecb", true, kKey, "", bytes));
}

// All that the result buffer holds.
std::string Whole(const char* result) {
  return std::string(result, 1024);
}

std::string Filled(const std::string& text) {
  return text + std::string(1024 - text.size(), '\0');
}

void Prepare(CAes& aes, int mode) {
  aes.SetType(mode);
  aes.SetChain(kChain);
}

class AesText : public testing::TestWithParam<unsigned> {
 protected:
  void SetUp() override { LimitCpuFeatures(GetParam()); }
  void TearDown() override { LimitCpuFeatures(kCpuAll); }
};

std::string FormName(const testing::TestParamInfo<unsigned>& info) {
  return info.param == kCpuAll ? "Fastest" : "Tables";
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(, AesText, testing::Values(kCpuAll, 0u), FormName);

// Encryption

TEST_P(AesText, EncryptAgreesWithOpenssl) {
  for (int mode = 0; mode < 3; mode++) {
    for (const size_t length : {0u, 1u, 15u, 16u, 17u, 100u, 751u}) {
      CAes aes;
      Prepare(aes, mode);
      const std::string expected = OpensslText(kModeNames[mode], TextOf(length));
      EXPECT_EQ(Whole(aes.Encrypt(kKey, TextOf(length).c_str())), Filled(expected)) << length;
    }
  }
}

TEST_P(AesText, EveryShortTextAgreesWithPlainRijndael) {
  const std::string text = TextOf(70);
  const auto expected = RijndaelLines(
      "import base64\n"
      "keys = expand(b'0123456789abcdef', 16)\n"
      "for mode in range(3):\n"
      "  for n in range(71):\n"
      "    code = encrypt(keys, b'fedcba9876543210', pad(d[:n]), mode)\n"
      "    print(base64.b64encode(code).decode())\n",
      text);
  ASSERT_EQ(expected.size(), 213u);
  for (size_t mode = 0; mode < 3; mode++) {
    CAes aes;
    Prepare(aes, static_cast<int>(mode));
    for (size_t n = 0; n <= 70; n++)
      ASSERT_EQ(aes.Encrypt(kKey, text.substr(0, n).c_str()), expected[71 * mode + n]) << n;
  }
}

TEST_P(AesText, AFullBlockGainsAWholeBlockOfPadding) {
  CAes aes;
  EXPECT_EQ(std::strlen(aes.Encrypt(kKey, "fifteen letters")), 24u);
  EXPECT_EQ(std::strlen(aes.Encrypt(kKey, "sixteen letters!")), 44u);
  EXPECT_EQ(std::strlen(aes.Encrypt(kKey, "")), 24u);
}

TEST_P(AesText, LongTextsGiveTheFirst1023CharactersKept) {
  for (int mode = 0; mode < 3; mode++) {
    for (const size_t length :
         {752u, 753u, 767u, 768u, 769u, 783u, 784u, 1008u, 1023u, 1024u, 1025u, 5000u}) {
      CAes aes;
      Prepare(aes, mode);
      const std::string expected = OpensslText(kModeNames[mode], TextOf(length)).substr(0, 1023);
      EXPECT_EQ(Whole(aes.Encrypt(kKey, TextOf(length).c_str())), Filled(expected)) << length;
    }
  }
}

TEST_P(AesText, HugeTextsAreReadNoFurtherThanNeeded) {
  CAes aes;
  const std::string expected = aes.Encrypt(kKey, std::string(800, 'a').c_str());
  EXPECT_EQ(aes.Encrypt(kKey, std::string(3000000, 'a').c_str()), expected);
  const BytesBeforeGuard unended(std::string(768, 'a'));
  EXPECT_EQ(aes.Encrypt(kKey, unended.Last(768)), expected);
}

TEST_P(AesText, KeysOfOtherLengthsGiveEmptyTextKept) {
  CAes aes;
  const std::string code = aes.Encrypt(kKey, "text");
  for (const size_t length : {0u, 1u, 15u, 17u, 24u, 32u, 1000u}) {
    const std::string key(length, 'k');
    EXPECT_EQ(Whole(aes.Encrypt(key.c_str(), "text")), Filled("")) << length;
    EXPECT_EQ(Whole(aes.Decrypt(key.c_str(), code.c_str())), Filled("")) << length;
  }
}

TEST_P(AesText, NullArgumentsGiveEmptyTextAndClearTheBuffer) {
  CAes aes;
  const std::string code = aes.Encrypt(kKey, "text");
  EXPECT_EQ(Whole(aes.Encrypt(nullptr, "text")), Filled(""));
  aes.Encrypt(kKey, "text");
  EXPECT_EQ(Whole(aes.Encrypt(kKey, nullptr)), Filled(""));
  aes.Encrypt(kKey, "text");
  EXPECT_EQ(Whole(aes.Decrypt(nullptr, code.c_str())), Filled(""));
  aes.Encrypt(kKey, "text");
  EXPECT_EQ(Whole(aes.Decrypt(kKey, nullptr)), Filled(""));
}

// Modes and chains

TEST_P(AesText, UnknownModesSelectEcbKept) {
  CAes ecb;
  const std::string expected = ecb.Encrypt(kKey, TextOf(50).c_str());
  for (const int mode : {5, 3, -1, INT_MAX, INT_MIN}) {
    CAes aes;
    aes.SetType(1);
    aes.SetType(mode);
    EXPECT_EQ(aes.Encrypt(kKey, TextOf(50).c_str()), expected) << mode;
  }
}

TEST_P(AesText, AFreshObjectUsesEcbAndAChainOfZerosKept) {
  CAes fresh, zeros;
  EXPECT_EQ(fresh.Encrypt(kKey, TextOf(40).c_str()), OpensslText("ecb", TextOf(40)));
  for (const int mode : {1, 2}) {
    const std::string code =
        OpensslAes(kModeNames[mode], true, kKey, std::string(16, '\0'), TextOf(31) + '\x01');
    zeros.SetType(mode);
    EXPECT_EQ(zeros.Encrypt(kKey, TextOf(31).c_str()), Base64Of(code));
    EXPECT_EQ(zeros.Decrypt(kKey, Base64Of(code).c_str()), TextOf(31));
  }
}

TEST_P(AesText, EveryCallStartsWithTheChainThatWasSetKept) {
  for (const int mode : {1, 2}) {
    CAes aes;
    Prepare(aes, mode);
    const std::string code = aes.Encrypt(kKey, TextOf(90).c_str());
    EXPECT_EQ(aes.Encrypt(kKey, TextOf(90).c_str()), code);
    EXPECT_EQ(aes.Decrypt(kKey, code.c_str()), TextOf(90));
    EXPECT_EQ(aes.Decrypt(kKey, code.c_str()), TextOf(90));
  }
}

TEST_P(AesText, AShortChainIsFilledWithZeros) {
  CAes aes;
  aes.SetType(1);
  aes.SetChain("abc");
  const std::string code =
      OpensslAes("cbc", true, kKey, "abc" + std::string(13, '\0'), TextOf(31) + '\x01');
  EXPECT_EQ(aes.Encrypt(kKey, TextOf(31).c_str()), Base64Of(code));
}

TEST_P(AesText, AShorterChainLeavesWhatStandsBehindItKept) {
  CAes aes;
  Prepare(aes, 1);
  aes.SetChain("abc");
  const std::string chain = std::string("abc\0", 4) + std::string(kChain).substr(4);
  const std::string code = OpensslAes("cbc", true, kKey, chain, TextOf(31) + '\x01');
  EXPECT_EQ(aes.Encrypt(kKey, TextOf(31).c_str()), Base64Of(code));
}

TEST_P(AesText, OnlyTheFirst16CharactersOfAChainCountKept) {
  CAes aes, other;
  Prepare(aes, 1);
  other.SetType(1);
  other.SetChain((kChain + std::string(500, 'z')).c_str());
  EXPECT_STREQ(other.Encrypt(kKey, "text"), aes.Encrypt(kKey, "text"));
}

TEST_P(AesText, ANullChainChangesNothing) {
  CAes aes, other;
  Prepare(aes, 2);
  Prepare(other, 2);
  aes.SetChain(nullptr);
  EXPECT_STREQ(aes.Encrypt(kKey, "text"), other.Encrypt(kKey, "text"));
}

TEST_P(AesText, TheChainBufferTakes99CharactersAndANul) {
  CAes aes;
  const char* chain = reinterpret_cast<const char*>(&aes) + 1024;
  EXPECT_EQ(std::string(chain, 100), std::string(100, '\0'));
  aes.SetType(2);
  for (const size_t length : {98u, 99u, 100u, 101u, 5000u}) {
    const std::string text(length, 'c');
    aes.SetChain(text.c_str());
    const size_t kept = length < 99 ? length : 99;
    EXPECT_EQ(std::string(chain, kept + 1), text.substr(0, kept) + '\0') << length;
  }
  int mode = 0;
  std::memcpy(&mode, chain + 100, sizeof mode);
  EXPECT_EQ(mode, 2);
}

// Decryption

TEST_P(AesText, DecryptTakesWhatOpensslMade) {
  for (int mode = 0; mode < 3; mode++) {
    for (const size_t length : {0u, 1u, 15u, 16u, 17u, 100u, 751u, 1000u, 1007u}) {
      CAes aes;
      Prepare(aes, mode);
      const std::string code = OpensslText(kModeNames[mode], TextOf(length));
      EXPECT_EQ(Whole(aes.Decrypt(kKey, code.c_str())), Filled(TextOf(length))) << length;
    }
  }
}

TEST_P(AesText, EveryTextBelow752BytesComesBack) {
  for (int mode = 0; mode < 3; mode++) {
    CAes aes, other;
    Prepare(aes, mode);
    Prepare(other, mode);
    for (size_t length = 0; length < 752; length++) {
      const std::string text = TextOf(length);
      ASSERT_EQ(Whole(other.Decrypt(kKey, aes.Encrypt(kKey, text.c_str()))), Filled(text));
    }
  }
}

TEST_P(AesText, ACutCiphertextGivesEmptyText) {
  CAes aes, other;
  const std::string code = aes.Encrypt(kKey, TextOf(752).c_str());
  EXPECT_EQ(Whole(other.Decrypt(kKey, code.c_str())), Filled(""));
}

TEST_P(AesText, NothingDecodedGivesEmptyText) {
  CAes aes;
  for (const char* text : {"", "=", "====", "A", "!AAAA", "\xff"})
    EXPECT_EQ(Whole(aes.Decrypt(kKey, text)), Filled("")) << text;
}

TEST_P(AesText, IncompleteBlocksGiveEmptyText) {
  CAes aes;
  const std::string code = CodeOf(TextOf(48));
  for (size_t length = 0; length < code.size(); length++) {
    if (length * 3 / 4 % 16 == 0) continue;
    EXPECT_EQ(Whole(aes.Decrypt(kKey, code.substr(0, length).c_str())), Filled("")) << length;
  }
}

TEST_P(AesText, WhatFollowsTheBase64TextIsIgnored) {
  CAes aes;
  const std::string code = OpensslText("ecb", "the text");
  EXPECT_STREQ(aes.Decrypt(kKey, (code + "!" + code).c_str()), "the text");
  EXPECT_STREQ(aes.Decrypt(kKey, (code + std::string(100000, 'A')).c_str()), "the text");
  EXPECT_STREQ(aes.Decrypt(kKey, (code + "\n").c_str()), "the text");
}

TEST_P(AesText, TextsThatDecodeTo1024BytesLoseTheLastByteToTheNul) {
  const std::string bytes = TextOf(1023) + "\x7f";  // no padding
  const std::string code = CodeOf(bytes);
  ASSERT_EQ(code.size(), 1368u);  // two of them padding
  CAes aes;
  EXPECT_EQ(Whole(aes.Decrypt(kKey, code.c_str())), Filled(bytes.substr(0, 1023)));
  EXPECT_EQ(Whole(aes.Decrypt(kKey, code.substr(0, 1366).c_str())), Filled(bytes.substr(0, 1023)));
  const std::string padded = CodeOf(TextOf(1023) + "\x01");
  EXPECT_EQ(Whole(aes.Decrypt(kKey, padded.c_str())), Filled(TextOf(1023)));
}

TEST_P(AesText, TextsThatDecodeToMoreThan1024BytesGiveEmptyText) {
  CAes aes;
  for (const size_t length : {1040u, 1056u, 2048u, 4096u, 100000u})
    EXPECT_EQ(Whole(aes.Decrypt(kKey, CodeOf(TextOf(length - length % 16)).c_str())), Filled(""));
  const std::string code = CodeOf(TextOf(1040));
  for (const size_t length : {1367u, 1368u, 1369u, 1387u})
    EXPECT_EQ(Whole(aes.Decrypt(kKey, code.substr(0, length).c_str())), Filled("")) << length;
}

TEST_P(AesText, TooLongTextsLeaveTheChainBehindTheBufferAlone) {
  CAes aes;
  aes.SetType(1);
  aes.SetChain("\x01 looks like padding");
  const std::string before = aes.Encrypt(kKey, "text");
  aes.Decrypt(kKey, std::string(1367, 'A').c_str());  // 1,025 bytes
  EXPECT_EQ(aes.Encrypt(kKey, "text"), before);
}

TEST_P(AesText, HugeBase64TextsAreReadNoFurtherThanNeeded) {
  CAes aes;
  const BytesBeforeGuard unended(std::string(1367, 'A'));
  EXPECT_EQ(Whole(aes.Decrypt(kKey, unended.Last(1367))), Filled(""));
}

// Every possible last byte, with as many of it as it says, one less, and one more.
TEST_P(AesText, PaddingIsRemovedAsPeersExpectItKept) {
  std::vector<std::string> texts, expected;
  std::string all;
  for (int pad = 0; pad < 256; pad++) {
    const std::string byte(1, static_cast<char>(pad));
    for (const int count : {pad - 1, pad, pad + 1}) {
      const size_t run = count < 1 ? 1 : count > 48 ? 48 : static_cast<size_t>(count);
      std::string text(48 - run, 'Z');
      for (size_t i = 0; i < run; i++)
        text += byte;
      texts.push_back(text);
      all += text;
      if (pad > 0 && pad < 23)
        text = count < pad ? "" : text.substr(0, 48 - static_cast<size_t>(pad));
      expected.push_back(text);
    }
  }
  // For a pad value of 1, a run of 0 bytes cannot be made.
  expected[3] = texts[3].substr(0, 47);
  const std::string codes = CodeOf(all);  // ECB, and 48 bytes are 64 characters
  CAes aes;
  for (size_t i = 0; i < texts.size(); i++) {
    ASSERT_EQ(Whole(aes.Decrypt(kKey, codes.substr(64 * i, 64).c_str())), Filled(expected[i])) << i;
  }
}

TEST_P(AesText, PadValuesFrom17To22CountKept) {
  CAes aes;
  for (int pad = 17; pad < 23; pad++) {
    const size_t count = static_cast<size_t>(pad);
    const std::string bytes = TextOf(32 - count) + std::string(count, static_cast<char>(pad));
    EXPECT_EQ(Whole(aes.Decrypt(kKey, CodeOf(bytes).c_str())), Filled(TextOf(32 - count))) << pad;
  }
  const std::string beyond = std::string(32, '\x17');  // 23
  EXPECT_EQ(Whole(aes.Decrypt(kKey, CodeOf(beyond).c_str())), Filled(beyond));
}

TEST_P(AesText, PaddingThatWouldStartBeforeTheTextGivesEmptyText) {
  CAes aes;
  for (int pad = 17; pad < 23; pad++) {
    const std::string code = CodeOf(std::string(16, static_cast<char>(pad)));
    EXPECT_EQ(Whole(aes.Decrypt(kKey, code.c_str())), Filled("")) << pad;
  }
  EXPECT_EQ(Whole(aes.Decrypt(kKey, CodeOf(std::string(16, '\x10')).c_str())), Filled(""));
}

TEST_P(AesText, PaddingIsNotLookedForInFrontOfTheObject) {
  for (int pad = 17; pad < 23; pad++) {
    alignas(CAes) char storage[64 + sizeof(CAes)];
    std::memset(storage, pad, sizeof storage);
    CAes* aes = new (storage + 64) CAes;
    const std::string code = CodeOf(std::string(16, static_cast<char>(pad)));
    EXPECT_EQ(Whole(aes->Decrypt(kKey, code.c_str())), Filled("")) << pad;
    EXPECT_EQ(std::string(storage, 64), std::string(64, static_cast<char>(pad)));
    aes->~CAes();
  }
}

TEST_P(AesText, OneWrongPaddingByteClearsEverything) {
  CAes aes;
  for (size_t wrong = 0; wrong < 7; wrong++) {
    std::string bytes = TextOf(25) + std::string(7, '\x07');
    bytes[25 + wrong] = wrong == 6 ? '\x08' : '\x06';
    EXPECT_EQ(Whole(aes.Decrypt(kKey, CodeOf(bytes).c_str())), Filled("")) << wrong;
  }
}

TEST_P(AesText, TextWithoutPaddingStaysAsItIsKept) {
  CAes aes;
  const std::string bytes = "no padding here, only letters...";
  EXPECT_EQ(Whole(aes.Decrypt(kKey, CodeOf(bytes).c_str())), Filled(bytes));
}

TEST_P(AesText, BytesBehindAZeroOfTheTextAreInTheBuffer) {
  CAes aes;
  const std::string bytes = std::string("one\0two", 7) + std::string(9, '\x09');
  EXPECT_EQ(Whole(aes.Decrypt(kKey, CodeOf(bytes).c_str())), Filled(bytes.substr(0, 7)));
}

TEST_P(AesText, AWrongKeyUsuallyGivesEmptyTextAndNeverTheText) {
  CAes aes, other;
  const std::string code = aes.Encrypt(kKey, "secret");
  for (char c = 'a'; c <= 'z'; c++)
    EXPECT_STRNE(other.Decrypt(std::string(16, c).c_str(), code.c_str()), "secret");
  const std::string bytes =
      OpensslAes("ecb", false, std::string(16, 'a'), "",
                 OpensslAes("ecb", true, kKey, "", "secret" + std::string(10, 10)));
  ASSERT_TRUE(bytes.back() <= 0 || bytes.back() >= 23) << "choose another key";
  EXPECT_EQ(Whole(other.Decrypt("aaaaaaaaaaaaaaaa", code.c_str())), Filled(bytes));
}

// The object

TEST_P(AesText, TheLastResultCountsAsEmptyWhenPassedToTheSameObjectKept) {
  CAes aes;
  const std::string empty = aes.Encrypt(kKey, "");
  EXPECT_EQ(aes.Encrypt(kKey, aes.Encrypt(kKey, "text")), empty);
  EXPECT_STREQ(aes.Decrypt(kKey, aes.Encrypt(kKey, "text")), "");
  const std::string code = CodeOf(kKey + std::string(16, '\x10'));
  EXPECT_STREQ(aes.Encrypt(aes.Decrypt(kKey, code.c_str()), "text"), "");
}

TEST_P(AesText, EveryCallUsesTheObjectsOneBuffer) {
  CAes aes;
  char* first = aes.Encrypt(kKey, "text");
  EXPECT_EQ(first, reinterpret_cast<char*>(&aes));
  EXPECT_EQ(aes.Decrypt(kKey, "AAAA"), first);
  EXPECT_EQ(aes.Encrypt(nullptr, nullptr), first);
}

TEST_P(AesText, AShortResultLeavesNothingOfALongerOne) {
  CAes aes;
  const std::string expected = OpensslText("ecb", "a");
  aes.Encrypt(kKey, TextOf(700).c_str());
  EXPECT_EQ(Whole(aes.Encrypt(kKey, "a")), Filled(expected));
}

TEST_P(AesText, NothingOfTheKeyStaysOnTheStack) {
  if (kStackHoldsRegisters) GTEST_SKIP() << "the compiler itself leaves copies of registers behind";
  const std::string key = PatternBytes(64, 9).substr(8, 16);
  ASSERT_EQ(key.find('\0'), std::string::npos);
  const auto rows = RijndaelLines("for row in expand(d, 16)[1:]: print(row.hex())", key);
  ASSERT_EQ(rows.size(), 10u);
  CAes aes;
  const auto there = [&] { aes.Encrypt(key.c_str(), "text"); };
  const auto back = [&] { aes.Decrypt(key.c_str(), "AAAAAAAAAAAAAAAAAAAAAA=="); };
  there();  // binds all symbols, which would save registers on the stack
  ObservedStack stack;
  stack.Run(there);
  stack.Run(back);
  EXPECT_FALSE(stack.HoldsPartOf(key));
  for (const std::string& row : rows) {
    std::string bytes;
    for (size_t i = 0; i < row.size(); i += 2)
      bytes += static_cast<char>(std::stoi(row.substr(i, 2), nullptr, 16));
    EXPECT_FALSE(stack.HoldsPartOf(bytes));
  }
}

TEST(CAesObject, HasTheLayoutThatHostsKnow) {
  EXPECT_EQ(sizeof(CAes), 1128u);
  const CAes aes;
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(&aes), sizeof aes),
            std::string(sizeof aes, '\0'));
}

TEST(CAesObject, DistinctObjectsMayBeUsedAtOnce) {
  CAes reference;
  const std::string text = TextOf(300), expected = reference.Encrypt(kKey, text.c_str());
  std::vector<std::thread> threads;
  std::array<bool, 4> right{};
  for (size_t t = 0; t < right.size(); t++) {
    threads.emplace_back([&, t] {
      CAes there, back;
      right[t] = true;
      for (int round = 0; round < 200; round++) {
        right[t] = right[t] && there.Encrypt(kKey, text.c_str()) == expected &&
                   back.Decrypt(kKey, expected.c_str()) == text;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (const bool ok : right)
    EXPECT_TRUE(ok);
}
