// Makes the creation of threads fail on demand.
#include "tests/DequeFaults.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>

namespace tarn_test {

std::atomic<bool> creatingFails{false};

}  // namespace tarn_test

// Stands in front of the platform's own.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*entry)(void*), void* arg) noexcept {
  static const auto next =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  return tarn_test::creatingFails ? EAGAIN : next(thread, attributes, entry, arg);
}
