// Conversions between coordinate forms of positions on the Earth. Each formula has the constants of
// its own tradition; that they differ slightly from one to the next is deliberate.
#ifndef TARN_UTILITY_CORE_TRANSFORMS_H
#define TARN_UTILITY_CORE_TRANSFORMS_H

#include "utility/core/Angles.h"

namespace Tarn::Core {

/// A position in the plane of a Gauss-Krueger zone, metres.
struct GridPosition {
  double northing;
  double easting;  ///< 500000 on the central meridian
};

/// Earth-centred, metres: x towards longitude 0 on the equator, z towards the north pole.
struct Cartesian {
  double x;
  double y;
  double z;
};

struct GeodeticPosition {
  Position position;
  double height;  ///< above the ellipsoid, metres
};

/// Whether a position lies outside the box in which the shifted national grid (GCJ-02) is used.
[[nodiscard]] bool IsOutsideShiftedGrid(Position position);

/// The shift of the grid in latitude, in a unit of about a metre, at x degrees east of longitude
/// 105 and y degrees north of latitude 35.
[[nodiscard]] double GridShiftOfLat(double x, double y);
/// The same in longitude.
[[nodiscard]] double GridShiftOfLon(double x, double y);

/// From WGS-84 to the shifted grid; unchanged outside it.
[[nodiscard]] Position ToShiftedGrid(Position position);

/// The central meridian of the zone of a longitude, radians. Zones are 3 degrees wide, 6 for any
/// other width.
[[nodiscard]] double CentralMeridian(double lon, int zoneWidth);

/// The Gauss-Krueger projection on WGS-84, in the zone of the position. Zones of 6 degrees have
/// their central meridians at 3, 9, ..., all others at the multiples of their width.
[[nodiscard]] GridPosition ProjectGaussKrueger(Position position, int zoneWidth);

/// Its inverse. `centralMeridian` is in radians.
[[nodiscard]] Position UnprojectGaussKrueger(GridPosition grid, double centralMeridian);

[[nodiscard]] Cartesian ToCartesian(const GeodeticPosition& geodetic);
[[nodiscard]] GeodeticPosition ToGeodetic(const Cartesian& cartesian);

/// The Cartesian coordinates at height 0, z left out (0).
[[nodiscard]] Cartesian ToEquatorialPlane(Position position);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_TRANSFORMS_H
