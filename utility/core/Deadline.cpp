// Absolute deadlines from a moment and a number of milliseconds.
#include "utility/core/Deadline.h"

namespace Tarn::Core {

timespec DeadlineAfter(const timespec& now, int milliseconds) {
  timespec deadline{};
  deadline.tv_sec = now.tv_sec + milliseconds / 1000;
  deadline.tv_nsec = now.tv_nsec + milliseconds % 1000 * 1'000'000L;
  if (deadline.tv_nsec > 999'999'999) {
    deadline.tv_nsec -= 1'000'000'000;
    ++deadline.tv_sec;
  }
  return deadline;
}

}  // namespace Tarn::Core
