// A descriptor that wakes the main thread.
#include "tools/Wakeup.h"

#include <sys/eventfd.h>
#include <unistd.h>

namespace tarn_tool {

Wakeup::Wakeup() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Wakeup::~Wakeup() {
  if (event_ >= 0) close(event_);
}

void Wakeup::Raise() {
  eventfd_write(event_, 1);
}

void Wakeup::Clear() {
  eventfd_t count = 0;
  eventfd_read(event_, &count);
}

}  // namespace tarn_tool
