// What the UDP client and the UDP server share: their socket, sending and receiving.
#include "utility/UdpSocket.h"

#include <Tarn/Generic/DateTime.h>
#include <Tarn/Generic/LocalIP.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "utility/core/DatagramRuns.h"

namespace Tarn {
namespace Generic {

namespace {

constexpr int kReadWaitMs = 1000;
constexpr unsigned long kPauseMs = 10;

bool IsPassing(int error) {
  return error == EINTR || error == EAGAIN;
}

}  // namespace

UdpAddress::UdpAddress(const char* ip) {
  snprintf(text, sizeof(text), "%s", ip == nullptr ? "" : ip);
}

UdpAddress LocalAddress(const UdpAddress& own) {
  return own.text[0] != '\0' ? own : HostAddress();
}

UdpAddress HostAddress() {
  char bytes[sizeof(in_addr)] = {};
  GetLocalIP(bytes);
  in_addr address{};
  std::memcpy(&address, bytes, sizeof(address));
  return UdpAddress(Os::DottedText(address).text);
}

UdpSocket::UdpSocket(Os::Descriptor fd)
    : connection_(std::move(fd)), canSegment_(Os::CanSegment(connection_.Fd())) {}

Os::SendResult UdpSocket::Send(const sockaddr_in& to, const char* data, size_t length,
                               size_t limit) {
  using End = Os::SendResult::End;
  bool segmenting = canSegment_;
  size_t sent = 0;
  while (sent < length) {
    if (connection_.Ending()) return {End::kStopped, 0, 0};
    const size_t left = length - sent;
    const size_t datagram = std::min(left, limit);
    const size_t run = segmenting ? Core::SegmentedRun(left, limit) : datagram;
    const int count = run > datagram ? Os::SendSegmented(Fd(), data + sent, run, datagram, to)
                                     : Os::SendTo(Fd(), data + sent, run, to);
    if (count > 0) {
      sent += static_cast<size_t>(count);
    } else if (IsPassing(-count)) {
      CDateTime::SleepMilisecond(kPauseMs);
    } else if (run > datagram) {
      // The route may refuse to cut. What a single datagram meets there is what counts.
      segmenting = false;
    } else if (!connection_.Ending()) {
      return {End::kFailed, -1, -count};
    }
  }
  return {End::kAll, 0, 0};
}

/// Errors of reading are nobody's business; one that stays must not keep a processor busy, though.
void UdpSocket::AwaitDatagram(int error) const {
  const bool waited =
      IsPassing(error) && Os::WaitReadable(Fd(), kReadWaitMs) != Os::WaitResult::kFailed;
  if (!waited) CDateTime::SleepMilisecond(kPauseMs);
}

int UdpSocketHolder::Set(Os::Descriptor fd) {
  UdpSocketPtr socket;
  try {
    socket = std::make_shared<UdpSocket>(std::move(fd));
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return 0;
  }
  const std::lock_guard lock(mutex_);
  socket_ = socket;
  return socket->Fd();
}

UdpSocketPtr UdpSocketHolder::Get() const {
  const std::lock_guard lock(mutex_);
  return socket_;
}

void UdpSocketHolder::Drop() {
  UdpSocketPtr last;  // closes, if it does, after the lock is released
  const std::lock_guard lock(mutex_);
  last.swap(socket_);
  if (last != nullptr) last->End();
}

}  // namespace Generic
}  // namespace Tarn
