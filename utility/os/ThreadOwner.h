// Starting, naming and ending threads whose handles live in fields of other objects.
//
// A handle is 0 while no thread is known. Every transition of every handle happens under one short,
// process-wide mutex, so Stop and a thread's own end may meet anywhere: exactly one of them gets
// the handle, and joins or detaches it. Nothing blocks while that mutex is held.
#ifndef TARN_UTILITY_OS_THREADOWNER_H
#define TARN_UTILITY_OS_THREADOWNER_H

#include <pthread.h>

#include <atomic>

namespace Tarn::Os {

using ThreadHandle = std::atomic<pthread_t>;
static_assert(sizeof(ThreadHandle) == sizeof(pthread_t) && ThreadHandle::is_always_lock_free);

/// Runs `entry(arg)` on a new thread, gives it `name` (ignored when the platform refuses it: more
/// than 15 characters; null keeps the name of the caller's thread) and stores its handle. Returns 0
/// or a positive error number; then the handle is 0.
int StartThread(ThreadHandle& handle, void* (*entry)(void*), void* arg, const char* name);

/// As above for a thread with a running flag, which goes from 0 to 1 in the same transition and
/// back to 0 when the start fails. Returns EALREADY and changes nothing when the flag is not 0.
int StartThread(ThreadHandle& handle, std::atomic<int>& running, void* (*entry)(void*), void* arg,
                const char* name);

/// Takes the handle and waits for the thread. A thread that calls this for itself is detached and
/// becomes an orphan instead. Returns false when no handle was stored.
bool JoinThread(ThreadHandle& handle);

/// As above; the running flag becomes 0 in the same transition.
bool JoinThread(ThreadHandle& handle, std::atomic<int>& running);

/// True on a thread that has stopped itself through JoinThread, from inside a callback: the object
/// that it served may be gone or may run another thread by now. Ask after every callback, and if so
/// end without touching the object.
bool IsOrphan();

/// For a thread that ends by itself: takes the handle and detaches, if it is still the caller's,
/// and runs `whileLocked(arg)` in the same transition. Afterwards the owner of the handle may be
/// gone. Returns false when somebody else has taken the handle, who then joins this thread.
bool DetachSelf(ThreadHandle& handle, void (*whileLocked)(void*), void* arg);

/// True when the stored handle is the calling thread's.
bool IsSelf(const ThreadHandle& handle);

/// pthread_setname_np for a handle that cannot be joined meanwhile; ESRCH when none is stored.
int NameThread(const ThreadHandle& handle, const char* name);

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_THREADOWNER_H
