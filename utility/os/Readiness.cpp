// Waiting for many descriptors, by the ids of their connections.
#include "utility/os/Readiness.h"

#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>

#include "utility/os/Socket.h"

namespace Tarn::Os {

int Readiness::Open() {
  epoll_.Reset(AboveStandardStreams(epoll_create1(EPOLL_CLOEXEC)));
  return epoll_.Valid() ? 0 : -errno;
}

void Readiness::Close() {
  epoll_.Reset();
}

int Readiness::Add(int fd, uint64_t id) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = id;
  return epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, fd, &event) == 0 ? 0 : -errno;
}

void Readiness::Remove(int fd) {
  epoll_event ignored{};
  epoll_ctl(epoll_.Get(), EPOLL_CTL_DEL, fd, &ignored);
}

Readiness::Ids Readiness::Wait(int timeoutMs) {
  std::array<epoll_event, kMaxReady> events;
  const int count =
      epoll_wait(epoll_.Get(), events.data(), static_cast<int>(events.size()), timeoutMs);
  // A failure must not turn the caller's loop into a spin.
  if (count < 0 && errno != EINTR) poll(nullptr, 0, timeoutMs);
  if (count <= 0) return {ready_.data(), 0};
  std::transform(events.begin(), events.begin() + count, ready_.begin(),
                 [](const epoll_event& event) { return event.data.u64; });
  std::sort(ready_.begin(), ready_.begin() + count);
  return {ready_.data(), static_cast<size_t>(count)};
}

}  // namespace Tarn::Os
