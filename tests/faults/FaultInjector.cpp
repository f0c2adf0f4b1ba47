// Makes platform calls fail on purpose.
#include "tests/faults/FaultInjector.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace tarn_test {

namespace {

constexpr std::array kNames{"socket",  "setsockopt",    "bind",        "listen",         "accept4",
                            "connect", "getpeername",   "send",        "recv",           "poll",
                            "fcntl",   "epoll_create1", "epoll_ctl",   "pthread_create", "open",
                            "writev",  "fdopen",        "operator new"};
static_assert(kNames.size() == static_cast<size_t>(Call::kCount));

std::atomic<int> target{-1};
std::atomic<int> countdown{0};
std::atomic<bool> failOnwards{false};
std::atomic<bool> hasFailed{false};

}  // namespace

const char* NameOf(Call call) {
  return kNames[static_cast<size_t>(call)];
}

void FailCall(Call call, int nth, bool onwards) {
  countdown = nth;
  failOnwards = onwards;
  hasFailed = false;
  target = static_cast<int>(call);
}

bool StopFailing() {
  target = -1;
  return hasFailed;
}

bool Fails(Call call) {
  if (target != static_cast<int>(call)) return false;
  const int left = --countdown;
  const bool fails = left == 0 || (left < 0 && failOnwards);
  if (fails) hasFailed = true;
  return fails;
}

template <typename Function>
Function Next(Function /*type*/, const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace tarn_test

using tarn_test::Call;
using tarn_test::Fails;
using tarn_test::Next;

// The call of the same name behind this program's own.
#define TARN_NEXT(name) (Next(&name, #name))

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
  if (Fails(Call::kSocket)) return errno = EMFILE, -1;
  return TARN_NEXT(socket)(domain, type, protocol);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept {
  if (Fails(Call::kSetsockopt)) return errno = ENOBUFS, -1;
  return TARN_NEXT(setsockopt)(fd, level, name, value, size);
}

int bind(int fd, const sockaddr* address, socklen_t size) noexcept {
  if (Fails(Call::kBind)) return errno = EADDRINUSE, -1;
  return TARN_NEXT(bind)(fd, address, size);
}

int listen(int fd, int backlog) noexcept {
  if (Fails(Call::kListen)) return errno = EADDRINUSE, -1;
  return TARN_NEXT(listen)(fd, backlog);
}

int accept4(int fd, sockaddr* address, socklen_t* size, int flags) {
  if (Fails(Call::kAccept4)) return errno = ENFILE, -1;
  return TARN_NEXT(accept4)(fd, address, size, flags);
}

int connect(int fd, const sockaddr* address, socklen_t size) {
  if (Fails(Call::kConnect)) return errno = ENETUNREACH, -1;
  return TARN_NEXT(connect)(fd, address, size);
}

int getpeername(int fd, sockaddr* address, socklen_t* size) noexcept {
  if (Fails(Call::kGetpeername)) return errno = ENOTCONN, -1;
  return TARN_NEXT(getpeername)(fd, address, size);
}

ssize_t send(int fd, const void* data, size_t length, int flags) {
  if (Fails(Call::kSend)) return errno = ECONNRESET, -1;
  return TARN_NEXT(send)(fd, data, length, flags);
}

ssize_t recv(int fd, void* data, size_t length, int flags) {
  if (Fails(Call::kRecv)) return errno = ECONNRESET, -1;
  return TARN_NEXT(recv)(fd, data, length, flags);
}

int poll(pollfd* items, nfds_t count, int timeout) {
  if (Fails(Call::kPoll)) return errno = ENOMEM, -1;
  return TARN_NEXT(poll)(items, count, timeout);
}

int fcntl(int fd, int command, ...) {
  va_list args;
  va_start(args, command);
  const long argument = va_arg(args, long);
  va_end(args);
  if (Fails(Call::kFcntl)) return errno = EINVAL, -1;
  return TARN_NEXT(fcntl)(fd, command, argument);
}

int epoll_create1(int flags) noexcept {
  if (Fails(Call::kEpollCreate)) return errno = EMFILE, -1;
  return TARN_NEXT(epoll_create1)(flags);
}

int epoll_ctl(int set, int operation, int fd, epoll_event* event) noexcept {
  if (Fails(Call::kEpollCtl)) return errno = ENOMEM, -1;
  return TARN_NEXT(epoll_ctl)(set, operation, fd, event);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                   void* arg) noexcept {
  if (Fails(Call::kPthreadCreate)) return EAGAIN;
  return TARN_NEXT(pthread_create)(thread, attributes, entry, arg);
}

int open(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = va_arg(args, mode_t);
  va_end(args);
  if (Fails(Call::kOpen)) return errno = EACCES, -1;
  return TARN_NEXT(open)(path, flags, mode);
}

ssize_t writev(int fd, const iovec* pieces, int count) {
  if (Fails(Call::kWritev)) return errno = ENOSPC, -1;
  return TARN_NEXT(writev)(fd, pieces, count);
}

FILE* fdopen(int fd, const char* mode) noexcept {
  if (Fails(Call::kFdopen)) return errno = ENOMEM, nullptr;
  return TARN_NEXT(fdopen)(fd, mode);
}

}  // extern "C"

namespace {

void* Allocate(size_t size) {
  // Only on the library's own threads: the test needs memory, too.
  return gettid() != getpid() && Fails(Call::kNew) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void* operator new(size_t size) {
  if (void* block = Allocate(size)) return block;
  throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return Allocate(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, size_t /*size*/) noexcept {
  std::free(block);
}
void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
  std::free(block);
}
