// Waiting for one descriptor, without a bound on descriptor numbers.
#include "utility/os/Wait.h"

#include <poll.h>

#include <cerrno>
#include <chrono>

namespace Tarn::Os {

namespace {

WaitResult Poll(int fd, short events, int timeoutMs) {
  // poll ignores negative descriptors and takes negative time-outs for "no limit".
  if (fd < 0) {
    errno = EBADF;
    return WaitResult::kFailed;
  }
  pollfd item{fd, events, 0};
  const int count = poll(&item, 1, timeoutMs < 0 ? 0 : timeoutMs);
  if (count == 0) return WaitResult::kTimeout;
  if (count < 0) return errno == EINTR ? WaitResult::kInterrupted : WaitResult::kFailed;
  if ((item.revents & POLLNVAL) != 0) {
    errno = EBADF;
    return WaitResult::kFailed;
  }
  return (item.revents & POLLPRI) != 0 ? WaitResult::kExceptional : WaitResult::kReady;
}

WaitResult PollThroughSignals(int fd, short events, int timeoutMs) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs < 0 ? 0 : timeoutMs);
  int leftMs = timeoutMs;
  while (true) {
    const WaitResult result = Poll(fd, events, leftMs);
    if (result != WaitResult::kInterrupted) return result;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    leftMs = left < 0 ? 0 : static_cast<int>(left);
  }
}

}  // namespace

WaitResult WaitReadable(int fd, int timeoutMs) {
  return Poll(fd, POLLIN, timeoutMs);
}

WaitResult WaitWritable(int fd, int timeoutMs) {
  return Poll(fd, POLLOUT, timeoutMs);
}

WaitResult WaitSendable(int fd, int timeoutMs) {
  return PollThroughSignals(fd, POLLOUT, timeoutMs);
}

WaitResult WaitConnected(int fd, int timeoutMs) {
  return PollThroughSignals(fd, POLLOUT | POLLPRI, timeoutMs);
}

}  // namespace Tarn::Os
