// Absolute deadlines from a moment and a number of milliseconds.
#ifndef TARN_UTILITY_CORE_DEADLINE_H
#define TARN_UTILITY_CORE_DEADLINE_H

#include <ctime>

namespace Tarn::Core {

/// `now` + `milliseconds`, carried into the seconds upwards only: a negative time may leave the
/// nanoseconds negative, which the platform's timed waits refuse.
timespec DeadlineAfter(const timespec& now, int milliseconds);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_DEADLINE_H
