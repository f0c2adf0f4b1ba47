// ICMP echo requests and replies (RFC 792), with the Internet checksum (RFC 1071).
//
// A request, carried by the platform in an IPv4 packet; numbers in network order unless told:
//
//   offset  size
//        0     1  type 8
//        1     1  code 0
//        2     2  checksum of all 64 bytes, computed with this field 0
//        4     2  identifier
//        6     2  sequence number, from 1
//        8    16  send time: seconds and microseconds, 64 bits each, host order
//       24    40  left as it is
//
// A reply is received with its IPv4 header in front and carries the same bytes under type 0.
#ifndef TARN_UTILITY_CORE_ICMPECHO_H
#define TARN_UTILITY_CORE_ICMPECHO_H

#include <cstddef>
#include <cstdint>

namespace Tarn::Core {

constexpr size_t kEchoRequestLength = 64;

/// A moment, or the time between two.
struct EchoTime {
  int64_t seconds;
  int64_t microseconds;
};

/// `later` - `earlier`, borrowing one second at most; wraps when the seconds do not fit.
EchoTime TimeBetween(const EchoTime& earlier, const EchoTime& later);

/// Whole milliseconds, wrapping; the rest of a millisecond is cut.
int64_t WholeMilliseconds(const EchoTime& time);

/// The Internet checksum of `length` bytes, in the byte order of the platform's memory: stored with
/// memcpy it is right on the wire.
uint16_t InternetChecksum(const void* data, size_t length);

/// Writes a request into the first kEchoRequestLength bytes of `packet`.
void BuildEchoRequest(unsigned char* packet, uint16_t identifier, uint16_t sequence,
                      const EchoTime& sent);

/// What stands in a received packet.
struct EchoPacket {
  int length;  ///< of the ICMP part
  int timeToLive;
  int type;
  uint16_t identifier;
  uint16_t sequence;
  bool hasSendTime;  ///< the ICMP part is long enough for one
  EchoTime sent;     ///< zeros without one
};

/// Reads an IPv4 packet of `length` bytes. False when it ends before the 8th byte of its ICMP part
/// or its own header makes no sense.
bool ReadEchoPacket(const void* data, size_t length, EchoPacket& packet);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_ICMPECHO_H
