// Pixels of a camera's picture and directions. The angle grows evenly with the distance from the
// picture's centre (an equiangular lens), not with its tangent.
#ifndef TARN_UTILITY_CORE_CAMERA_H
#define TARN_UTILITY_CORE_CAMERA_H

#include <cstdint>

namespace Tarn::Core {

struct Picture {
  int32_t width;   ///< pixels
  int32_t height;  ///< pixels
  double ratio;    ///< vertical field of view / horizontal field of view
};

/// Where the picture's centre looks, degrees.
struct CameraView {
  double pan;
  double tilt;
  double fieldOfView;  ///< horizontal
};

struct Pixel {
  int32_t x;
  int32_t y;  ///< grows downwards
};

/// Degrees.
struct Direction {
  double horizontal;
  double vertical;
};

/// The direction of a pixel; only the horizontal angle is brought below 360.
[[nodiscard]] Direction DirectionOfPixel(const Picture& picture, const CameraView& view,
                                         Pixel pixel);

/// The pixel of a direction. The difference of the pans is taken as it is, also across 0.
[[nodiscard]] Pixel PixelOfDirection(const Picture& picture, const CameraView& view,
                                     const Direction& direction);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_CAMERA_H
