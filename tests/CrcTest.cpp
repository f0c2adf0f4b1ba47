// The checksums against zlib and against bit-by-bit computation.
#include <Tarn/Generic/Crc.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

#include "tests/support/Oracle.h"
#include "tests/support/Support.h"

using namespace tarn_test;
using Tarn::Generic::CRC;

namespace {

// One step of the 1-Wire checksum, bit by bit: x^8 + x^5 + x^4 + 1, least significant bit first.
unsigned char OneWireStep(unsigned char crc, unsigned char byte) {
  for (int bit = 0; bit < 8; bit++) {
    const bool feedback = ((crc ^ (byte >> bit)) & 1) != 0;
    crc = static_cast<unsigned char>((crc >> 1) ^ (feedback ? 0x8c : 0));
  }
  return crc;
}

unsigned char ByBits(const std::string& data) {
  unsigned char crc = 0;
  for (const char c : data) {
    crc = OneWireStep(crc, static_cast<unsigned char>(c)) ^ 0x21;
  }
  return crc;
}

unsigned char ByTable(const std::string& data) {
  unsigned char crc = 0;
  for (const char c : data)
    crc = Table_CRC8[crc ^ static_cast<unsigned char>(c)];
  return crc;
}

int Crc8(const std::string& data) {
  CRC crc;
  return crc.CRC_8(const_cast<unsigned char*>(Bytes(data)), static_cast<unsigned int>(data.size()));
}

unsigned int Crc32(const std::string& data) {
  CRC crc;
  return crc.CRC_32(Bytes(data), static_cast<unsigned int>(data.size()));
}

const unsigned char g_seenEarly = Table_CRC8[1];  // read while constructors run

}  // namespace

TEST(Crc8, ZeroBytesGiveZero) {
  EXPECT_EQ(Crc8(""), 0);
}

TEST(Crc8, ASingleZeroByteGives0x21) {
  EXPECT_EQ(Crc8(std::string(1, '\0')), 0x21);
}

TEST(Crc8, TheTableBeginsAsHostsKnowIt) {
  EXPECT_EQ(Table_CRC8[0], 0x21);
  EXPECT_EQ(Table_CRC8[1], 0x7f);
  EXPECT_EQ(Table_CRC8[2], 0x9d);
  EXPECT_EQ(Table_CRC8[3], 0xc3);
  EXPECT_EQ(sizeof(Table_CRC8), 256u);
  EXPECT_EQ(g_seenEarly, 0x7f);
}

TEST(Crc8, EveryTableEntryIsTheOneWireEntryWith0x21Kept) {
  for (unsigned int i = 0; i < 256; i++) {
    EXPECT_EQ(Table_CRC8[i], OneWireStep(0, static_cast<unsigned char>(i)) ^ 0x21) << i;
  }
}

TEST(Crc8, EverySingleByteGivesItsTableEntry) {
  for (int i = 0; i < 256; i++) {
    ASSERT_EQ(Crc8(std::string(1, static_cast<char>(i))), Table_CRC8[i]) << i;
  }
}

TEST(Crc8, EveryLengthFollowsTheTableRuleKept) {
  const std::string data = PatternBytes(3000);
  for (size_t n = 0; n <= data.size(); n++)
    ASSERT_EQ(Crc8(data.substr(0, n)), ByTable(data.substr(0, n))) << n;
}

TEST(Crc8, BitByBitComputationAgrees) {
  for (const size_t n : {1u, 2u, 9u, 63u, 64u, 255u, 256u, 1000u, 100000u}) {
    EXPECT_EQ(Crc8(PatternBytes(n)), ByBits(PatternBytes(n))) << n;
    EXPECT_EQ(Crc8(std::string(n, '\0')), ByBits(std::string(n, '\0'))) << n;
    EXPECT_EQ(Crc8(std::string(n, '\xff')), ByBits(std::string(n, '\xff'))) << n;
  }
}

TEST(Crc8, TenMillionBytesAreTheLimitKept) {
  const std::string data = PatternBytes(10000001);
  const std::string allowed = data.substr(0, 10000000);
  EXPECT_EQ(Crc8(allowed), ByTable(allowed));
  EXPECT_EQ(Crc8(data), 0);
  CRC crc;
  unsigned char byte = 1;
  EXPECT_EQ(crc.CRC_8(&byte, 10000001), 0);  // not even looked at
  EXPECT_EQ(crc.CRC_8(&byte, 0xffffffff), 0);
}

TEST(Crc8, TheLimitIsNotAnAccidentalZero) {
  // The last allowed length of zeros gives something else, so the 0 above is the limit's.
  EXPECT_NE(ByTable(std::string(10000001, '\0')), 0);
  EXPECT_EQ(Crc8(std::string(10000001, '\0')), 0);
}

TEST(Crc8, NullGivesZero) {
  CRC crc;
  EXPECT_EQ(crc.CRC_8(nullptr, 0), 0);
  EXPECT_EQ(crc.CRC_8(nullptr, 100), 0);
}

TEST(Crc32, TheNineDigitsGiveTheCheckValue) {
  EXPECT_EQ(Crc32("123456789"), 0xCBF43926u);
}

TEST(Crc32, ZeroBytesGiveZero) {
  EXPECT_EQ(Crc32(""), 0u);
}

TEST(Crc32, EveryLengthAgreesWithZlib) {
  const std::string data = PatternBytes(1400);
  const auto expected = PythonLines("for n in range(1401): print(zlib.crc32(d[:n]))", data);
  ASSERT_EQ(expected.size(), 1401u);
  for (size_t n = 0; n <= 1400; n++) {
    ASSERT_EQ(std::to_string(Crc32(data.substr(0, n))), expected[n]) << n;
  }
}

TEST(Crc32, LargeInputAtAnyAddressAgreesWithZlib) {
  const std::string data = PatternBytes(1000100);
  const auto expected =
      PythonLines("for at in range(70): print(zlib.crc32(d[at:at + 1000000 + at % 33]))", data);
  ASSERT_EQ(expected.size(), 70u);
  CRC crc;
  for (unsigned int at = 0; at < 70; at++) {
    ASSERT_EQ(std::to_string(crc.CRC_32(Bytes(data) + at, 1000000 + at % 33)), expected[at]) << at;
  }
}

TEST(Crc32, NoLimitAppliesToIt) {
  const std::string data(10000001, '\0');
  EXPECT_EQ(std::to_string(Crc32(data)), PythonLines("print(zlib.crc32(d))", data).at(0));
}

TEST(Crc32, NullGivesZero) {
  CRC crc;
  EXPECT_EQ(crc.CRC_32(nullptr, 0), 0u);
  EXPECT_EQ(crc.CRC_32(nullptr, 100), 0u);
}

TEST(Crc, OneObjectServesSeveralThreads) {
  CRC crc;
  std::string data = PatternBytes(5000);
  auto* bytes = const_cast<unsigned char*>(Bytes(data));
  const unsigned int expected32 = Crc32(data);
  const int expected8 = ByTable(data);
  std::vector<std::thread> threads;
  std::array<bool, 4> right{};
  for (size_t t = 0; t < right.size(); t++) {
    threads.emplace_back([&, t] {
      right[t] = true;
      for (int round = 0; round < 100; round++) {
        right[t] = right[t] && crc.CRC_32(bytes, 5000) == expected32 &&
                   crc.CRC_8(bytes, 5000) == expected8;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (const bool ok : right)
    EXPECT_TRUE(ok);
}
