/// @file
/// Recursive mutex and scope guards. Public: may include only public headers.
#ifndef TARN_GENERIC_LOCK_H
#define TARN_GENERIC_LOCK_H

#include <Tarn/Generic/Api.h>
#include <pthread.h>

namespace Tarn {
namespace Generic {

class IAsyncLog;      // <Tarn/Generic/AsyncLog.h>
enum LogLevel : int;  // <Tarn/Generic/AsyncLog.h>

/// The library's mutex. It is recursive: the thread that holds it may lock it again and must unlock
/// it as many times. Meant to be shared between threads; failures of the platform's calls are
/// ignored.
class TARN_API CLock {
 public:
  CLock();
  /// REQUIRES: no thread holds the lock.
  ~CLock();
  CLock(const CLock&) = delete;
  CLock& operator=(const CLock&) = delete;

  /// Blocks until the calling thread holds the lock.
  void Lock();
  /// Gives back one Lock of the calling thread.
  void UnLock();

 private:
  pthread_mutex_t m_mutex;
};

/// Holds a CLock for the length of a scope. One thread constructs and destroys it.
///
/// With a logger attached, the destructor reports after the release how long the lock was held, as
/// one line of the given level. No operation attaches one so far.
class TARN_API CAutoLocker {
 public:
  /// Locks `lock`, which must outlive this object.
  explicit CAutoLocker(CLock& lock);
  /// Unlocks, then reports if a logger is attached.
  ~CAutoLocker();
  CAutoLocker(const CAutoLocker&) = delete;
  CAutoLocker& operator=(const CAutoLocker&) = delete;

 private:
  CLock& m_lock;
  char m_szName[1024];  // names the lock in the report
  double m_dStartTime;  // milliseconds of CDateTime::GetMilisecondTime
  IAsyncLog* m_pLog;    // not owned; null: no report
  LogLevel m_level;     // of the report
};

/// Holds a copy of a caller's mutex locked for the length of a scope.
///
/// The whole mutex object is copied and only the copy is locked and unlocked, so the caller's mutex
/// is left as it was and protects nothing here; it must be unlocked when it is handed over. Use
/// CAutoLocker to guard data.
class TARN_API CLockEx {
 public:
  explicit CLockEx(pthread_mutex_t& mutex);
  ~CLockEx();
  CLockEx(const CLockEx&) = delete;
  CLockEx& operator=(const CLockEx&) = delete;

 private:
  pthread_mutex_t m_mutex;
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_LOCK_H
