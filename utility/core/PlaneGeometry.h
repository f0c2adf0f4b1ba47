// Geometry in the plane, without a model of the Earth. Sums, products and quotients are formed from
// left to right as written: peers compare results to the last bits.
#ifndef TARN_UTILITY_CORE_PLANEGEOMETRY_H
#define TARN_UTILITY_CORE_PLANEGEOMETRY_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "utility/core/PlaneAngles.h"
#include "utility/core/WholeNumber.h"

namespace Tarn::Core {

/// A point on a screen.
struct ScreenPoint {
  int32_t x;
  int32_t y;
};

/// left <= right and top <= bottom.
struct ScreenRect {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
};

/// Whether a point lies in the ring of `count` vertices, by the even-odd rule.
/// W. R. Franklin, "PNPOLY - Point Inclusion in Polygon Test", 1970.
[[nodiscard]] bool IsInRing(PlanePoint point, const double* xs, const double* ys, size_t count);

/// Whether two segments have a point in common: their boxes meet, and each one's ends are not both
/// on one side of the other. Differences and products keep their lower 32 bits.
[[nodiscard]] bool SegmentsCross(ScreenPoint p1, ScreenPoint p2, ScreenPoint q1, ScreenPoint q2);

/// Whether the boxes with the corners a, b and c, d have a point in common.
[[nodiscard]] bool BoxesMeet(PlanePoint a, PlanePoint b, PlanePoint c, PlanePoint d);

/// Whether two segments straddle each other, as far as peers agree on it: see the .cpp.
[[nodiscard]] bool SegmentsStraddle(PlanePoint a, PlanePoint b, PlanePoint c, PlanePoint d);

/// The Jaccard index of two rectangles, "intersection over union"; 0 when they are apart. Areas
/// keep their lower 32 bits.
[[nodiscard]] double IntersectionOverUnion(const ScreenRect& a, const ScreenRect& b);

/// The centroid of a closed ring, edge by edge, by the shoelace formula.
/// P. Bourke, "Calculating the area and centroid of a polygon", 1988.
class CentroidSum {
 public:
  void AddEdge(PlanePoint from, PlanePoint to) {
    const double area = (from.x * to.y - to.x * from.y) / 2.0;
    area_ += area;
    y_ += (to.y + from.y) * area / 3.0;
    x_ += (to.x + from.x) * area / 3.0;
  }
  /// NaN or infinity for a ring without area.
  [[nodiscard]] PlanePoint Centroid() const { return {x_ / area_, y_ / area_}; }

 private:
  double area_ = 0;
  double x_ = 0;
  double y_ = 0;
};

// Rings and lines of screen points: vectors of any record with whole x and y, closed implicitly.

/// Where the line through an edge meets the height of the point is right of the point.
[[nodiscard]] inline bool PassesRightOf(ScreenPoint point, ScreenPoint p1, ScreenPoint p2) {
  const double dx = WrappingDifference(p2.x, p1.x);
  const double dy = WrappingDifference(p2.y, p1.y);
  const double above = WrappingDifference(point.y, p1.y);
  return p1.x + dx * above / dy > point.x;
}

template <typename Vertex>
[[nodiscard]] ScreenPoint AsScreenPoint(const Vertex& vertex) {
  return {vertex.x, vertex.y};
}

/// The vertex behind vertex i of a ring.
template <typename Vertex>
[[nodiscard]] ScreenPoint NextVertex(const std::vector<Vertex>& ring, size_t i) {
  return AsScreenPoint(ring[i + 1 < ring.size() ? i + 1 : 0]);
}

/// Which of sixteen screen points in a row lie above a height (have a larger y): bit 0 is the
/// first.
[[nodiscard]] uint32_t SixteenAbove(const void* points, int32_t height);

/// Whether a point lies in a ring, by the even-odd rule: M. Shimrat, "Algorithm 112: Position of
/// point relative to polygon", CACM 1962. An edge counts from its lower end (included) to its upper
/// one (not included), so that the edges at a common vertex count once and level ones never.
template <typename Vertex>
[[nodiscard]] bool IsInRing(ScreenPoint point, const std::vector<Vertex>& ring) {
  static_assert(sizeof(Vertex) == sizeof(ScreenPoint));
  if (ring.empty()) return false;
  bool inside = false;
  const auto passEdge = [&](size_t i) {
    inside ^= PassesRightOf(point, AsScreenPoint(ring[i]), NextVertex(ring, i));
  };
  uint32_t above = ring[0].y > point.y ? 1 : 0;
  size_t i = 0;
  for (; i + 16 < ring.size(); i += 16) {
    const uint32_t ends = SixteenAbove(&ring[i + 1], point.y);
    // A bit for each edge with one end above: only those count.
    for (uint32_t edges = (ends ^ (ends << 1 | above)) & 0xFFFF; edges != 0; edges &= edges - 1)
      passEdge(i + static_cast<size_t>(std::countr_zero(edges)));
    above = ends >> 15;
  }
  for (; i < ring.size(); ++i) {
    const uint32_t end = NextVertex(ring, i).y > point.y ? 1 : 0;
    if (end != above) passEdge(i);
    above = end;
  }
  return inside;
}

/// Whether a segment crosses an edge of a ring.
template <typename Vertex>
[[nodiscard]] bool SegmentCrossesRing(ScreenPoint p1, ScreenPoint p2,
                                      const std::vector<Vertex>& ring) {
  for (size_t i = 0; i < ring.size(); ++i) {
    if (SegmentsCross(p1, p2, AsScreenPoint(ring[i]), NextVertex(ring, i))) return true;
  }
  return false;
}

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_PLANEGEOMETRY_H
