// Angles in their forms, and positions. In all geodetic formulas powers are formed first, products
// and quotients then from left to right as written: peers compare results to the last bits.
#ifndef TARN_UTILITY_CORE_ANGLES_H
#define TARN_UTILITY_CORE_ANGLES_H

#include <emmintrin.h>

#include <cmath>

#include "utility/core/WholeNumber.h"

namespace Tarn::Core {

inline constexpr double kPi = 3.141592653589793;

/// A position on the Earth, degrees.
struct Position {
  double lon;
  double lat;
};

[[nodiscard]] inline double ToRadians(double degrees) {
  return kPi * degrees / 180.0;
}

[[nodiscard]] inline double ToDegrees(double radians) {
  return 180.0 * radians / kPi;
}

struct TwoAngles {
  double first;
  double second;
};

/// Two angles with one division of two lanes; each is what the other ToRadians gives.
[[nodiscard]] inline TwoAngles ToRadians(double first, double second) {
  const __m128d degrees = _mm_set_pd(second, first);
  const __m128d radians = _mm_div_pd(_mm_mul_pd(_mm_set1_pd(kPi), degrees), _mm_set1_pd(180.0));
  return {_mm_cvtsd_f64(radians), _mm_cvtsd_f64(_mm_unpackhi_pd(radians, radians))};
}

[[nodiscard]] constexpr double Square(double value) {
  return value * value;
}

/// To the nearest whole number, halves away from zero; 0 gives -0.
[[nodiscard]] inline double RoundHalfAway(double value) {
  return value > 0 ? std::floor(value + 0.5) : std::ceil(value - 0.5);
}

/// Only the degrees carry a sign: they are rounded down, and the others count up from there.
struct DegreesMinutesSeconds {
  double degrees;
  double minutes;
  double seconds;
};

[[nodiscard]] inline DegreesMinutesSeconds SplitRadians(double radians) {
  constexpr double kSecondsPerRadian = 206264.80624709636;
  const double total = radians * kSecondsPerRadian;
  const double degrees = std::floor(total / 3600.0);
  const double minutes = std::floor((total - 3600.0 * degrees) / 60.0);
  return {degrees, minutes, total - 3600.0 * degrees - 60.0 * minutes};
}

[[nodiscard]] inline double JoinDegrees(const DegreesMinutesSeconds& angle) {
  return angle.degrees + angle.minutes / 60.0 + angle.seconds / 3600.0;
}

/// Degrees of a reading DDDMM.mmmm.
[[nodiscard]] inline double ReadDegreesMinutes(double reading) {
  const int degrees = CutToInt32(reading) / 100;
  return degrees + (reading - 100 * degrees) / 60.0;
}

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_ANGLES_H
