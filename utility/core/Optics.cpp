// Size, distance and angle of what is seen.
#include "utility/core/Optics.h"

#include <cmath>

#include "utility/core/Angles.h"
#include "utility/core/WholeNumber.h"

namespace Tarn::Core {

double DistanceOfSpan(double size, double unitAngle, double count) {
  if (count == 0) return 0;
  return size / (2 * std::tan(kPi * count * unitAngle / 360));
}

double AnglePerUnit(double distance, double size, double count) {
  return ToDegrees(2 * std::atan(size / (2 * distance))) / count;
}

uint32_t DistanceOfSmallAngle(double value, int divisor, int count, double unitAngle) {
  return static_cast<uint32_t>(CutToInt64(value / ToRadians(count * unitAngle / divisor)));
}

}  // namespace Tarn::Core
