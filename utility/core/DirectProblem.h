// The direct problem of geodesy: the point reached from a start along a bearing (degrees clockwise
// from north) after a distance (metres), on four models of the Earth.
#ifndef TARN_UTILITY_CORE_DIRECTPROBLEM_H
#define TARN_UTILITY_CORE_DIRECTPROBLEM_H

#include "utility/core/Angles.h"

namespace Tarn::Core {

/// By Gauss's mid-latitude approximation on the Krassovsky ellipsoid.
[[nodiscard]] Position MoveByGauss(Position start, double bearing, double distance);

/// By Vincenty's formula on the WGS-84 ellipsoid. The longitude may leave -180 ... 180.
[[nodiscard]] Position MoveByVincenty(Position start, double bearing, double distance);

/// In a plane with 111.199 km per degree of latitude.
[[nodiscard]] Position MoveInPlane(Position start, double bearing, double distance);

/// On the sphere of radius 6378245. The longitude changes by 90 degrees at most.
[[nodiscard]] Position MoveOnSphere(Position start, double bearing, double distance);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_DIRECTPROBLEM_H
