// The wall clock and the local calendar.
#ifndef TARN_UTILITY_OS_WALLCLOCK_H
#define TARN_UTILITY_OS_WALLCLOCK_H

#include <ctime>

namespace Tarn::Os {

/// One reading of the wall clock.
struct WallTime {
  std::time_t second;
  int millisecond;  ///< 0 to 999
};
WallTime ReadWallClock();

/// The local calendar time of a second; all zero when the platform cannot tell.
std::tm LocalTime(std::time_t second);

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_WALLCLOCK_H
