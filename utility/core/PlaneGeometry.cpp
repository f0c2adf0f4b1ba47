// Polygons, segments and boxes in the plane.
#include "utility/core/PlaneGeometry.h"

#include <emmintrin.h>

#include <algorithm>

namespace Tarn::Core {

namespace {

// On which side of the line from-to a point lies; 0 on the line.
double Side(ScreenPoint point, ScreenPoint from, ScreenPoint to) {
  const int32_t one =
      WrappingProduct(WrappingDifference(point.x, from.x), WrappingDifference(to.y, from.y));
  const int32_t other =
      WrappingProduct(WrappingDifference(point.y, from.y), WrappingDifference(to.x, from.x));
  return WrappingDifference(one, other);
}

bool BothOnOneSide(ScreenPoint p1, ScreenPoint p2, ScreenPoint from, ScreenPoint to) {
  return Side(p1, from, to) * Side(p2, from, to) > 1e-8;
}

int32_t WrappingArea(const ScreenRect& rect) {
  return WrappingProduct(WrappingDifference(rect.right, rect.left),
                         WrappingDifference(rect.bottom, rect.top));
}

}  // namespace

bool IsInRing(PlanePoint point, const double* xs, const double* ys, size_t count) {
  bool inside = false;
  if (count == 0) return inside;
  size_t j = count - 1;
  bool aboveJ = ys[j] > point.y;
  for (size_t i = 0; i < count; j = i++) {
    const bool aboveI = ys[i] > point.y;
    if (aboveI != aboveJ &&
        xs[i] + (point.y - ys[i]) * (xs[j] - xs[i]) / (ys[j] - ys[i]) > point.x) {
      inside = !inside;
    }
    aboveJ = aboveI;
  }
  return inside;
}

uint32_t SixteenAbove(const void* points, int32_t height) {
  const auto* pairs = static_cast<const __m128i*>(points);
  const __m128i heights = _mm_set1_epi32(height);
  const auto fourAbove = [pairs, heights](int four) {
    const __m128 first = _mm_castsi128_ps(_mm_loadu_si128(pairs + 2 * four));
    const __m128 second = _mm_castsi128_ps(_mm_loadu_si128(pairs + 2 * four + 1));
    const __m128i ys = _mm_castps_si128(_mm_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1)));
    return _mm_cmpgt_epi32(ys, heights);
  };
  const __m128i lower = _mm_packs_epi32(fourAbove(0), fourAbove(1));
  const __m128i upper = _mm_packs_epi32(fourAbove(2), fourAbove(3));
  return static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(lower, upper)));
}

bool SegmentsCross(ScreenPoint p1, ScreenPoint p2, ScreenPoint q1, ScreenPoint q2) {
  if (std::min(p1.x, p2.x) > std::max(q1.x, q2.x)) return false;
  if (std::min(q1.y, q2.y) > std::max(p1.y, p2.y)) return false;
  if (std::min(q1.x, q2.x) > std::max(p1.x, p2.x)) return false;
  if (std::min(p1.y, p2.y) > std::max(q1.y, q2.y)) return false;
  return !BothOnOneSide(q1, q2, p1, p2) && !BothOnOneSide(p1, p2, q1, q2);
}

bool BoxesMeet(PlanePoint a, PlanePoint b, PlanePoint c, PlanePoint d) {
  return std::max(c.y, d.y) >= std::min(a.y, b.y) && std::max(a.y, b.y) >= std::min(c.y, d.y) &&
         std::max(c.x, d.x) >= std::min(a.x, b.x) && std::max(a.x, b.x) >= std::min(c.x, d.x);
}

bool SegmentsStraddle(PlanePoint a, PlanePoint b, PlanePoint c, PlanePoint d) {
  const double bSide = (b.y - c.y) * (d.x - c.x) - (b.x - c.x) * (d.y - c.y);
  const double aSide = (d.y - c.y) * (a.x - c.x) - (d.x - c.x) * (a.y - c.y);
  const double dSide = (d.y - a.y) * (b.x - a.x) - (d.x - a.x) * (b.y - a.y);
  // Kept: (a.y - b.y), not the (b.y - a.y) of a true side. Only where c lies straight above or
  // below a, or a-b is level, is it one; hosts have set their lines by what comes out.
  const double cSide = (a.y - b.y) * (c.x - a.x) - (b.x - a.x) * (c.y - a.y);
  return bSide * aSide >= 0 && dSide * cSide >= 0;
}

double IntersectionOverUnion(const ScreenRect& a, const ScreenRect& b) {
  const ScreenRect common{std::max(a.left, b.left), std::max(a.top, b.top),
                          std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
  if (common.left > common.right || common.top > common.bottom) return 0.0;
  const int32_t inter = WrappingArea(common);
  const int32_t covered = WrappingDifference(WrappingSum(WrappingArea(a), WrappingArea(b)), inter);
  return static_cast<double>(inter) / covered;
}

}  // namespace Tarn::Core
