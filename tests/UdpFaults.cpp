// Makes platform calls of the UDP objects fail on demand, and counts them.
#include "tests/UdpFaults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/udp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdarg>

namespace tarn_test {

namespace {

std::atomic<UdpFaults*> current{nullptr};

template <typename Function>
Function Next(Function /*type*/, const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool Fails(FaultyCall UdpFaults::*call) {
  UdpFaults* const faults = current;
  return faults != nullptr && (faults->*call).Fails();
}

// Not inlined, not const: the platform declares poll's items as memory that is only written to.
__attribute__((noinline)) bool AsksToWrite(pollfd* item) {
  return (item->events & POLLOUT) != 0;
}

}  // namespace

bool FaultyCall::Fails() {
  ++calls;
  if (failures <= 0) return false;
  --failures;
  errno = error;
  return true;
}

UdpFaults::UdpFaults() {
  current = this;
}

UdpFaults::~UdpFaults() {
  current = nullptr;
}

}  // namespace tarn_test

using tarn_test::current;
using tarn_test::Fails;
using tarn_test::Next;
using tarn_test::UdpFaults;

// The call of the same name behind this program's own.
#define TARN_NEXT(name) (Next(&name, #name))

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  if (Fails(&UdpFaults::socket)) return -1;
  return TARN_NEXT(socket)(domain, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t size) noexcept {
  UdpFaults* const faults = current;
  if (faults != nullptr && faults->beforeBind) faults->beforeBind();
  return TARN_NEXT(bind)(fd, address, size);
}

ssize_t sendto(int fd, const void* data, size_t length, int flags, const sockaddr* to,
               socklen_t size) {
  if (Fails(&UdpFaults::sendto)) return -1;
  return TARN_NEXT(sendto)(fd, data, length, flags, to, size);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  if (Fails(&UdpFaults::sendmsg)) return -1;
  return TARN_NEXT(sendmsg)(fd, message, flags);
}

ssize_t recvfrom(int fd, void* buffer, size_t room, int flags, sockaddr* from, socklen_t* size) {
  if (Fails(&UdpFaults::recvfrom)) return -1;
  return TARN_NEXT(recvfrom)(fd, buffer, room, flags, from, size);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
  UdpFaults* const faults = current;
  const bool meant = faults != nullptr && name == faults->setsockoptName;
  if (meant && Fails(&UdpFaults::setsockopt)) return -1;
  return TARN_NEXT(setsockopt)(fd, level, name, value, size);
}

int getsockopt(int fd, int level, int name, void* value, socklen_t* size) noexcept {
  if (level == SOL_UDP && name == UDP_SEGMENT && Fails(&UdpFaults::segmentation)) return -1;
  return TARN_NEXT(getsockopt)(fd, level, name, value, size);
}

int fcntl(int fd, int command, ...) {
  va_list args;
  va_start(args, command);
  const long argument = va_arg(args, long);
  va_end(args);
  if (command == F_SETFL && Fails(&UdpFaults::fcntl)) return -1;
  return TARN_NEXT(fcntl)(fd, command, argument);
}

int poll(pollfd* items, nfds_t count, int timeout) {
  UdpFaults* const faults = current;
  if (faults != nullptr && faults->neverWritable && tarn_test::AsksToWrite(items)) return 0;
  return TARN_NEXT(poll)(items, count, timeout);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* arg) noexcept {
  if (Fails(&UdpFaults::create)) return EAGAIN;
  return TARN_NEXT(pthread_create)(thread, attributes, entry, arg);
}

}  // extern "C"
