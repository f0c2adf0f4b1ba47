// One function on one named thread.
//
// The running flag and the handle move together, in transitions that ThreadOwner guards: whoever
// takes the handle, the thread at its end or a caller of Stop, detaches or joins it. The one who
// finds it gone leaves the object alone.
#include <Tarn/Generic/Thread.h>

#include <cstdio>

#include "utility/os/ThreadOwner.h"

namespace Tarn::Generic {

namespace {

unsigned int OwnId() {
  return static_cast<unsigned int>(pthread_self());
}

// Leaves the id of a newer thread alone.
void ClearOwnId(std::atomic<unsigned int>& stored) {
  unsigned int id = OwnId();
  stored.compare_exchange_strong(id, 0);
}

void StoreName(char (&stored)[16], const char* name) {
  std::snprintf(stored, sizeof(stored), "%s", name == nullptr ? "" : name);
}

}  // namespace

CThread::CThread(const char* name)
    : m_bRunning(0),
      m_thread(0),
      m_interval(1000),
      m_threadId(0),
      m_pCallback(nullptr),
      m_pArg(nullptr) {
  StoreName(m_szName, name);
  static_cast<void>(m_interval);  // part of the layout only
}

CThread::~CThread() {
  CThread::Stop(-1);
}

void CThread::SetThreadName(const char* name) {
  const CAutoLocker lock(m_lock);
  StoreName(m_szName, name);
  Os::NameThread(m_thread, m_szName);
}

bool CThread::Start() {
  char name[sizeof(m_szName)];
  {
    const CAutoLocker lock(m_lock);
    StoreName(name, m_szName);
  }
  return Os::StartThread(m_thread, m_bRunning, ThreadProc, this, name) == 0;
}

bool CThread::Start(void* arg, void (*fn)(void* arg)) {
  RegisterEvent(arg, fn);
  return Start();
}

void CThread::Stop() {
  CThread::Stop(-1);
}

void CThread::Stop(int /*ignored*/) {
  Os::JoinThread(m_thread, m_bRunning);
  // A thread that has just stopped itself will not touch the object at its end.
  if (Os::IsOrphan()) ClearOwnId(m_threadId);
}

void CThread::ThreadProc() {
  m_lock.Lock();
  void (*const callback)(void*) = m_pCallback;
  void* const arg = m_pArg;
  m_lock.UnLock();
  if (callback == nullptr) return;
  m_threadId = OwnId();
  callback(arg);  // may destroy the object: nothing follows
}

void* CThread::ThreadProc(void* self) {
  auto* const thread = static_cast<CThread*>(self);
  thread->ThreadProc();
  if (Os::IsOrphan()) return nullptr;
  // The id last: who reads 0 there may start the object again.
  const bool detached = Os::DetachSelf(
      thread->m_thread,
      [](void* object) {
        auto* const ended = static_cast<CThread*>(object);
        ended->m_bRunning = 0;
        ClearOwnId(ended->m_threadId);
      },
      thread);
  // Whoever has taken the handle joins this thread, so the object is still there.
  if (!detached) ClearOwnId(thread->m_threadId);
  return nullptr;
}

void CThread::RegisterEvent(void* arg, void (*fn)(void* arg)) {
  const CAutoLocker lock(m_lock);
  m_pArg = arg;
  m_pCallback = fn;
}

unsigned int CThread::GetThreadId() {
  return m_threadId;
}

}  // namespace Tarn::Generic
