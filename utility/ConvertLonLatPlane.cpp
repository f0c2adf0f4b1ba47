// CConvertLonLat: polygons, segments, rectangles, circles and sectors.
#include <Tarn/Generic/ConvertLonLat.h>

#include "utility/core/DirectProblem.h"
#include "utility/core/GreatCircle.h"
#include "utility/core/PlaneGeometry.h"
#include "utility/core/PolygonText.h"

namespace Tarn::Generic {

namespace {

Core::PlanePoint PlaneOf(const _POINTD& point) {
  return {point.x, point.y};
}

Core::Position PositionOf(const _POINTD& point) {
  return {point.x, point.y};
}

Core::ScreenRect RectOf(const tagRECT& rect) {
  return {rect.left, rect.top, rect.right, rect.bottom};
}

}  // namespace

bool CConvertLonLat::PNPoly(int n, double x, double y, double* xs, double* ys) {
  if (n <= 0 || xs == nullptr || ys == nullptr) return false;
  return Core::IsInRing({x, y}, xs, ys, static_cast<size_t>(n));
}

bool CConvertLonLat::IsPointInPoly(const tagPOINT& pt, const std::vector<tagPOINT>& poly) {
  return Core::IsInRing(Core::AsScreenPoint(pt), poly);
}

bool CConvertLonLat::IsLineSegmentCross(const tagPOINT& p1, const tagPOINT& p2, const tagPOINT& q1,
                                        const tagPOINT& q2) {
  return Core::SegmentsCross(Core::AsScreenPoint(p1), Core::AsScreenPoint(p2),
                             Core::AsScreenPoint(q1), Core::AsScreenPoint(q2));
}

bool CConvertLonLat::IsPolygonCrossPolygon(const std::vector<tagPOINT>& a,
                                           const std::vector<tagPOINT>& b) {
  if (a.size() < 3 || b.size() < 3) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const Core::ScreenPoint vertex = Core::AsScreenPoint(a[i]);
    if (Core::SegmentCrossesRing(vertex, Core::NextVertex(a, i), b)) return true;
    // Kept: never a vertex of b in a. Hosts ask both ways where a polygon may lie inside another.
    if (Core::IsInRing(vertex, b)) return true;
  }
  return false;
}

bool CConvertLonLat::IsPolygonCrossLine(const std::vector<tagPOINT>& poly,
                                        const std::vector<tagPOINT>& line) {
  for (size_t j = 1; j < line.size(); ++j) {
    const Core::ScreenPoint from = Core::AsScreenPoint(line[j - 1]);
    if (Core::SegmentCrossesRing(from, Core::AsScreenPoint(line[j]), poly)) return true;
  }
  return false;
}

bool CConvertLonLat::IsRectCross(_POINTD a, _POINTD b, _POINTD c, _POINTD d) {
  return Core::BoxesMeet(PlaneOf(a), PlaneOf(b), PlaneOf(c), PlaneOf(d));
}

bool CConvertLonLat::cross(_POINTD a, _POINTD b, _POINTD c, _POINTD d) {
  return Core::SegmentsStraddle(PlaneOf(a), PlaneOf(b), PlaneOf(c), PlaneOf(d));
}

double CConvertLonLat::calculateIOU(tagRECT a, tagRECT b) {
  return Core::IntersectionOverUnion(RectOf(a), RectOf(b));
}

bool CConvertLonLat::IsInCircleArea(double lon, double lat, double cLon, double cLat,
                                    double radius) {
  return radius >= Core::DistanceByCosines({lon, lat}, {cLon, cLat});
}

bool CConvertLonLat::IsPointInSector(_POINTD pt, const sector_info& s) {
  const Core::Position point = PositionOf(pt);
  const Core::Position centre{s.lon, s.lat};
  if (s.radius < Core::DistanceByCosines(point, centre)) return false;
  const double bearing = Core::FlatBearing(centre, point);
  // Kept: the angle is both the middle and the width of the range, and nothing wraps at north.
  return s.angle - s.angle / 2 <= bearing && bearing <= s.angle + s.angle / 2;
}

bool CConvertLonLat::calcPolygonalCenterOfGravity(CStringEx poly, double& lon, double& lat) {
  if (const auto centroid = Core::CentroidOfText(poly.c_str())) {
    lon = centroid->lon;
    lat = centroid->lat;
  }
  return false;  // Kept: whatever the outputs hold. Callers go by those.
}

void CConvertLonLat::calcSectorCenterOfGravity(const sector_info& s, double& lon, double& lat) {
  const Core::Position centre = Core::MoveByGauss({s.lon, s.lat}, s.azimuth, s.radius / 2);
  lon = centre.lon;
  lat = centre.lat;
}

bool CConvertLonLat::calcPointToPolygonNearestDist(double lon, double lat, CStringEx poly,
                                                   double& dist) {
  if (const auto nearest = Core::DistanceFromText({lon, lat}, poly.c_str())) dist = *nearest;
  return false;  // Kept: as for the centroid.
}

double CConvertLonLat::calcPointToCircleNearestDist(double lon, double lat, double cLon,
                                                    double cLat, double radius) {
  return Core::DistanceByCosines({lon, lat}, {cLon, cLat}) - radius;
}

double CConvertLonLat::GeMinDistanceInfo(_POINTD a, _POINTD b, _POINTD p) {
  return Core::HeightOverSegment(PositionOf(a), PositionOf(b), PositionOf(p));
}

}  // namespace Tarn::Generic
