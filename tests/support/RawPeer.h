// Bare sockets for checking the bytes on the wire without the library's own clients and servers.
#ifndef TARN_TESTS_SUPPORT_RAWPEER_H
#define TARN_TESTS_SUPPORT_RAWPEER_H

#include <chrono>
#include <string>

#include "tests/support/Support.h"

namespace tarn_test {

/// One connected TCP socket; blocking, with a bound on every wait.
class RawPeer {
 public:
  RawPeer() = default;
  explicit RawPeer(int fd) : fd_(fd) {}
  RawPeer(RawPeer&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  RawPeer& operator=(RawPeer&& other) noexcept;
  ~RawPeer() { Close(); }

  /// Connects to 127.0.0.1; Valid() tells whether it worked. A `receiveBuffer` above 0 sets
  /// SO_RCVBUF before the connect.
  static RawPeer Connect(int port, int receiveBuffer = 0);

  [[nodiscard]] bool Valid() const { return fd_ >= 0; }
  [[nodiscard]] int Fd() const { return fd_; }
  /// The port of this end, host order.
  [[nodiscard]] int LocalPort() const;

  /// Sends everything; false when the connection failed first.
  bool Send(const std::string& bytes);
  /// Exactly `count` bytes, or what came before the end of the stream or the time limit.
  std::string Receive(size_t count, milliseconds limit = 5000ms);
  /// Everything until the peer closes, or the limit.
  std::string ReceiveAll(milliseconds limit = 5000ms);
  /// True when the peer closes (or resets) within the limit; data before that is thrown away.
  bool WaitClosed(milliseconds limit = 5000ms);
  /// True when at least one byte is waiting within the limit.
  bool WaitReadable(milliseconds limit);
  void ShutdownWrite();
  /// Closes so that the peer sees a reset instead of an end of stream.
  void Reset();
  void Close();

 private:
  int fd_ = -1;
};

/// A listening socket on 127.0.0.1.
class RawListener {
 public:
  /// `port` 0 lets the platform choose.
  explicit RawListener(int port = 0, int backlog = 64);
  ~RawListener() { Close(); }
  RawListener(const RawListener&) = delete;
  RawListener& operator=(const RawListener&) = delete;
  [[nodiscard]] int Port() const { return port_; }
  [[nodiscard]] bool Valid() const { return fd_ >= 0; }
  /// The next connection, invalid after the limit.
  RawPeer Accept(milliseconds limit = 5000ms);
  /// As Accept, but passes over connections that end without a byte: the client tests a port with a
  /// short-lived probe before it connects. Waits until the survivor is seen to stay open.
  RawPeer AcceptClient(milliseconds limit = 5000ms);
  /// The first connection on which something comes, however late it speaks.
  RawPeer AcceptSpeaker();
  void Close();

 private:
  int fd_ = -1;
  int port_ = 0;
};

/// A TCP port of 127.0.0.1 that was free a moment ago.
int FreePort();

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_RAWPEER_H
