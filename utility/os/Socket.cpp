// Socket verbs: every system call on IPv4 sockets that the transport classes make stands here.
#include "utility/os/Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <climits>

namespace Tarn::Os {

namespace {

constexpr int kFirstFreeDescriptor = 3;

int Result(int returned) {
  return returned == -1 ? -errno : 0;
}

template <typename T>
int SetOption(int fd, int level, int name, const T& value) {
  return Result(setsockopt(fd, level, name, &value, sizeof(value)));
}

sockaddr_in Address(in_addr_t ip, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ip;
  address.sin_port = htons(static_cast<unsigned short>(port));
  return address;
}

const sockaddr* Generalised(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

int AboveStandardStreams(int fd) {
  if (fd < 0 || fd >= kFirstFreeDescriptor) return fd;
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
  const int error = errno;
  close(fd);
  errno = error;
  return moved;
}

Descriptor OpenStreamSocket() {
  return Descriptor(AboveStandardStreams(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)));
}

void SetNoDelayByOneByte(int fd) {
  const char on = 1;
  SetOption(fd, IPPROTO_TCP, TCP_NODELAY, on);
}

int SetNonblocking(int fd) {
  const int flags = fcntl(fd, F_GETFL, 0);
  if (flags == -1) return -errno;
  return Result(fcntl(fd, F_SETFL, flags | O_NONBLOCK));
}

int SetReuseAddress(int fd) {
  return SetOption(fd, SOL_SOCKET, SO_REUSEADDR, 1);
}

int SetKeepAlive(int fd) {
  return SetOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
}

int SetReceiveBufferSize(int fd, int bytes) {
  return SetOption(fd, SOL_SOCKET, SO_RCVBUF, bytes);
}

int SetSendBufferSize(int fd, int bytes) {
  return SetOption(fd, SOL_SOCKET, SO_SNDBUF, bytes);
}

int BindPort(int fd, int port) {
  const sockaddr_in address = Address(htonl(INADDR_ANY), port);
  return Result(bind(fd, Generalised(address), sizeof(address)));
}

int Listen(int fd, int backlog) {
  return Result(listen(fd, backlog));
}

int Connect(int fd, const char* ip, int port) {
  const sockaddr_in address = Address(inet_addr(ip), port);
  return Result(connect(fd, Generalised(address), sizeof(address)));
}

int PendingError(int fd) {
  int error = 0;
  socklen_t size = sizeof(error);
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == -1) return errno;
  return error;
}

int ProbePort(const char* ip, int port) {
  const Descriptor probe = OpenStreamSocket();
  if (!probe.Valid()) return -errno;
  // Gone without a trace: a reset instead of a connection that lingers on the server.
  SetOption(probe.Get(), SOL_SOCKET, SO_LINGER, linger{1, 0});
  timeval saved{};
  socklen_t size = sizeof(saved);
  getsockopt(probe.Get(), SOL_SOCKET, SO_SNDTIMEO, &saved, &size);
  SetOption(probe.Get(), SOL_SOCKET, SO_SNDTIMEO, timeval{3, 0});
  const int result = Connect(probe.Get(), ip, port);
  SetOption(probe.Get(), SOL_SOCKET, SO_SNDTIMEO, saved);
  return result;
}

Descriptor Accept(int listener) {
  return Descriptor(AboveStandardStreams(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)));
}

int PeerOf(int fd, PeerAddress& peer) {
  sockaddr_in address{};
  socklen_t size = sizeof(address);
  if (getpeername(fd, reinterpret_cast<sockaddr*>(&address), &size) == -1) return -errno;
  if (inet_ntop(AF_INET, &address.sin_addr, peer.ip, sizeof(peer.ip)) == nullptr) return -errno;
  peer.port = ntohs(address.sin_port);
  return 0;
}

int ReceiveNow(int fd, char* buffer, int room) {
  const ssize_t count = recv(fd, buffer, static_cast<size_t>(room), MSG_DONTWAIT);
  if (count >= 0) return static_cast<int>(count);
  return errno == EINTR || errno == EWOULDBLOCK ? -EAGAIN : -errno;
}

void ShutdownBoth(int fd) {
  shutdown(fd, SHUT_RDWR);
}

int SendSome(int fd, const char* data, size_t length, SendMode mode) {
  const int flags = MSG_NOSIGNAL | (mode == SendMode::kNeverBlock ? MSG_DONTWAIT : 0);
  return static_cast<int>(send(fd, data, std::min<size_t>(length, INT_MAX), flags));
}

}  // namespace Tarn::Os
