// Thread names and GUIDs.
#include <Tarn/Generic/Application.h>
#include <pthread.h>
#include <uuid/uuid.h>

#include <cerrno>
#include <cstring>
#include <mutex>

namespace Tarn::Generic {

CApplication::CApplication() {}  // NOLINT(modernize-use-equals-default): exported for hosts

CApplication::~CApplication() {}  // NOLINT(modernize-use-equals-default): exported for hosts

int CApplication::SetThreadName(unsigned long thread, const char* name) {
  // The platform would read through a null handle or name.
  if (thread == 0) return ESRCH;
  if (name == nullptr) return EINVAL;
  return pthread_setname_np(thread, name);
}

char* CApplication::CreateGuid() {
  static constinit std::mutex mutex;
  static char buffer[UUID_STR_LEN];
  uuid_t id;
  char text[UUID_STR_LEN];
  uuid_generate_random(id);
  uuid_unparse(id, text);
  const std::lock_guard lock(mutex);
  std::memcpy(buffer, text, sizeof(text));
  return buffer;
}

}  // namespace Tarn::Generic
