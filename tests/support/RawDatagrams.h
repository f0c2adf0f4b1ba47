// Bare datagram sockets, and networks of their own to use them in.
#ifndef TARN_TESTS_SUPPORT_RAWDATAGRAMS_H
#define TARN_TESTS_SUPPORT_RAWDATAGRAMS_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Support.h"

namespace tarn_test {

struct Datagram {
  std::string ip;  ///< of the sender
  int port = 0;    ///< of the sender
  std::string bytes;
};

/// One bound UDP socket with a large receive buffer.
class RawDatagrams {
 public:
  /// `port` 0 lets the platform choose.
  explicit RawDatagrams(const std::string& ip = "127.0.0.1", int port = 0);
  ~RawDatagrams();
  RawDatagrams(const RawDatagrams&) = delete;
  RawDatagrams& operator=(const RawDatagrams&) = delete;

  [[nodiscard]] bool Valid() const { return fd_ >= 0; }
  [[nodiscard]] int Fd() const { return fd_; }
  [[nodiscard]] int Port() const { return port_; }

  bool Send(const std::string& ip, int port, const std::string& bytes);
  /// The next datagram; none when the limit passes first.
  std::optional<Datagram> Receive(milliseconds limit = 5000ms);
  /// The next `count` datagrams, or those that came before the limit passed without any.
  std::vector<Datagram> Receive(size_t count, milliseconds limit = 5000ms);
  /// Joins a group on the interface with the given address.
  bool Join(const std::string& group, const std::string& interfaceIp);

 private:
  int fd_ = -1;
  int port_ = 0;
};

/// A UDP port of 127.0.0.1 that was free a moment ago.
int FreeUdpPort();

/// The local address of a socket as "ip:port".
std::string BoundTo(int fd);

/// The value of a socket option; -1 when it cannot be had.
int SocketOption(int fd, int level, int name);

/// A thread in a network of its own, which has a loopback interface that is up and nothing else.
/// Everything started from it stays in there. Making one needs privileges.
class OwnNetwork {
 public:
  OwnNetwork();
  ~OwnNetwork();
  OwnNetwork(const OwnNetwork&) = delete;
  OwnNetwork& operator=(const OwnNetwork&) = delete;

  [[nodiscard]] bool Valid() const { return valid_; }
  /// Runs `body` on the thread and waits for its end.
  void Run(const std::function<void()>& body);
  /// Runs `ip` with the given arguments in there; false when it fails.
  bool Ip(const std::string& arguments);
  /// What the other end of a cable is to be put into.
  [[nodiscard]] int ThreadId() const { return threadId_; }

 private:
  void Work();

  std::mutex mutex_;
  std::condition_variable changed_;
  const std::function<void()>* body_ = nullptr;
  bool ends_ = false;
  bool ready_ = false;
  bool valid_ = false;
  int threadId_ = 0;
  std::thread thread_;
};

/// Lays a cable between two networks: 10.77.0.1 in the first, 10.77.0.2 in the second.
bool Connect(OwnNetwork& first, OwnNetwork& second, int mtu = 1500);

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_RAWDATAGRAMS_H
