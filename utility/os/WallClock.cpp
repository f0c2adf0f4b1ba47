// The wall clock and the local calendar.
#include "utility/os/WallClock.h"

#include <sys/time.h>

namespace Tarn::Os {

WallTime ReadWallClock() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return {now.tv_sec, static_cast<int>(now.tv_usec / 1000)};
}

std::tm LocalTime(std::time_t second) {
  std::tm parts{};
  if (localtime_r(&second, &parts) == nullptr) parts = std::tm{};
  return parts;
}

}  // namespace Tarn::Os
