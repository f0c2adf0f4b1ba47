// Receive buffers that know their own capacity.
//
// The capacity stands in front of the bytes, in the same allocation, so that a buffer stays within
// its bounds whatever happens later to the setting it was made with.
#ifndef TARN_UTILITY_CORE_RECEIVEBUFFER_H
#define TARN_UTILITY_CORE_RECEIVEBUFFER_H

namespace Tarn::Core {

/// What stands in front of a receive buffer's bytes.
struct alignas(16) ReceiveBufferHead {
  int capacity;  ///< bytes behind the head
  int scanned;   ///< bytes from the front that are known to hold no whole line
};

/// `capacity` bytes, not touched yet. Null when the capacity is not positive or memory is short.
char* NewReceiveBuffer(int capacity);

/// As above for whole datagrams of up to `capacity` bytes, 0 included: one byte more stands behind
/// them, for the NUL behind a datagram that fills them. Null when the capacity is negative.
char* NewDatagramBuffer(int capacity);

/// Releases a buffer; null is ignored.
void FreeReceiveBuffer(char* buffer);

/// The head of a buffer made by NewReceiveBuffer.
ReceiveBufferHead& HeadOf(char* buffer);

/// How many bytes one read may ask for: up to the smaller of the buffer's capacity and the current
/// setting, less one byte that stays free for a NUL. 0 when the buffer is full.
int RoomIn(char* buffer, int setting, int held);

/// How many bytes of a datagram a buffer made by NewDatagramBuffer takes: the smaller of its
/// capacity and the current setting.
int DatagramRoomIn(char* buffer, int setting);

struct ReceiveBufferFreer {
  void operator()(char* buffer) const { FreeReceiveBuffer(buffer); }
};

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_RECEIVEBUFFER_H
