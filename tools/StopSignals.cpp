// Waiting for SIGINT and SIGTERM through a descriptor.
#include "tools/StopSignals.h"

#include <Tarn/Generic/AsyncLog.h>
#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <iterator>

#include "tools/Console.h"

namespace tarn_tool {

StopSignals::StopSignals() {
  std::signal(SIGPIPE, SIG_IGN);
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGINT);
  sigaddset(&stops, SIGTERM);
  descriptor_ = signalfd(-1, &stops, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor_ >= 0) pthread_sigmask(SIG_BLOCK, &stops, nullptr);
}

StopSignals::~StopSignals() {
  if (descriptor_ >= 0) close(descriptor_);
}

int StopSignals::Wait(std::initializer_list<int> others, int timeoutMs) const {
  // A descriptor of -1 is skipped by poll.
  pollfd waits[] = {{descriptor_, POLLIN, 0}, {-1, POLLIN, 0}, {-1, POLLIN, 0}};
  pollfd* next = waits;
  for (const int other : others)
    (++next)->fd = other;
  poll(waits, std::size(waits), timeoutMs);
  signalfd_siginfo info;
  if (read(descriptor_, &info, sizeof info) != sizeof info) return 0;
  return static_cast<int>(info.ssi_signo);
}

int WithStopSignals(const std::function<int(const StopSignals&)>& run) {
  const StopSignals signals;
  if (!signals.Valid()) {
    Complain("signals cannot be waited for");
    return 1;
  }
  const int status = run(signals);
  Tarn::Generic::IAsyncLog::GetDefaultLogPtr()->Flush();
  return status;
}

}  // namespace tarn_tool
