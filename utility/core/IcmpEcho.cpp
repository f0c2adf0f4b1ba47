// ICMP echo requests and replies.
#include "utility/core/IcmpEcho.h"

#include <cstring>

namespace Tarn::Core {

namespace {

constexpr size_t kSmallestIpHeader = 20;
constexpr size_t kTimeToLiveAt = 8;
constexpr unsigned char kEchoRequest = 8;
constexpr size_t kChecksumAt = 2;
constexpr size_t kIdentifierAt = 4;
constexpr size_t kSequenceAt = 6;
constexpr size_t kSendTimeAt = 8;
constexpr size_t kIcmpHeader = 8;
constexpr size_t kSendTimeEnd = kSendTimeAt + sizeof(EchoTime);
static_assert(sizeof(EchoTime) == 16);

void StoreBigEndian(unsigned char* at, uint16_t value) {
  at[0] = static_cast<unsigned char>(value >> 8);
  at[1] = static_cast<unsigned char>(value & 0xFF);
}

uint16_t LoadBigEndian(const unsigned char* at) {
  return static_cast<uint16_t>(at[0] << 8 | at[1]);
}

int64_t WrappingDifference(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

}  // namespace

EchoTime TimeBetween(const EchoTime& earlier, const EchoTime& later) {
  EchoTime time{WrappingDifference(later.seconds, earlier.seconds),
                WrappingDifference(later.microseconds, earlier.microseconds)};
  if (time.microseconds < 0) {
    time.seconds = WrappingDifference(time.seconds, 1);
    time.microseconds += 1'000'000;
  }
  return time;
}

int64_t WholeMilliseconds(const EchoTime& time) {
  return static_cast<int64_t>(static_cast<uint64_t>(time.seconds) * 1000 +
                              static_cast<uint64_t>(time.microseconds / 1000));
}

uint16_t InternetChecksum(const void* data, size_t length) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  uint64_t sum = 0;
  for (; length > 1; length -= 2, bytes += 2) {
    uint16_t word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    sum += word;
  }
  if (length == 1) {
    uint16_t word = 0;
    std::memcpy(&word, bytes, 1);
    sum += word;
  }
  while (sum > 0xFFFF)
    sum = (sum >> 16) + (sum & 0xFFFF);
  return static_cast<uint16_t>(~sum);
}

void BuildEchoRequest(unsigned char* packet, uint16_t identifier, uint16_t sequence,
                      const EchoTime& sent) {
  std::memset(packet, 0, kIcmpHeader);
  packet[0] = kEchoRequest;
  StoreBigEndian(packet + kIdentifierAt, identifier);
  StoreBigEndian(packet + kSequenceAt, sequence);
  std::memcpy(packet + kSendTimeAt, &sent, sizeof(sent));
  const uint16_t checksum = InternetChecksum(packet, kEchoRequestLength);
  std::memcpy(packet + kChecksumAt, &checksum, sizeof(checksum));
}

bool ReadEchoPacket(const void* data, size_t length, EchoPacket& packet) {
  const auto* bytes = static_cast<const unsigned char*>(data);
  if (length < kSmallestIpHeader) return false;
  const size_t ipHeader = static_cast<size_t>(bytes[0] & 0x0F) * 4;
  if (ipHeader < kSmallestIpHeader || length < ipHeader || length - ipHeader < kIcmpHeader) {
    return false;
  }
  const unsigned char* icmp = bytes + ipHeader;
  const size_t icmpLength = length - ipHeader;
  packet = {static_cast<int>(icmpLength),
            bytes[kTimeToLiveAt],
            icmp[0],
            LoadBigEndian(icmp + kIdentifierAt),
            LoadBigEndian(icmp + kSequenceAt),
            icmpLength >= kSendTimeEnd,
            {}};
  if (packet.hasSendTime) std::memcpy(&packet.sent, icmp + kSendTimeAt, sizeof(packet.sent));
  return true;
}

}  // namespace Tarn::Core
