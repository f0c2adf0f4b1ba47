// The recursive mutex and its scope guards.
#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/DateTime.h>
#include <Tarn/Generic/Lock.h>

namespace Tarn::Generic {

CLock::CLock() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&m_mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

CLock::~CLock() {
  pthread_mutex_destroy(&m_mutex);
}

void CLock::Lock() {
  pthread_mutex_lock(&m_mutex);
}

void CLock::UnLock() {
  pthread_mutex_unlock(&m_mutex);
}

CAutoLocker::CAutoLocker(CLock& lock)
    : m_lock(lock), m_szName{}, m_dStartTime(0.0), m_pLog(nullptr), m_level(DEBUG) {
  m_lock.Lock();
}

CAutoLocker::~CAutoLocker() {
  m_lock.UnLock();
  if (m_pLog == nullptr) return;
  const double elapsed = CDateTime::GetMilisecondTime() - m_dStartTime;
  m_pLog->WriteLog(m_level, "CAutoLocker %s execute period:%.3fms.", m_szName, elapsed);
}

// Kept: only the copy is locked. Hosts hand over mutexes that they lock themselves meanwhile.
CLockEx::CLockEx(pthread_mutex_t& mutex) : m_mutex(mutex) {
  pthread_mutex_lock(&m_mutex);
}

CLockEx::~CLockEx() {
  pthread_mutex_unlock(&m_mutex);
}

}  // namespace Tarn::Generic
