/// @file
/// Thread names and GUIDs. Public: may include only public headers.
#ifndef TARN_GENERIC_APPLICATION_H
#define TARN_GENERIC_APPLICATION_H

#include <Tarn/Generic/Api.h>

namespace Tarn {
namespace Generic {

/// Small services of the running process. Stateless; use from any thread.
class TARN_API CApplication {
 public:
  CApplication();
  ~CApplication();

  /// Names a thread as the platform shows it.
  /// @param thread  its pthread_t; it must not have been joined or have ended detached
  /// @param name    at most 15 characters
  /// @return 0, or an error number and no change: ERANGE the name is too long, ESRCH `thread` is 0,
  ///         EINVAL the name is null
  int SetThreadName(unsigned long thread, const char* name);

  /// A new random GUID (RFC 4122, version 4) in lower case, 36 characters.
  /// @return one buffer for the whole process, which each call overwrites: threads that make GUIDs
  ///         at the same time may read each other's
  char* CreateGuid();
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_APPLICATION_H
