// Echo packets as they stand on the wire.
#include "utility/core/IcmpEcho.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include "tests/support/Support.h"

namespace Tarn::Core {
namespace {

using namespace tarn_test;

// The checksum as its two bytes stand on the wire.
unsigned OnTheWire(uint16_t checksum) {
  unsigned char bytes[2];
  std::memcpy(bytes, &checksum, sizeof(bytes));
  return static_cast<unsigned>(bytes[0] << 8 | bytes[1]);
}

unsigned Checksum(const std::string& bytes) {
  return OnTheWire(InternetChecksum(bytes.data(), bytes.size()));
}

std::string Hex(const std::string& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

// A received packet: an IPv4 header of `words` words with the given time to live, then `icmp`.
std::string Received(const std::string& icmp, int words = 5, char timeToLive = 64) {
  std::string packet(static_cast<size_t>(words) * 4, '\0');
  packet[0] = static_cast<char>(0x40 + words);
  packet[8] = timeToLive;
  return packet + icmp;
}

// Reads from an exact heap block, so that a byte too far is seen.
bool Read(const std::string& bytes, EchoPacket& packet) {
  const std::unique_ptr<char[]> block(new char[bytes.size()]);
  std::memcpy(block.get(), bytes.data(), bytes.size());
  return ReadEchoPacket(block.get(), bytes.size(), packet);
}

TEST(InternetChecksumTest, MatchesTheExampleOfItsRfc) {
  EXPECT_EQ(Checksum(std::string("\x00\x01\xf2\x03\xf4\xf5\xf6\xf7", 8)), 0x220dU);
}

TEST(InternetChecksumTest, PadsAnOddByteWithZero) {
  EXPECT_EQ(Checksum(std::string("\xab", 1)), 0xFFFFU - 0xab00U);
  EXPECT_EQ(Checksum(std::string("\x12\x34\xab", 3)), 0xFFFFU - (0x1234U + 0xab00U));
}

TEST(InternetChecksumTest, FoldsAllCarries) {
  EXPECT_EQ(Checksum(std::string("\xff\xff\x00\x01", 4)), 0xFFFEU);
  EXPECT_EQ(Checksum(std::string(4096, '\xff')), 0U);
  EXPECT_EQ(Checksum(std::string(1 << 20, '\xff')), 0U);
}

TEST(InternetChecksumTest, OfNothingIsAllOnes) {
  EXPECT_EQ(InternetChecksum(nullptr, 0), 0xFFFF);
}

TEST(InternetChecksumTest, AcceptsUnalignedData) {
  const std::string bytes = PatternBytes(65);
  EXPECT_EQ(Checksum(bytes.substr(1)), OnTheWire(InternetChecksum(bytes.data() + 1, 64)));
}

TEST(EchoRequestTest, HasItsFixedLayout) {
  unsigned char packet[80];
  std::memset(packet, 0xEE, sizeof(packet));
  BuildEchoRequest(packet, 0x1234, 0x0102, {0x1122334455667788, 0x99});
  const std::string bytes(reinterpret_cast<char*>(packet), sizeof(packet));
  // Independent of our own code: the header and the sum as another program packs them.
  const std::string expected = RunCommand(
      "python3 -c \"import struct\n"
      "t=struct.pack('<qq',0x1122334455667788,0x99)+b'\\xee'*40\n"
      "h=lambda c: struct.pack('>BBHHH',8,0,c,0x1234,0x0102)\n"
      "s=sum(struct.unpack('>32H',h(0)+t))\n"
      "s=(s>>16)+(s&0xffff); s=(s>>16)+(s&0xffff)\n"
      "print((h(~s&0xffff)+t).hex(),end='')\"");
  EXPECT_EQ(Hex(bytes.substr(0, 64)), expected);
  EXPECT_EQ(bytes.substr(64), std::string(16, '\xEE'));
}

TEST(EchoRequestTest, SumsToZeroWithItsChecksum) {
  unsigned char packet[64] = {};
  for (unsigned i = 0; i < 500; ++i) {
    BuildEchoRequest(packet, static_cast<uint16_t>(i * 131), static_cast<uint16_t>(i), {i, i * 7});
    ASSERT_EQ(InternetChecksum(packet, sizeof(packet)), 0);
  }
}

TEST(EchoPacketTest, ReadsBackARequest) {
  unsigned char request[64] = {};
  BuildEchoRequest(request, 0xBEEF, 4, {12, 34});
  EchoPacket packet{};
  ASSERT_TRUE(Read(Received(std::string(reinterpret_cast<char*>(request), 64), 5, 57), packet));
  EXPECT_EQ(packet.length, 64);
  EXPECT_EQ(packet.timeToLive, 57);
  EXPECT_EQ(packet.type, 8);
  EXPECT_EQ(packet.identifier, 0xBEEF);
  EXPECT_EQ(packet.sequence, 4);
  EXPECT_TRUE(packet.hasSendTime);
  EXPECT_EQ(packet.sent.seconds, 12);
  EXPECT_EQ(packet.sent.microseconds, 34);
}

TEST(EchoPacketTest, StepsOverIpOptions) {
  std::string icmp(24, '\0');
  icmp[7] = 9;
  for (int words = 5; words <= 15; ++words) {
    EchoPacket packet{};
    ASSERT_TRUE(Read(Received(icmp, words), packet));
    EXPECT_EQ(packet.sequence, 9);
    EXPECT_EQ(packet.length, 24);
  }
}

TEST(EchoPacketTest, RefusesEveryPacketThatIsTooShort) {
  for (const int words : {5, 6, 15}) {
    const std::string whole = Received(std::string(8, '\0'), words);
    EchoPacket packet{};
    for (size_t length = 0; length < whole.size(); ++length) {
      EXPECT_FALSE(Read(whole.substr(0, length), packet)) << length;
    }
    EXPECT_TRUE(Read(whole, packet));
  }
}

TEST(EchoPacketTest, RefusesAnIpHeaderThatIsTooSmall) {
  for (char words = 0; words < 5; ++words) {
    std::string bytes = Received(std::string(64, '\0'));
    bytes[0] = static_cast<char>(0x40 + words);
    EchoPacket packet{};
    EXPECT_FALSE(Read(bytes, packet));
  }
}

TEST(EchoPacketTest, HasASendTimeFromTwentyFourBytesOn) {
  for (size_t length = 8; length <= 30; ++length) {
    EchoPacket packet{};
    ASSERT_TRUE(Read(Received(std::string(length, '\x01')), packet));
    EXPECT_EQ(packet.hasSendTime, length >= 24) << length;
    EXPECT_EQ(packet.sent.seconds, length >= 24 ? 0x0101010101010101 : 0);
  }
}

TEST(EchoTimeTest, BorrowsASecond) {
  const EchoTime time = TimeBetween({10, 900'000}, {12, 100'000});
  EXPECT_EQ(time.seconds, 1);
  EXPECT_EQ(time.microseconds, 200'000);
  EXPECT_EQ(WholeMilliseconds(time), 1200);
}

TEST(EchoTimeTest, CutsTheRestOfAMillisecond) {
  EXPECT_EQ(WholeMilliseconds(TimeBetween({10, 0}, {10, 999})), 0);
  EXPECT_EQ(WholeMilliseconds(TimeBetween({10, 0}, {10, 1999})), 1);
}

TEST(EchoTimeTest, TakesAnyTimesFromTheWire) {
  constexpr int64_t least = std::numeric_limits<int64_t>::min();
  constexpr int64_t most = std::numeric_limits<int64_t>::max();
  for (const int64_t a : {least, int64_t{-1}, int64_t{0}, most}) {
    for (const int64_t b : {least, int64_t{-1}, int64_t{0}, most}) {
      const EchoTime time = TimeBetween({a, b}, {b, a});
      static_cast<void>(WholeMilliseconds(time));
      EXPECT_EQ(static_cast<uint64_t>(TimeBetween({a, 0}, {b, 0}).seconds),
                static_cast<uint64_t>(b) - static_cast<uint64_t>(a));
    }
  }
}

}  // namespace
}  // namespace Tarn::Core
