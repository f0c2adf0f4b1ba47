// What the UDP client and the UDP server share: their socket, sending and receiving.
#ifndef TARN_UTILITY_UDPSOCKET_H
#define TARN_UTILITY_UDPSOCKET_H

#include <netinet/in.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "utility/core/ReceiveBuffer.h"
#include "utility/os/Connection.h"
#include "utility/os/DatagramSocket.h"
#include "utility/os/Socket.h"
#include "utility/os/ThreadOwner.h"
#include "utility/os/Wait.h"

namespace Tarn {
namespace Generic {

constexpr int kUdpSocketBufferBytes = 8 * 1024 * 1024;
constexpr unsigned char kUdpMulticastHops = 64;

/// A copy of a dotted address, at most 16 characters.
struct UdpAddress {
  /// Null counts as empty.
  explicit UdpAddress(const char* ip);
  char text[17];
};

/// The address `own`, or the one of Tarn::GetLocalIP when it is empty; 0.0.0.0 when that knows
/// none.
UdpAddress LocalAddress(const UdpAddress& own);
/// The address of Tarn::GetLocalIP.
UdpAddress HostAddress();

/// From Core::NewDatagramBuffer.
using DatagramBuffer = std::unique_ptr<char, Core::ReceiveBufferFreer>;

/// A UDP socket with the buffer of the thread that reads it, shared by the threads that use it: the
/// last user closes and frees.
class UdpSocket {
 public:
  explicit UdpSocket(Os::Descriptor fd);

  [[nodiscard]] int Fd() const { return connection_.Fd(); }

  /// Tells senders to end.
  void End() { connection_.Shutdown(); }

  /// Takes over the receive buffer, before anybody receives.
  void SetBuffer(DatagramBuffer buffer) { buffer_ = std::move(buffer); }

  /// Sends all bytes as datagrams of `limit` bytes and a last one of what is left. Stopped when the
  /// socket ends meanwhile; a full socket is tried again every 10 ms.
  Os::SendResult Send(const sockaddr_in& to, const char* data, size_t length, size_t limit);

  /// Reads datagrams of up to `setting` bytes, and of no more than the buffer takes, for as long as
  /// `running` is set and the thread is not an orphan. Every one that is not empty goes to
  /// `deliver(length, sender)` with a NUL behind it.
  template <typename Deliver>
  void Receive(const std::atomic<int>& running, const std::atomic<int>& setting, Deliver deliver);

 private:
  void AwaitDatagram(int error) const;

  Os::Connection connection_;
  const bool canSegment_;
  DatagramBuffer buffer_;
};

using UdpSocketPtr = std::shared_ptr<UdpSocket>;

/// The current socket of a UDP object. Its lock is a leaf.
class UdpSocketHolder {
 public:
  /// Takes over an open descriptor: its number, or 0 when memory is short, with errno set.
  int Set(Os::Descriptor fd);
  /// Null when there is none.
  [[nodiscard]] UdpSocketPtr Get() const;
  /// Ends the socket and lets it go.
  void Drop();

 private:
  mutable std::mutex mutex_;
  UdpSocketPtr socket_;
};

template <typename Deliver>
void UdpSocket::Receive(const std::atomic<int>& running, const std::atomic<int>& setting,
                        Deliver deliver) {
  char* const buffer = buffer_.get();
  // An orphan's object may be gone: nothing of it is looked at then.
  while (!Os::IsOrphan() && running != 0) {
    sockaddr_in sender{};
    const int room = Core::DatagramRoomIn(buffer, setting);
    const int length = Os::ReceiveFrom(Fd(), buffer, static_cast<size_t>(room), sender);
    if (length > 0) {
      buffer[length] = '\0';
      deliver(length, sender);
    } else if (length < 0) {
      AwaitDatagram(-length);
    }
  }
}

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_UTILITY_UDPSOCKET_H
