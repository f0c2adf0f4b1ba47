// Distances and bearings between positions; metres, degrees clockwise from north.
#ifndef TARN_UTILITY_CORE_GREATCIRCLE_H
#define TARN_UTILITY_CORE_GREATCIRCLE_H

#include "utility/core/Angles.h"

namespace Tarn::Core {

/// Along a great circle of the sphere of radius 6378137, by the spherical law of cosines. Inexact
/// for short distances, perhaps NaN for identical positions.
[[nodiscard]] double DistanceByCosines(Position from, Position to);

/// The same by the haversine formula, exact for short distances.
[[nodiscard]] double DistanceByHaversine(Position from, Position to);

/// The same by the chord, with southern latitudes and the equator mapped to other places.
[[nodiscard]] double DistanceByChord(Position from, Position to);

/// On a flat model around `from`, 0 ... 360; 180 due east and 360 due west.
[[nodiscard]] double FlatBearing(Position from, Position to);

/// How one position at a height sees another.
struct LineOfSight {
  double bearing;
  double elevation;  ///< degrees
  double range;      ///< metres, along the slant
};

/// From FlatBearing and DistanceByCosines, without the curvature of the Earth.
[[nodiscard]] LineOfSight SightFrom(Position from, double fromHeight, Position to, double toHeight);

struct NearestPoint {
  double distance;
  Position point;
};

/// The point of the segment a-b that is nearest to p, by plane triangles with DistanceByCosines.
[[nodiscard]] NearestPoint NearestOnSegment(Position a, Position b, Position p);

/// The height of the triangle a-b-p over its side a-b, likewise; 0 for triangles that are nearly
/// flat.
[[nodiscard]] double HeightOverSegment(Position a, Position b, Position p);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_GREATCIRCLE_H
