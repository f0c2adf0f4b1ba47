// A settable event: a flag under a mutex and a condition variable.
#include <Tarn/Generic/SyncEvent.h>

#include <cerrno>
#include <ctime>

#include "utility/core/Deadline.h"

namespace Tarn::Generic {

namespace {

// What a wait of a negative time comes to: it is over, unless its deadline on the wall clock, in
// whole microseconds, is one that the platform's waits refuse.
int NegativeWaitResult(int milliseconds) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  now.tv_nsec -= now.tv_nsec % 1000;
  return Core::DeadlineAfter(now, milliseconds).tv_nsec < 0 ? EINVAL : ETIMEDOUT;
}

}  // namespace

SyncEvent::SyncEvent() : SyncEvent(false, false) {}

SyncEvent::SyncEvent(bool manualReset, bool initialState)
    : m_bSignaled(initialState), m_bManualReset(manualReset) {
  pthread_mutex_init(&m_mutex, nullptr);
  pthread_cond_init(&m_cond, nullptr);
}

SyncEvent::~SyncEvent() {
  pthread_cond_destroy(&m_cond);
  pthread_mutex_destroy(&m_mutex);
}

bool SyncEvent::Set() {
  if (pthread_mutex_lock(&m_mutex) != 0) return false;
  m_bSignaled = true;
  const int error = m_bManualReset ? pthread_cond_broadcast(&m_cond) : pthread_cond_signal(&m_cond);
  // Kept: the mutex stays held. The platform never fails here; an event whose waiters cannot be
  // woken must not look usable.
  if (error != 0) return false;  // NOLINT(clang-analyzer-alpha.unix.PthreadLock)
  return pthread_mutex_unlock(&m_mutex) == 0;
}

bool SyncEvent::Reset() {
  if (pthread_mutex_lock(&m_mutex) != 0) return false;
  m_bSignaled = false;
  return pthread_mutex_unlock(&m_mutex) == 0;
}

bool SyncEvent::Wait() {
  if (pthread_mutex_lock(&m_mutex) != 0) return false;
  while (!m_bSignaled) {
    if (pthread_cond_wait(&m_cond, &m_mutex) != 0) {
      pthread_mutex_unlock(&m_mutex);
      return false;
    }
  }
  if (!m_bManualReset) m_bSignaled = false;
  return pthread_mutex_unlock(&m_mutex) == 0;
}

int SyncEvent::TimedWait(int milliseconds) {
  // The monotonic clock: a wall clock that is set back must not lengthen the wait.
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const timespec deadline = Core::DeadlineAfter(now, milliseconds);
  if (pthread_mutex_lock(&m_mutex) != 0) return -1;
  int error = 0;
  while (!m_bSignaled && error == 0) {
    error = milliseconds < 0
                ? NegativeWaitResult(milliseconds)
                : pthread_cond_clockwait(&m_cond, &m_mutex, CLOCK_MONOTONIC, &deadline);
  }
  if (error == 0 && !m_bManualReset) m_bSignaled = false;
  if (pthread_mutex_unlock(&m_mutex) != 0) return -1;
  if (error == 0) return 1;
  return error == ETIMEDOUT ? 0 : -1;
}

}  // namespace Tarn::Generic
