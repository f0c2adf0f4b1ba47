// The work queue behind IDeque.
#ifndef TARN_UTILITY_DEQUE_H
#define TARN_UTILITY_DEQUE_H

#include <Tarn/Generic/Deque.h>
#include <Tarn/Generic/Lock.h>
#include <Tarn/Generic/SyncEvent.h>
#include <pthread.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <string>

namespace Tarn::Generic {

/// The queue is kept in two sections, so that producers and workers do not meet at one lock for
/// every item: producers append to m_queue under m_lock; takers take from m_front under m_takeLock
/// and, when that is empty, exchange the two under both locks. Items of both sections count as
/// queued. Lock order: m_takeLock, m_lock.
class TARN_API CDeque : public IDeque {
 public:
  explicit CDeque(const char* name);
  ~CDeque() override;
  CDeque(const CDeque&) = delete;
  CDeque& operator=(const CDeque&) = delete;

  bool Start(int threadCount) override;
  void Stop() override;
  void Stop(int ignored) override;
  int GetLength() override;
  void SetDequeName(const char* name) override;
  const char* GetDequeName() override;
  void RegisterEvent(void* arg, void (*callback)(void* arg, void* item)) override;
  void PushOneData(void* item) override;
  void SetWaitTime(unsigned int milliseconds) override;
  bool IsWorking() override;

  /// True if at least `max` items are queued. The queue itself sets no limit.
  virtual bool IsBeyondMax(int max);
  virtual bool IsDequeEmpty();
  /// Removes and returns the front item; null when the queue is empty. For owners that drain a
  /// stopped queue to free its items.
  virtual void* PopOneFromDeque();
  /// The worker loop.
  virtual void ThreadProc();

  /// The entry of the worker threads: runs ThreadProc() of the queue `self`. Returns null.
  static void* ThreadProc(void* self);
  /// As PushOneData; false when memory is short, and the item is then still the caller's to free.
  bool TryPush(void* item);

 private:
  struct Delivery {
    void (*callback)(void*, void*);
    void* arg;
    void* item;
  };

  bool WaitForItems();
  bool Drain();
  bool Take(Delivery& delivery);
  bool RefillLocked();
  size_t Length();

  std::atomic<int> m_bRunning{0};               // 1 between Start and Stop
  int m_threadCount{0};                         // of the last Start; guarded by m_lock
  std::atomic<pthread_t>* m_pThreads{nullptr};  // null when stopped; guarded by m_lock
  std::deque<void*> m_queue;                    // the back section; guarded by m_lock
  CLock m_lock;
  SyncEvent m_event;                           // items have arrived
  std::atomic<unsigned int> m_waitTime{1000};  // milliseconds
  std::string m_name;                          // of the controlling thread
  void* m_pArg{nullptr};                       // guarded by m_takeLock
  void (*m_pCallback)(void*, void*){nullptr};  // guarded by m_takeLock
  bool m_bEventPending{false};                 // m_event is set or about to be; guarded by m_lock
  // Takers write what follows for every item; it has cache lines of its own.
  alignas(64) std::mutex m_takeLock;
  std::deque<void*> m_front;  // the front section; guarded by m_takeLock
};

}  // namespace Tarn::Generic

#endif  // TARN_UTILITY_DEQUE_H
