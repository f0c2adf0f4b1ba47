/// @file
/// Work queue. Public: may include only public headers.
#ifndef TARN_GENERIC_DEQUE_H
#define TARN_GENERIC_DEQUE_H

#include <Tarn/Generic/Api.h>

namespace Tarn {
namespace Generic {

/// A first-in-first-out queue of opaque items, served by a pool of worker threads.
///
/// Items stay the caller's: the queue never frees, copies or looks into them; those still queued at
/// Stop or Delete are neither delivered nor freed. PushOneData and GetLength may be called from any
/// thread, also from the callback; the other operations are meant for one controlling thread. Stop
/// and Delete must not be called from the callback.
class TARN_API IDeque {
 public:
  virtual ~IDeque();

  /// Starts `threadCount` workers, named "<queue name>_<number from 1>" where that has at most 15
  /// characters. Workers that the platform refuses are missing silently. 0 starts none.
  /// @return false when started already, on a negative count or when memory is short
  virtual bool Start(int threadCount) = 0;

  /// Stops the workers and waits for them. An idle worker notices it when its wait ends
  /// (SetWaitTime); one that is delivering empties the queue first.
  virtual void Stop() = 0;
  /// As Stop(): the number is ignored.
  virtual void Stop(int ignored) = 0;

  /// The number of items that no worker has taken yet.
  virtual int GetLength() = 0;

  /// Stores the name (null: empty) and renames the workers.
  virtual void SetDequeName(const char* name) = 0;
  /// The stored name, valid until the next SetDequeName or Delete.
  virtual const char* GetDequeName() = 0;

  /// Sets what workers call for each item, before or after Start. It runs on a worker with no lock
  /// held, concurrently on different items when there are several workers, and must not throw.
  /// While none is set (null), items are taken and lost; null items are always skipped.
  virtual void RegisterEvent(void* arg, void (*callback)(void* arg, void* item)) = 0;

  /// Appends an item, also while stopped, and wakes one worker, which then takes all items queued
  /// so far in their order. There is no limit. When memory is short the item is not queued.
  virtual void PushOneData(void* item) = 0;

  /// How long an idle worker sleeps before it looks whether it must stop: 1000 ms at first, at
  /// least 1.
  virtual void SetWaitTime(unsigned int milliseconds) = 0;

  /// True from Start to Stop.
  virtual bool IsWorking() = 0;

  /// A new queue that is not started; release it with Delete. Null when memory is short.
  /// @param name  null: empty
  static IDeque* Create(const char* name);
  /// Stops and destroys; null is ignored.
  static void Delete(IDeque* queue);
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_DEQUE_H
