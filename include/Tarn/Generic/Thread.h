/// @file
/// One function on one named thread. Public: may include only public headers.
#ifndef TARN_GENERIC_THREAD_H
#define TARN_GENERIC_THREAD_H

#include <Tarn/Generic/Api.h>
#include <Tarn/Generic/Lock.h>
#include <pthread.h>

#include <atomic>

namespace Tarn {
namespace Generic {

/// Runs one function once on a thread of its own; any loop belongs to that function, and so does
/// whatever tells it to end: Stop only waits.
///
/// All operations may be called from any thread, but start, stop and destroy an object from one
/// place. An object whose thread has ended, by itself or by Stop, can be started again. A function
/// that calls Stop of its own object, or destroys it, runs on detached; the object then knows
/// nothing of it.
class TARN_API CThread {
 public:
  /// @param name  the thread's name, of which the first 15 characters count; null: empty
  explicit CThread(const char* name);
  /// Stops as Stop does: waits for the function to return.
  virtual ~CThread();
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;

  /// Stores the name (first 15 characters; null: empty) and renames a running thread.
  virtual void SetThreadName(const char* name);
  /// Starts the thread.
  /// @return false when it is running already or cannot be created
  virtual bool Start();
  /// RegisterEvent, then Start().
  virtual bool Start(void* arg, void (*fn)(void* arg));
  /// Waits until the function has returned, however long it takes. Does nothing when not running.
  virtual void Stop();
  /// As Stop(): the number is ignored, there is no time-out.
  virtual void Stop(int ignored);
  /// What the new thread runs: the registered function, once. It must not throw. Derived classes
  /// that replace it must stop the thread in their own destructor.
  virtual void ThreadProc();

  /// The entry of the new thread: runs ThreadProc() of the object `self`. Returns null.
  static void* ThreadProc(void* self);
  /// Stores the function and its argument, for the next Start. Null: the thread ends at once.
  void RegisterEvent(void* arg, void (*fn)(void* arg));
  /// The low 32 bits of the thread's pthread_self(); 0 before the function starts and after it
  /// ends.
  unsigned int GetThreadId();

 private:
  std::atomic<int> m_bRunning;           // 1 from Start to Stop or to the thread's own end
  std::atomic<pthread_t> m_thread;       // 0: none; moves together with m_bRunning
  char m_szName[16];                     // guarded by m_lock
  CLock m_lock;                          // leaf; guards the name and the callback
  int m_interval;                        // milliseconds; not used
  std::atomic<unsigned int> m_threadId;  // 0: no function runs
  void (*m_pCallback)(void*);            // guarded by m_lock
  void* m_pArg;                          // guarded by m_lock
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_THREAD_H
