// The equiangular camera model.
#include "utility/core/Camera.h"

#include <cmath>

#include "utility/core/WholeNumber.h"

namespace Tarn::Core {

namespace {

Pixel CentreOf(const Picture& picture) {
  return {CutToInt32(picture.width / 2.0), CutToInt32(picture.height / 2.0)};
}

}  // namespace

Direction DirectionOfPixel(const Picture& picture, const CameraView& view, Pixel pixel) {
  const Pixel centre = CentreOf(picture);
  const double degreesPerColumn = view.fieldOfView / picture.width;
  const double degreesPerRow = picture.ratio * view.fieldOfView / picture.height;
  const double right = WrappingDifference(pixel.x, centre.x);
  const double up = WrappingDifference(centre.y, pixel.y);
  return {std::fmod(360 + right * degreesPerColumn + view.pan, 360),
          view.tilt + up * degreesPerRow};
}

Pixel PixelOfDirection(const Picture& picture, const CameraView& view, const Direction& direction) {
  const Pixel centre = CentreOf(picture);
  const double columnsPerDegree = centre.x / (view.fieldOfView / 2);
  const double rowsPerDegree = centre.y / (picture.ratio * view.fieldOfView / 2);
  return {CutToInt32(0.5 + centre.x + (direction.horizontal - view.pan) * columnsPerDegree),
          CutToInt32(0.5 + centre.y + (view.tilt - direction.vertical) * rowsPerDegree)};
}

}  // namespace Tarn::Core
