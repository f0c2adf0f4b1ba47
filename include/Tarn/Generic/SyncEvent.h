/// @file
/// Event for waking threads. Public: may include only public headers.
#ifndef TARN_GENERIC_SYNCEVENT_H
#define TARN_GENERIC_SYNCEVENT_H

#include <Tarn/Generic/Api.h>
#include <pthread.h>

namespace Tarn {
namespace Generic {

/// A flag that threads can wait for: signalled or not.
///
/// An auto-reset event lets exactly one waiter through per Set and is then not signalled again;
/// setting a signalled one does not count twice. A manual-reset event lets every waiter through
/// from Set to Reset. All operations may be called from any thread; none throws. What a thread
/// wrote before Set is visible to the waiter that gets through.
class TARN_API SyncEvent {
 public:
  /// An auto-reset event that is not signalled.
  SyncEvent();
  SyncEvent(bool manualReset, bool initialState);
  /// REQUIRES: no thread waits.
  ~SyncEvent();
  SyncEvent(const SyncEvent&) = delete;
  SyncEvent& operator=(const SyncEvent&) = delete;

  /// Signals the event. True on success.
  bool Set();
  /// Makes the event not signalled. True on success.
  bool Reset();
  /// Waits without limit until the event is signalled. True on success.
  bool Wait();
  /// Waits at most `milliseconds`. Changes of the wall clock do not lengthen or shorten the wait.
  /// @return 1 the event was or became signalled; 0 time-out; -1 error. A negative time on an event
  ///         that is not signalled gives 0 or -1 at once, depending on the fraction of the current
  ///         second: -1 when taking the time's own fraction from it leaves less than nothing.
  int TimedWait(int milliseconds);

 private:
  bool m_bSignaled;     // guarded by m_mutex
  bool m_bManualReset;  // constant
  pthread_mutex_t m_mutex;
  pthread_cond_t m_cond;  // m_bSignaled has become true
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_SYNCEVENT_H
