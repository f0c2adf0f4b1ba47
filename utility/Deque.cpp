// A first-in-first-out queue of opaque items, served by worker threads.
#include "utility/Deque.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>
#include <new>
#include <thread>
#include <utility>

#include "utility/os/ThreadOwner.h"

namespace Tarn::Generic {

namespace {

// CAutoLocker without its report: this one stands in the path of every item.
class Locker {
 public:
  explicit Locker(CLock& lock) : lock_(lock) { lock_.Lock(); }
  ~Locker() { lock_.UnLock(); }
  Locker(const Locker&) = delete;
  Locker& operator=(const Locker&) = delete;

 private:
  CLock& lock_;
};

// The name of a worker. What does not fit here is far beyond what the platform accepts, too.
struct WorkerName {
  WorkerName(const std::string& queue, int index) {
    std::snprintf(text, sizeof(text), "%s_%d", queue.c_str(), index + 1);
  }
  char text[32];
};

}  // namespace

IDeque::~IDeque() = default;

CDeque::CDeque(const char* name) : m_name(name == nullptr ? "" : name) {}

CDeque::~CDeque() {
  CDeque::Stop(-1);
}

bool CDeque::Start(int threadCount) {
  const Locker lock(m_lock);
  if (m_pThreads != nullptr || threadCount < 0) return false;
  m_pThreads = new (std::nothrow) Os::ThreadHandle[static_cast<size_t>(threadCount)]();
  if (m_pThreads == nullptr) return false;
  m_threadCount = threadCount;
  m_bRunning = 1;
  for (int i = 0; i < threadCount; ++i) {
    Os::StartThread(m_pThreads[i], ThreadProc, this, WorkerName(m_name, i).text);
  }
  return true;
}

void CDeque::Stop() {
  CDeque::Stop(-1);
}

void CDeque::Stop(int /*ignored*/) {
  if (m_bRunning.exchange(0) == 0) return;
  // Kept: the event is not set. A worker that is woken would deliver items that stay queued.
  std::atomic<pthread_t>* threads = nullptr;
  int count = 0;
  {
    const Locker lock(m_lock);  // waits for a Start that is under way
    threads = m_pThreads;
    count = m_threadCount;
  }
  // The table stays meanwhile, so that nobody starts the queue while it is being stopped.
  for (int i = 0; i < count; ++i)
    Os::JoinThread(threads[i]);
  const Locker lock(m_lock);
  m_pThreads = nullptr;
  delete[] threads;
}

int CDeque::GetLength() {
  return static_cast<int>(Length());
}

void CDeque::SetDequeName(const char* name) {
  const Locker lock(m_lock);
  try {
    m_name = name == nullptr ? "" : name;
  } catch (...) {
    return;  // no memory: the old name stays
  }
  if (m_pThreads == nullptr) return;
  for (int i = 0; i < m_threadCount; ++i) {
    Os::NameThread(m_pThreads[i], WorkerName(m_name, i).text);
  }
}

const char* CDeque::GetDequeName() {
  return m_name.c_str();
}

void CDeque::RegisterEvent(void* arg, void (*callback)(void* arg, void* item)) {
  const std::lock_guard lock(m_takeLock);
  m_pArg = arg;
  m_pCallback = callback;
}

void CDeque::PushOneData(void* item) {
  TryPush(item);
}

void CDeque::SetWaitTime(unsigned int milliseconds) {
  m_waitTime = milliseconds;
}

bool CDeque::IsWorking() {
  return m_bRunning != 0;
}

bool CDeque::IsBeyondMax(int max) {
  return max <= 0 || Length() >= static_cast<size_t>(max);
}

bool CDeque::IsDequeEmpty() {
  return Length() == 0;
}

void* CDeque::PopOneFromDeque() {
  Delivery delivery{};
  return Take(delivery) ? delivery.item : nullptr;
}

// The running flag is looked at between waits only: a drain empties the whole queue first.
void CDeque::ThreadProc() {
  while (m_bRunning == 1) {
    if (WaitForItems() && !Drain()) return;
  }
}

void* CDeque::ThreadProc(void* self) {
  static_cast<CDeque*>(self)->ThreadProc();
  return nullptr;
}

bool CDeque::TryPush(void* item) {
  bool pending = false;
  {
    const Locker lock(m_lock);
    try {
      m_queue.push_back(item);
    } catch (...) {
      return false;
    }
    pending = m_bEventPending;
    if (!pending) m_bEventPending = true;
  }
  // A worker that will still consume an earlier Set finds this item, too.
  if (!pending) m_event.Set();
  return true;
}

// One sleep on the event; true when it was signalled.
bool CDeque::WaitForItems() {
  const auto waitTime = std::clamp<unsigned int>(m_waitTime, 1, INT_MAX);
  const int result = m_event.TimedWait(static_cast<int>(waitTime));
  if (result < 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (result != 1) return false;
  const Locker lock(m_lock);
  m_bEventPending = false;
  return true;
}

// Delivers until the queue is empty. False when a callback has stopped the queue on this thread:
// the queue may be gone by then.
bool CDeque::Drain() {
  Delivery delivery{};
  while (Take(delivery)) {
    if (delivery.callback == nullptr || delivery.item == nullptr) continue;
    delivery.callback(delivery.arg, delivery.item);
    if (Os::IsOrphan()) return false;
  }
  return true;
}

// Takes the front item; false when the queue is empty.
bool CDeque::Take(Delivery& delivery) {
  const std::lock_guard lock(m_takeLock);
  if (m_front.empty() && !RefillLocked()) return false;
  delivery = {m_pCallback, m_pArg, m_front.front()};
  m_front.pop_front();
  return true;
}

// Makes the back section the front one. REQUIRES: m_takeLock is held and the front section is
// empty.
bool CDeque::RefillLocked() {
  const Locker lock(m_lock);
  m_front.swap(m_queue);
  return !m_front.empty();
}

size_t CDeque::Length() {
  const std::lock_guard takeLock(m_takeLock);
  const Locker lock(m_lock);
  return m_front.size() + m_queue.size();
}

IDeque* IDeque::Create(const char* name) {
  try {
    return new CDeque(name);
  } catch (...) {
    return nullptr;
  }
}

void IDeque::Delete(IDeque* queue) {
  delete queue;
}

}  // namespace Tarn::Generic
