// Angles of lines in Cartesian coordinates, and a distance found by angles.
#ifndef TARN_UTILITY_CORE_PLANEANGLES_H
#define TARN_UTILITY_CORE_PLANEANGLES_H

namespace Tarn::Core {

struct PlanePoint {
  double x;
  double y;
};

/// Radians.
struct LineAngles {
  double horizontal;  ///< from the y axis in the plane of x and y
  double vertical;    ///< above that plane
};

[[nodiscard]] LineAngles AnglesOfLine(double dx, double dy, double dz);

/// The distance of p from the segment a-b by the angle at its nearer end.
[[nodiscard]] double DistanceByAngles(PlanePoint p, PlanePoint a, PlanePoint b);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_PLANEANGLES_H
