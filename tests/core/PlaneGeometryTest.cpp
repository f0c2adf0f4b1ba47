#include "utility/core/PlaneGeometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Oracle.h"

using namespace Tarn::Core;
using namespace tarn_test;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();

using Ring = std::vector<ScreenPoint>;

class Random {
 public:
  int32_t Below(int32_t limit) {
    return static_cast<int32_t>(engine_() % static_cast<uint32_t>(limit));
  }
  int32_t Any() { return static_cast<int32_t>(engine_()); }
  ScreenPoint Point(int32_t limit) { return {Below(limit), Below(limit)}; }
  Ring Vertices(size_t count, int32_t limit) {
    Ring ring(count);
    for (ScreenPoint& vertex : ring)
      vertex = Point(limit);
    return ring;
  }

 private:
  std::mt19937 engine_{7};
};

// One vertex at a time, as it is defined.
bool IsInRingPlainly(ScreenPoint point, const Ring& ring) {
  int count = 0;
  for (size_t i = 0; i < ring.size(); ++i) {
    const ScreenPoint p1 = ring[i];
    const ScreenPoint p2 = ring[(i + 1) % ring.size()];
    if (p1.y == p2.y || point.y < std::min(p1.y, p2.y) || point.y >= std::max(p1.y, p2.y)) continue;
    if (PassesRightOf(point, p1, p2)) ++count;
  }
  return count % 2 == 1;
}

std::string Text(const Ring& ring) {
  std::string text;
  for (const ScreenPoint& point : ring)
    text += std::to_string(point.x) + " " + std::to_string(point.y) + " ";
  return text;
}

std::string Bits(const std::vector<bool>& results) {
  std::string text;
  for (const bool result : results)
    text += result ? '1' : '0';
  return text;
}

std::string OnlyLine(const std::string& script, const std::string& data) {
  const auto lines = PythonLines("from fractions import Fraction as F\n" + script, data);
  EXPECT_EQ(lines.size(), 1u);
  return lines.empty() ? "" : lines[0];
}

bool InDoubles(PlanePoint point, const std::vector<double>& xs, const std::vector<double>& ys) {
  return IsInRing(point, xs.data(), ys.data(), xs.size());
}

bool InDoubles(ScreenPoint point, const Ring& ring) {
  std::vector<double> xs;
  std::vector<double> ys;
  for (const ScreenPoint& vertex : ring) {
    xs.push_back(vertex.x);
    ys.push_back(vertex.y);
  }
  return InDoubles(PlanePoint{static_cast<double>(point.x), static_cast<double>(point.y)}, xs, ys);
}

// The even-odd rule in exact arithmetic; each line of the data is a point and its ring.
const char* const kEvenOdd = R"(
out = ''
for line in d.splitlines():
    v = list(map(int, line.split()))
    px, py, ring = v[0], v[1], list(zip(v[2::2], v[3::2]))
    inside = False
    for (x1, y1), (x2, y2) in zip(ring, ring[1:] + ring[:1]):
        if min(y1, y2) <= py < max(y1, y2):
            inside ^= x1 + F((x2 - x1) * (py - y1), y2 - y1) > px
    out += '01'[inside]
print(out)
)";

}  // namespace

TEST(PlaneGeometry, RingTestsAgreeWithExactArithmeticNearEdgesAndVertices) {
  Random random;
  std::string data;
  std::vector<bool> whole;
  std::vector<bool> doubles;
  for (int i = 0; i < 1000; ++i) {
    const Ring ring = random.Vertices(static_cast<size_t>(random.Below(70)), 12);
    const ScreenPoint point = random.Point(12);
    data += Text({point}) + Text(ring) + "\n";
    whole.push_back(IsInRing(point, ring));
    doubles.push_back(InDoubles(point, ring));
  }
  const std::string expected = OnlyLine(kEvenOdd, data);
  EXPECT_EQ(Bits(whole), expected);
  EXPECT_EQ(Bits(doubles), expected);
}

TEST(PlaneGeometry, RingsOfEveryLengthAroundTheBlockOfSixteenAreWalkedWhole) {
  Random random;
  for (size_t count = 0; count <= 70; ++count) {
    for (int i = 0; i < 200; ++i) {
      const Ring ring = random.Vertices(count, 9);
      const ScreenPoint point = random.Point(9);
      ASSERT_EQ(IsInRing(point, ring), IsInRingPlainly(point, ring)) << count;
    }
  }
}

TEST(PlaneGeometry, RingTestsAgreeAtTheEndsOfTheWholeNumbers) {
  Random random;
  const int32_t corners[] = {kMin, kMin + 1, -1, 0, 1, kMax - 1, kMax};
  for (int i = 0; i < 5000; ++i) {
    Ring ring = random.Vertices(static_cast<size_t>(1 + random.Below(40)), 1);
    for (ScreenPoint& vertex : ring)
      vertex = {corners[random.Below(7)],
                random.Below(2) != 0 ? random.Any() : corners[random.Below(7)]};
    const ScreenPoint point{corners[random.Below(7)], corners[random.Below(7)]};
    ASSERT_EQ(IsInRing(point, ring), IsInRingPlainly(point, ring));
  }
}

TEST(PlaneGeometry, MovingRingAndPointTogetherChangesNothing) {
  Random random;
  for (int i = 0; i < 2000; ++i) {
    Ring ring = random.Vertices(static_cast<size_t>(3 + random.Below(30)), 100);
    ScreenPoint point = random.Point(100);
    const bool before = IsInRing(point, ring);
    const ScreenPoint move{random.Below(100000) - 50000, random.Below(100000) - 50000};
    for (ScreenPoint& vertex : ring)
      vertex = {vertex.x + move.x, vertex.y + move.y};
    point = {point.x + move.x, point.y + move.y};
    ASSERT_EQ(IsInRing(point, ring), before);
    ASSERT_EQ(InDoubles(point, ring), before);
  }
}

TEST(PlaneGeometry, MirroredRingsHoldMirroredPointsThatLieOnNoEdge) {
  Random random;
  for (int i = 0; i < 2000; ++i) {
    // Even vertices and an odd point whose height no edge meets at a whole x: see the exact test.
    Ring ring = random.Vertices(static_cast<size_t>(3 + random.Below(30)), 50);
    for (ScreenPoint& vertex : ring)
      vertex = {vertex.x * 1000, vertex.y * 2};
    const ScreenPoint point{random.Below(50) * 1000 + 77, random.Below(50) * 2 + 1};
    const bool before = IsInRing(point, ring);
    Ring sideways = ring;
    Ring upsideDown = ring;
    for (size_t v = 0; v < ring.size(); ++v) {
      sideways[v].x = -ring[v].x;
      upsideDown[v].y = -ring[v].y;
    }
    const Ring reversed(ring.rbegin(), ring.rend());
    bool onEdge = false;
    for (size_t v = 0; v < ring.size(); ++v)
      onEdge = onEdge || SegmentsCross(point, point, ring[v], ring[(v + 1) % ring.size()]);
    if (onEdge) continue;
    ASSERT_EQ(IsInRing({-point.x, point.y}, sideways), before);
    ASSERT_EQ(IsInRing({point.x, -point.y}, upsideDown), before);
    ASSERT_EQ(IsInRing(point, reversed), before);
  }
}

TEST(PlaneGeometry, RingsWithoutAreaHoldNothing) {
  const ScreenPoint point{5, 5};
  EXPECT_FALSE(IsInRing(point, Ring{}));
  EXPECT_FALSE(IsInRing(point, Ring{point}));
  EXPECT_FALSE(IsInRing(point, Ring{{0, 0}, {10, 10}}));
  EXPECT_FALSE(IsInRing(point, Ring{{0, 5}, {10, 5}, {20, 5}}));
  EXPECT_FALSE(IsInRing(point, Ring(100, point)));
  EXPECT_FALSE(IsInRing(PlanePoint{5, 5}, nullptr, nullptr, 0));
  EXPECT_FALSE(InDoubles({5, 5}, {5}, {5}));
}

TEST(PlaneGeometry, DifferencesInARingWrapAt32BitsKept) {
  // The edge is wider than 31 bits: its width counts as -2.
  const ScreenPoint p1{kMin + 1, 0};
  const ScreenPoint p2{kMax, 10};
  EXPECT_FALSE(PassesRightOf({-1000, 5}, p1, p2));
  EXPECT_TRUE(PassesRightOf({kMin, 4}, p1, p2));
  EXPECT_FALSE(PassesRightOf({kMin, 5}, p1, p2));
  EXPECT_FALSE(IsInRing(ScreenPoint{0, 6}, Ring{p1, p2, {kMin + 1, 10}}));
}

TEST(PlaneGeometry, NoNumberIsOutsideAndInfinitiesDoNotTrap) {
  const std::vector<double> xs{0, 10, 10, 0};
  const std::vector<double> ys{0, 0, 10, 10};
  EXPECT_TRUE(InDoubles({5, 5}, xs, ys));
  for (const double odd : {kNaN, kInfinity, -kInfinity}) {
    EXPECT_FALSE(InDoubles({5, odd}, xs, ys)) << odd;
    EXPECT_EQ(InDoubles({odd, 5}, xs, ys), false) << odd;
  }
  EXPECT_FALSE(InDoubles({5, 5}, {kNaN, kNaN, kNaN}, {kNaN, kNaN, kNaN}));
  // An edge from an infinite height meets the point's at no number.
  EXPECT_FALSE(InDoubles({5, 5}, {0, 10, 5}, {0, 0, kInfinity}));
}

TEST(PlaneGeometry, SegmentsCrossWhereExactArithmeticFindsACommonPoint) {
  Random random;
  std::string data;
  std::vector<bool> results;
  for (int i = 0; i < 1500; ++i) {
    // A small grid, where touching, overlapping and degenerate segments are common.
    const Ring ends = random.Vertices(4, i % 2 == 0 ? 6 : 10000);
    data += Text(ends) + "\n";
    results.push_back(SegmentsCross(ends[0], ends[1], ends[2], ends[3]));
  }
  const char* const script = R"(
def common(ax, ay, bx, by, cx, cy, dx, dy):
    # a + t(b - a) = c + u(d - c), solved with rationals; parallel ones by their ends
    det = (bx - ax) * (cy - dy) - (by - ay) * (cx - dx)
    if det != 0:
        t = F((cx - ax) * (cy - dy) - (cy - ay) * (cx - dx), det)
        u = F((bx - ax) * (cy - ay) - (by - ay) * (cx - ax), det)
        return 0 <= t <= 1 and 0 <= u <= 1
    def on(px, py, ax, ay, bx, by):
        return ((bx - ax) * (py - ay) == (by - ay) * (px - ax) and min(ax, bx) <= px <= max(ax, bx)
                and min(ay, by) <= py <= max(ay, by))
    return (on(ax, ay, cx, cy, dx, dy) or on(bx, by, cx, cy, dx, dy) or on(cx, cy, ax, ay, bx, by)
            or on(dx, dy, ax, ay, bx, by))
print(''.join('01'[common(*map(int, line.split()))] for line in d.splitlines()))
)";
  EXPECT_EQ(Bits(results), OnlyLine(script, data));
}

TEST(PlaneGeometry, SegmentsCrossInEitherOrderAndDirection) {
  Random random;
  for (int i = 0; i < 5000; ++i) {
    const Ring e = random.Vertices(4, 8);
    const bool crossing = SegmentsCross(e[0], e[1], e[2], e[3]);
    ASSERT_EQ(SegmentsCross(e[1], e[0], e[2], e[3]), crossing);
    ASSERT_EQ(SegmentsCross(e[0], e[1], e[3], e[2]), crossing);
    ASSERT_EQ(SegmentsCross(e[2], e[3], e[0], e[1]), crossing);
    const auto mirror = [](ScreenPoint p) { return ScreenPoint{-p.y, p.x + 1000}; };
    ASSERT_EQ(SegmentsCross(mirror(e[0]), mirror(e[1]), mirror(e[2]), mirror(e[3])), crossing);
  }
}

TEST(PlaneGeometry, ProductsOfSegmentsWrapAt32BitsKept) {
  Random random;
  std::string data;
  std::vector<bool> results;
  for (int i = 0; i < 1500; ++i) {
    Ring ends = random.Vertices(4, 1);
    for (ScreenPoint& end : ends)
      end = i % 2 == 0 ? ScreenPoint{random.Any(), random.Any()} : random.Point(200000);
    data += Text(ends) + "\n";
    results.push_back(SegmentsCross(ends[0], ends[1], ends[2], ends[3]));
  }
  const char* const script = R"(
def wrap(v):
    return (v + 2**31) % 2**32 - 2**31
def side(px, py, ax, ay, bx, by):
    return float(wrap((px - ax) * (by - ay) - (py - ay) * (bx - ax)))
def cross(ax, ay, bx, by, cx, cy, dx, dy):
    if (min(ax, bx) > max(cx, dx) or min(cy, dy) > max(ay, by) or min(cx, dx) > max(ax, bx)
            or min(ay, by) > max(cy, dy)):
        return False
    if side(cx, cy, ax, ay, bx, by) * side(dx, dy, ax, ay, bx, by) > 1e-8:
        return False
    return side(ax, ay, cx, cy, dx, dy) * side(bx, by, cx, cy, dx, dy) <= 1e-8
print(''.join('01'[cross(*map(int, line.split()))] for line in d.splitlines()))
)";
  EXPECT_EQ(Bits(results), OnlyLine(script, data));
  // These cross, but 30000 * 100000 leaves a negative number: both ends seem to lie on one side.
  EXPECT_FALSE(SegmentsCross({0, 0}, {100000, 100000}, {0, 30000}, {100000, 0}));
  EXPECT_TRUE(SegmentsCross({0, 0}, {10000, 10000}, {0, 3000}, {10000, 0}));
}

TEST(PlaneGeometry, ASegmentCrossesARingAtAnyOfItsEdgesTheClosingOneIncluded) {
  const Ring square{{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  EXPECT_TRUE(SegmentCrossesRing({5, -1}, {5, 1}, square));
  EXPECT_TRUE(SegmentCrossesRing({9, 5}, {11, 5}, square));
  EXPECT_TRUE(SegmentCrossesRing({5, 9}, {5, 11}, square));
  EXPECT_TRUE(SegmentCrossesRing({-1, 5}, {1, 5}, square));
  EXPECT_FALSE(SegmentCrossesRing({4, 4}, {6, 6}, square));
  EXPECT_FALSE(SegmentCrossesRing({4, 4}, {6, 6}, Ring{}));
}

TEST(PlaneGeometry, BoxesMeetAlsoAtAnEdgeOrCornerWhateverTheOrderOfTheirCorners) {
  const PlanePoint a{0, 0};
  const PlanePoint b{10, 10};
  EXPECT_TRUE(BoxesMeet(a, b, {10, 10}, {20, 20}));
  EXPECT_TRUE(BoxesMeet(b, a, {20, 20}, {10, 10}));
  EXPECT_TRUE(BoxesMeet(a, b, {10, 20}, {20, 0}));
  EXPECT_TRUE(BoxesMeet(a, b, {2, 3}, {4, 5}));
  EXPECT_TRUE(BoxesMeet({2, 3}, {4, 5}, a, b));
  EXPECT_FALSE(BoxesMeet(a, b, {10.001, 0}, {20, 20}));
  EXPECT_FALSE(BoxesMeet(a, b, {-20, 0}, {-0.001, 20}));
  EXPECT_FALSE(BoxesMeet(a, b, {0, 10.001}, {20, 20}));
  EXPECT_FALSE(BoxesMeet(a, b, {0, -20}, {20, -0.001}));
  EXPECT_FALSE(BoxesMeet({kNaN, kNaN}, {kNaN, kNaN}, a, b));
  EXPECT_TRUE(BoxesMeet({-kInfinity, -kInfinity}, {kInfinity, kInfinity}, a, b));
}

namespace {

const char* const kStraddle = R"(
def straddle(ax, ay, bx, by, cx, cy, dx, dy):
    first = ((by - cy) * (dx - cx) - (bx - cx) * (dy - cy)) * ((dy - cy) * (ax - cx) - (dx - cx) * (ay - cy))
    second = ((dy - ay) * (bx - ax) - (dx - ax) * (by - ay)) * ((ay - by) * (cx - ax) - (bx - ax) * (cy - ay))
    return first >= 0 and second >= 0
print(''.join('01'[straddle(*(F(float.fromhex(v)) for v in line.decode().split()))] for line in d.splitlines()))
)";

bool Straddle(const std::vector<double>& v) {
  return SegmentsStraddle({v[0], v[1]}, {v[2], v[3]}, {v[4], v[5]}, {v[6], v[7]});
}

}  // namespace

TEST(PlaneGeometry, StraddlingAgreesWithExactArithmetic) {
  Random random;
  std::string data;
  std::vector<bool> results;
  for (int i = 0; i < 1500; ++i) {
    std::vector<double> ends;
    for (int k = 0; k < 8; ++k) {
      ends.push_back(random.Below(i % 2 == 0 ? 5 : 4000) / 4.0);
      char number[40];
      snprintf(number, sizeof(number), "%a ", ends.back());
      data += number;
    }
    data += "\n";
    results.push_back(Straddle(ends));
  }
  EXPECT_EQ(Bits(results), OnlyLine(kStraddle, data));
}

TEST(PlaneGeometry, SegmentsOnOneLineStraddleEvenApartKept) {
  EXPECT_TRUE(Straddle({0, 0, 10, 0, 11, 0, 20, 0}));
  EXPECT_TRUE(Straddle({0, 0, 1, 1, 5, 5, 9, 9}));
  EXPECT_FALSE(Straddle({0, 0, 10, 0, 0, 1, 10, 1}));
}

TEST(PlaneGeometry, OneDifferenceOfStraddlingIsTurnedRoundKept) {
  // The same two segments, which cross in the middle: it depends on where the second begins.
  EXPECT_FALSE(Straddle({0, 0, 10, 10, 9, 1, 1, 9}));
  EXPECT_TRUE(Straddle({0, 0, 10, 10, 1, 9, 9, 1}));
  // On a level a-b the turned difference is 0 either way.
  EXPECT_TRUE(Straddle({0, 0, 10, 0, 2, -5, 3, 5}));
  EXPECT_FALSE(Straddle({0, 0, 10, 0, 2, 1, 3, 5}));
}

TEST(PlaneGeometry, StraddlingOfNoNumbersIsFalse) {
  for (size_t at = 0; at < 8; ++at) {
    std::vector<double> ends{0, 0, 10, 0, 2, -5, 3, 5};
    ends[at] = kNaN;
    EXPECT_FALSE(Straddle(ends)) << at;
  }
}

TEST(PlaneGeometry, OverlapsAreTheNearestDoubleOfTheExactRatio) {
  Random random;
  std::string data;
  std::string results;
  for (int i = 0; i < 2000; ++i) {
    const auto rect = [&random] {
      const ScreenPoint at = random.Point(100);
      return ScreenRect{at.x, at.y, at.x + 1 + random.Below(60), at.y + 1 + random.Below(60)};
    };
    const ScreenRect a = rect();
    const ScreenRect b = rect();
    data +=
        Text({{a.left, a.top}, {a.right, a.bottom}, {b.left, b.top}, {b.right, b.bottom}}) + "\n";
    char number[40];
    snprintf(number, sizeof(number), "%.17g ", IntersectionOverUnion(a, b));
    results += number;
    ASSERT_EQ(IntersectionOverUnion(a, b), IntersectionOverUnion(b, a));
  }
  const char* const script = R"(
def area(l, t, r, b):
    return max(r - l, 0) * max(b - t, 0)
out = ''
for line in d.splitlines():
    v = list(map(int, line.split()))
    inter = area(*map(max, v[:2], v[4:6]), *map(min, v[2:4], v[6:]))
    out += '%.17g ' % float(F(inter, area(*v[:4]) + area(*v[4:]) - inter))
print(out)
)";
  EXPECT_EQ(results, OnlyLine(script, data));
}

TEST(PlaneGeometry, AreasWrapAt32BitsKept) {
  const ScreenRect large{0, 0, 100000, 100000};  // 10^10, which leaves 1410065408
  EXPECT_EQ(IntersectionOverUnion(large, large), 1.0);
  const ScreenRect half{0, 0, 50000, 100000};  // 5 * 10^9, which leaves 705032704
  EXPECT_EQ(IntersectionOverUnion(large, half), 0.5);
  const ScreenRect fourth{0, 0, 65536, 65536};  // 2^32, which leaves nothing
  EXPECT_TRUE(std::isnan(IntersectionOverUnion(fourth, fourth)));
  const ScreenRect third{0, 0, 50000, 60000};  // 3 * 10^9, which leaves -1294967296
  EXPECT_EQ(IntersectionOverUnion(large, third), -1294967296.0 / 1410065408.0);
  EXPECT_EQ(IntersectionOverUnion({kMin, kMin, kMax, kMax}, {kMin, kMin, kMax, kMax}), 1.0);
}

TEST(PlaneGeometry, RectanglesWithoutAreaShareNoNumber) {
  EXPECT_TRUE(std::isnan(IntersectionOverUnion({3, 3, 3, 3}, {3, 3, 3, 3})));
  EXPECT_EQ(IntersectionOverUnion({3, 3, 3, 3}, {0, 0, 10, 10}), 0.0);
}

TEST(PlaneGeometry, CentroidsAgreeWithExactArithmetic) {
  Random random;
  std::string data;
  std::vector<double> results;
  for (int i = 0; i < 200; ++i) {
    CentroidSum sum;
    const Ring ring = random.Vertices(static_cast<size_t>(3 + random.Below(20)), 10000);
    for (size_t v = 0; v < ring.size(); ++v) {
      const ScreenPoint from = ring[v];
      const ScreenPoint to = NextVertex(ring, v);
      sum.AddEdge({from.x / 16.0, from.y / 16.0}, {to.x / 16.0, to.y / 16.0});
    }
    results.push_back(sum.Centroid().x);
    results.push_back(sum.Centroid().y);
    data += Text(ring) + "\n";
  }
  // By triangles from the first vertex instead of the origin.
  const char* const script = R"(
for line in d.splitlines():
    v = [F(int(n), 16) for n in line.split()]
    ring = list(zip(v[::2], v[1::2]))
    x0, y0 = ring[0]
    area = cx = cy = 0
    for (x1, y1), (x2, y2) in zip(ring[1:], ring[2:]):
        twice = (x1 - x0) * (y2 - y0) - (x2 - x0) * (y1 - y0)
        area += twice
        cx += twice * (x0 + x1 + x2) / 3
        cy += twice * (y0 + y1 + y2) / 3
    print(float(cx / area), float(cy / area), float(abs(area)), sep='\n')
)";
  const auto lines =
      PythonLines("from fractions import Fraction as F\n" + std::string(script), data);
  ASSERT_EQ(lines.size(), 600u);
  for (size_t i = 0; i < 200; ++i) {
    // A small area beside large terms costs digits.
    const double tolerance = 1e-3 / std::stod(lines[3 * i + 2]);
    EXPECT_NEAR(results[2 * i], std::stod(lines[3 * i]), tolerance);
    EXPECT_NEAR(results[2 * i + 1], std::stod(lines[3 * i + 1]), tolerance);
  }
}

TEST(PlaneGeometry, ACentroidWithoutAreaIsNoNumber) {
  CentroidSum sum;
  EXPECT_TRUE(std::isnan(sum.Centroid().x));
  sum.AddEdge({1, 2}, {3, 4});
  sum.AddEdge({3, 4}, {1, 2});
  EXPECT_TRUE(std::isnan(sum.Centroid().x));
  EXPECT_TRUE(std::isnan(sum.Centroid().y));
}
