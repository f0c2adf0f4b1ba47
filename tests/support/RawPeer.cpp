#include "tests/support/RawPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

namespace tarn_test {

namespace {

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<unsigned short>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

const sockaddr* AsSockaddr(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

bool WaitFor(int fd, short events, milliseconds limit) {
  pollfd item{fd, events, 0};
  return poll(&item, 1, static_cast<int>(std::max<long>(limit.count(), 0))) > 0;
}

milliseconds Left(std::chrono::steady_clock::time_point deadline) {
  return std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
}

int PortOf(int fd) {
  sockaddr_in address{};
  socklen_t size = sizeof(address);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

}  // namespace

RawPeer& RawPeer::operator=(RawPeer&& other) noexcept {
  if (this != &other) {
    Close();
    fd_ = std::exchange(other.fd_, -1);
  }
  return *this;
}

RawPeer RawPeer::Connect(int port, int receiveBuffer) {
  RawPeer peer(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (receiveBuffer > 0) {
    setsockopt(peer.fd_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
  }
  const sockaddr_in address = Loopback(port);
  if (connect(peer.fd_, AsSockaddr(address), sizeof(address)) != 0) peer.Close();
  return peer;
}

int RawPeer::LocalPort() const {
  return PortOf(fd_);
}

bool RawPeer::Send(const std::string& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

std::string RawPeer::Receive(size_t count, milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + Bound(limit);
  std::string bytes;
  std::array<char, 65536> block{};
  while (bytes.size() < count && WaitFor(fd_, POLLIN, Left(deadline))) {
    const ssize_t got = recv(fd_, block.data(), std::min(block.size(), count - bytes.size()), 0);
    if (got <= 0) break;
    bytes.append(block.data(), static_cast<size_t>(got));
  }
  return bytes;
}

std::string RawPeer::ReceiveAll(milliseconds limit) {
  return Receive(SIZE_MAX, limit);
}

bool RawPeer::WaitClosed(milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + Bound(limit);
  std::array<char, 65536> block{};
  while (WaitFor(fd_, POLLIN, Left(deadline))) {
    if (recv(fd_, block.data(), block.size(), 0) <= 0) return true;
  }
  return false;
}

bool RawPeer::WaitReadable(milliseconds limit) {
  return WaitFor(fd_, POLLIN, Bound(limit));
}

void RawPeer::ShutdownWrite() {
  shutdown(fd_, SHUT_WR);
}

void RawPeer::Reset() {
  const linger now{1, 0};
  setsockopt(fd_, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
  Close();
}

void RawPeer::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

RawListener::RawListener(int port, int backlog)
    : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
  const sockaddr_in address = Loopback(port);
  if (bind(fd_, AsSockaddr(address), sizeof(address)) != 0 || listen(fd_, backlog) != 0) {
    Close();
    return;
  }
  port_ = PortOf(fd_);
}

RawPeer RawListener::Accept(milliseconds limit) {
  if (!WaitFor(fd_, POLLIN, Bound(limit))) return RawPeer();
  return RawPeer(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
}

RawPeer RawListener::AcceptClient(milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + Bound(limit);
  while (Left(deadline) > 0ms) {
    if (!WaitFor(fd_, POLLIN, Left(deadline))) break;
    RawPeer peer(accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC));
    // The probe resets at once; a connection that stays silent and open is the real one.
    if (!peer.Valid() || !peer.WaitReadable(150ms * Patience())) return peer;
    char first = 0;
    if (recv(peer.Fd(), &first, 1, MSG_PEEK) > 0) return peer;
  }
  return RawPeer();
}

RawPeer RawListener::AcceptSpeaker() {
  while (true) {
    RawPeer peer = Accept();
    char first = 0;
    const bool speaks = peer.Valid() && peer.WaitReadable(5000ms) &&
                        recv(peer.Fd(), &first, sizeof first, MSG_PEEK) > 0;
    if (speaks || !peer.Valid()) return peer;
  }
}

void RawListener::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

int FreePort() {
  return FreePortFor(SOCK_STREAM);
}

}  // namespace tarn_test
