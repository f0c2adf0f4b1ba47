// Starting, naming and ending threads whose handles live in fields of other objects.
#include "utility/os/ThreadOwner.h"

#include <cerrno>
#include <mutex>
#include <type_traits>

namespace Tarn::Os {

namespace {

// Usable before any constructor and after any destructor of the process: hosts start threads from
// their globals, and threads may still end while the process exits.
constinit std::mutex transitions;
static_assert(std::is_trivially_destructible_v<std::mutex>);

thread_local bool orphan = false;

int StartLocked(ThreadHandle& handle, void* (*entry)(void*), void* arg, const char* name) {
  pthread_t thread = 0;
  const int error = pthread_create(&thread, nullptr, entry, arg);
  if (error != 0) {
    handle = 0;
    return error;
  }
  // Named before it is stored: nobody can join it in between.
  if (name != nullptr) pthread_setname_np(thread, name);
  handle = thread;
  return 0;
}

// Joins a thread whose handle the caller has taken.
bool Join(pthread_t thread) {
  if (thread == 0) return false;
  if (pthread_equal(thread, pthread_self()) != 0) {
    orphan = true;
    pthread_detach(thread);
  } else {
    pthread_join(thread, nullptr);
  }
  return true;
}

}  // namespace

int StartThread(ThreadHandle& handle, void* (*entry)(void*), void* arg, const char* name) {
  const std::lock_guard lock(transitions);
  return StartLocked(handle, entry, arg, name);
}

int StartThread(ThreadHandle& handle, std::atomic<int>& running, void* (*entry)(void*), void* arg,
                const char* name) {
  const std::lock_guard lock(transitions);
  if (running != 0) return EALREADY;
  running = 1;
  const int error = StartLocked(handle, entry, arg, name);
  if (error != 0) running = 0;
  return error;
}

bool JoinThread(ThreadHandle& handle) {
  pthread_t thread = 0;
  {
    const std::lock_guard lock(transitions);
    thread = handle.exchange(0);
  }
  return Join(thread);
}

bool JoinThread(ThreadHandle& handle, std::atomic<int>& running) {
  pthread_t thread = 0;
  {
    const std::lock_guard lock(transitions);
    running = 0;
    thread = handle.exchange(0);
  }
  return Join(thread);
}

bool IsOrphan() {
  return orphan;
}

bool DetachSelf(ThreadHandle& handle, void (*whileLocked)(void*), void* arg) {
  const std::lock_guard lock(transitions);
  if (!IsSelf(handle)) return false;
  handle = 0;
  whileLocked(arg);
  pthread_detach(pthread_self());
  return true;
}

bool IsSelf(const ThreadHandle& handle) {
  const pthread_t thread = handle;
  return thread != 0 && pthread_equal(thread, pthread_self()) != 0;
}

int NameThread(const ThreadHandle& handle, const char* name) {
  const std::lock_guard lock(transitions);
  const pthread_t thread = handle;
  return thread == 0 ? ESRCH : pthread_setname_np(thread, name);
}

}  // namespace Tarn::Os
