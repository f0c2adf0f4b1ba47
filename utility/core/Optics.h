// What an object of a known size looks like from a distance.
#ifndef TARN_UTILITY_CORE_OPTICS_H
#define TARN_UTILITY_CORE_OPTICS_H

#include <cstdint>

namespace Tarn::Core {

/// The distance at which `size` spans `count` units of `unitAngle` degrees; 0 for a count of 0.
[[nodiscard]] double DistanceOfSpan(double size, double unitAngle, double count);

/// The degrees per unit when `size` at `distance` spans `count` units.
[[nodiscard]] double AnglePerUnit(double distance, double size, double count);

/// `value` divided by the small angle count * unitAngle / divisor, cut to a whole number, of which
/// the lower 32 bits.
[[nodiscard]] uint32_t DistanceOfSmallAngle(double value, int divisor, int count, double unitAngle);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_OPTICS_H
