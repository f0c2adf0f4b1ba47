// Socket verbs: every system call on IPv4 sockets that the transport classes make stands here.
//
// Results are 0 or a count on success and a negated error number on failure.
#ifndef TARN_UTILITY_OS_SOCKET_H
#define TARN_UTILITY_OS_SOCKET_H

#include <cerrno>
#include <cstddef>

#include "utility/os/Handle.h"
#include "utility/os/Wait.h"

namespace Tarn::Os {

/// How long one wait for room in a socket lasts before the sender looks whether it should go on.
constexpr int kSendSliceMs = 10;

/// Moves a descriptor out of the range of the standard streams: 0 stands for "none" in the classes
/// above, and hosts may have closed their streams. The result is at least 3, or -1 with errno set.
int AboveStandardStreams(int fd);

/// A new stream socket, close-on-exec; invalid with errno set.
Descriptor OpenStreamSocket();

/// Sets TCP_NODELAY with an option value of one byte, which the platform may refuse; nobody is
/// told. Kept: connections have always run with the platform's answer to that, and peers see its
/// timing.
void SetNoDelayByOneByte(int fd);
int SetNonblocking(int fd);
int SetReuseAddress(int fd);
int SetKeepAlive(int fd);
int SetReceiveBufferSize(int fd, int bytes);
int SetSendBufferSize(int fd, int bytes);

/// Binds to all addresses and the given port.
int BindPort(int fd, int port);
int Listen(int fd, int backlog);

/// Begins a connect to dotted text (0: done at once, -EINPROGRESS: under way when non-blocking).
int Connect(int fd, const char* ip, int port);
/// The pending error of a socket as a positive number, 0 for none.
int PendingError(int fd);

/// Tests a port with a connection of its own that is torn down at once, waiting 3 s at most. 0 or a
/// negated error number.
int ProbePort(const char* ip, int port);

/// The next connection of a listening socket, in blocking mode; invalid with errno set.
Descriptor Accept(int listener);

/// Where the other end of a connection is.
struct PeerAddress {
  char ip[16];
  int port;
};
int PeerOf(int fd, PeerAddress& peer);

/// One read that never blocks: bytes, 0 at the end of the stream, or a negated error number. A
/// signal or an empty socket is -EAGAIN.
int ReceiveNow(int fd, char* buffer, int room);

/// Ends both directions of a stream; failures do not matter.
void ShutdownBoth(int fd);

/// How a send of several bytes ended.
struct SendResult {
  enum class End { kAll, kStopped, kFailed };
  End end;
  int sendResult;  ///< of the failing call
  int error;       ///< of the failing call
};

enum class SendMode {
  kNeverBlock,  ///< wait for room here, so that the send can be stopped
  kAsIs         ///< leave blocking to the descriptor's own mode
};

/// Sends all bytes without raising the broken-pipe signal. Before each piece, and at least every
/// kSendSliceMs while the socket is full, `goOn()` says whether to continue.
template <typename GoOn>
SendResult SendAll(int fd, const char* data, size_t length, SendMode mode, GoOn goOn);

/// One send call: bytes sent (0 or less: failed, errno set).
int SendSome(int fd, const char* data, size_t length, SendMode mode);

template <typename GoOn>
SendResult SendAll(int fd, const char* data, size_t length, SendMode mode, GoOn goOn) {
  size_t sent = 0;
  while (sent < length) {
    if (!goOn()) return {SendResult::End::kStopped, 0, 0};
    const int count = SendSome(fd, data + sent, length - sent, mode);
    if (count > 0) {
      sent += static_cast<size_t>(count);
      continue;
    }
    const int error = errno;
    if (count == 0 || (error != EINTR && error != EAGAIN)) {
      return {SendResult::End::kFailed, count, error};
    }
    if (error == EAGAIN) WaitWritable(fd, kSendSliceMs);
  }
  return {SendResult::End::kAll, 0, 0};
}

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_SOCKET_H
