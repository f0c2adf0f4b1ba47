// The plane geometry of CConvertLonLat as hosts call it; its formulas are tested in tests/core.
#include <Tarn/Generic/ConvertLonLat.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/FailingNew.h"
#include "tests/support/Oracle.h"

using namespace tarn_test;
using Tarn::tagPOINT;
using Tarn::tagRECT;
using Tarn::Generic::_POINTD;
using Tarn::Generic::CConvertLonLat;
using Tarn::Generic::CStringEx;
using Tarn::Generic::sector_info;

namespace {

constexpr double kUntouched = -77.5;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

static_assert(sizeof(tagPOINT) == 8 && offsetof(tagPOINT, y) == 4);
static_assert(sizeof(tagRECT) == 16 && offsetof(tagRECT, top) == 4 &&
              offsetof(tagRECT, right) == 8 && offsetof(tagRECT, bottom) == 12);
static_assert(sizeof(_POINTD) == 16 && offsetof(_POINTD, y) == 8);
static_assert(sizeof(sector_info) == 40 && offsetof(sector_info, lat) == 8 &&
              offsetof(sector_info, radius) == 16 && offsetof(sector_info, angle) == 24 &&
              offsetof(sector_info, azimuth) == 32);
static_assert(std::is_trivially_copyable_v<tagPOINT> && std::is_trivially_copyable_v<sector_info>);

class ConvertLonLatPlane : public testing::Test {
 protected:
  // Each with outputs that show whether they were written.
  struct Outputs {
    bool result;
    double lon;
    double lat;
  };
  Outputs Centroid(const char* polygon) {
    Outputs outputs{true, kUntouched, kUntouched};
    outputs.result = geo_.calcPolygonalCenterOfGravity(polygon, outputs.lon, outputs.lat);
    return outputs;
  }
  double Nearest(double lon, double lat, const char* polygon) {
    double distance = kUntouched;
    EXPECT_FALSE(geo_.calcPointToPolygonNearestDist(lon, lat, polygon, distance));
    return distance;
  }
  double SegmentDistance(_POINTD a, _POINTD b, _POINTD p) {
    double lon = 0;
    double lat = 0;
    return geo_.GetNearestDistance(a.x, a.y, b.x, b.y, p.x, p.y, lon, lat);
  }
  // The point at a bearing and a distance from the sector's centre.
  _POINTD At(const sector_info& sector, double bearing, double distance) {
    _POINTD point{};
    geo_.CalculateAimLonLat(sector.lon, sector.lat, bearing, distance, point.x, point.y);
    return point;
  }

  CConvertLonLat geo_;
  const std::vector<tagPOINT> square_{{0, 0}, {10, 0}, {10, 10}, {0, 10}};
  const std::vector<tagPOINT> small_{{4, 4}, {6, 4}, {6, 6}, {4, 6}};
};

}  // namespace

TEST_F(ConvertLonLatPlane, LeftAndBottomEdgesAreInsideRightAndTopOnesAreNotKept) {
  EXPECT_TRUE(geo_.IsPointInPoly({5, 5}, square_));
  EXPECT_TRUE(geo_.IsPointInPoly({5, 0}, square_));
  EXPECT_FALSE(geo_.IsPointInPoly({5, 10}, square_));
  EXPECT_FALSE(geo_.IsPointInPoly({10, 5}, square_));
}

TEST_F(ConvertLonLatPlane, APointOnTheLeftEdgeIsInsideThanksToTheRightOne) {
  EXPECT_TRUE(geo_.IsPointInPoly({0, 5}, square_));
  EXPECT_FALSE(geo_.IsPointInPoly({-1, 5}, square_));
}

TEST_F(ConvertLonLatPlane, AnEmptyPolygonHoldsNothing) {
  EXPECT_FALSE(geo_.IsPointInPoly({0, 0}, {}));
}

TEST_F(ConvertLonLatPlane, ThePublishedTestHasTheSameEdges) {
  double xs[] = {0, 10, 10, 0};
  double ys[] = {0, 0, 10, 10};
  EXPECT_TRUE(geo_.PNPoly(4, 5, 5, xs, ys));
  EXPECT_TRUE(geo_.PNPoly(4, 5, 0, xs, ys));
  EXPECT_FALSE(geo_.PNPoly(4, 5, 10, xs, ys));
  EXPECT_TRUE(geo_.PNPoly(4, 0, 5, xs, ys));
  EXPECT_FALSE(geo_.PNPoly(4, 10, 5, xs, ys));
}

TEST_F(ConvertLonLatPlane, WithoutVerticesOrArraysNothingIsInside) {
  double numbers[] = {0, 1, 2};
  EXPECT_FALSE(geo_.PNPoly(0, 1, 1, numbers, numbers));
  EXPECT_FALSE(geo_.PNPoly(-3, 1, 1, numbers, numbers));
  EXPECT_FALSE(geo_.PNPoly(std::numeric_limits<int>::min(), 1, 1, numbers, numbers));
  EXPECT_FALSE(geo_.PNPoly(3, 1, 1, nullptr, numbers));
  EXPECT_FALSE(geo_.PNPoly(3, 1, 1, numbers, nullptr));
}

TEST_F(ConvertLonLatPlane, PointInPolygonTestsAllocateNothing) {
  std::vector<double> xs(1000, 1);
  std::vector<double> ys(1000, 2);
  const std::vector<tagPOINT> points(1000, tagPOINT{3, 4});
  const FailingNew failing(1, 0);
  (void)geo_.PNPoly(1000, 1, 1, xs.data(), ys.data());
  (void)geo_.IsPointInPoly({1, 1}, points);
  (void)geo_.IsPolygonCrossPolygon(square_, small_);
  (void)geo_.IsPolygonCrossLine(square_, small_);
  EXPECT_EQ(failing.Failed(), 0);
}

TEST_F(ConvertLonLatPlane, TextPolygonsAreReadWithoutTemporaryTexts) {
  std::string text = "0,0";
  for (int i = 1; i < 2000; ++i)
    text += ";" + std::to_string(i) + "." + std::to_string(i) + "," + std::to_string(i * i);
  const CStringEx polygon(text.c_str());
  double lon = kUntouched;
  double lat = kUntouched;
  double distance = kUntouched;
  const FailingNew failing(1, 0);
  (void)geo_.calcPolygonalCenterOfGravity(polygon, lon, lat);
  (void)geo_.calcPointToPolygonNearestDist(1, 1, polygon, distance);
  EXPECT_EQ(failing.Failed(), 0);
  EXPECT_NE(lon, kUntouched);
  EXPECT_NE(distance, kUntouched);
}

TEST_F(ConvertLonLatPlane, SegmentsOnOneLineCrossWhereTheyShareAnEnd) {
  EXPECT_TRUE(geo_.IsLineSegmentCross({0, 0}, {10, 0}, {10, 0}, {20, 0}));
  EXPECT_FALSE(geo_.IsLineSegmentCross({0, 0}, {10, 0}, {11, 0}, {20, 0}));
  EXPECT_TRUE(geo_.IsLineSegmentCross({0, 0}, {10, 0}, {5, 0}, {20, 0}));
}

TEST_F(ConvertLonLatPlane, TouchingSegmentsCrossKept) {
  EXPECT_TRUE(geo_.IsLineSegmentCross({0, 0}, {10, 10}, {5, 5}, {9, 0}));
  EXPECT_TRUE(geo_.IsLineSegmentCross({0, 0}, {10, 10}, {0, 0}, {-5, 3}));
  EXPECT_FALSE(geo_.IsLineSegmentCross({0, 0}, {10, 10}, {6, 5}, {9, 0}));
}

TEST_F(ConvertLonLatPlane, ASmallPolygonInsideCountsOnOneSideOnlyKept) {
  EXPECT_FALSE(geo_.IsPolygonCrossPolygon(square_, small_));
  EXPECT_TRUE(geo_.IsPolygonCrossPolygon(small_, square_));
}

TEST_F(ConvertLonLatPlane, PolygonsCrossByTheirEdges) {
  const std::vector<tagPOINT> across{{-5, 4}, {15, 4}, {15, 6}, {-5, 6}};
  EXPECT_TRUE(geo_.IsPolygonCrossPolygon(square_, across));
  EXPECT_TRUE(geo_.IsPolygonCrossPolygon(across, square_));
  const std::vector<tagPOINT> touching{{10, 10}, {20, 10}, {20, 20}};
  EXPECT_TRUE(geo_.IsPolygonCrossPolygon(square_, touching));
  const std::vector<tagPOINT> apart{{11, 0}, {20, 0}, {20, 10}};
  EXPECT_FALSE(geo_.IsPolygonCrossPolygon(square_, apart));
}

TEST_F(ConvertLonLatPlane, FewerThanThreeVerticesCrossNothing) {
  const std::vector<tagPOINT> two{{-5, 5}, {15, 5}};
  EXPECT_FALSE(geo_.IsPolygonCrossPolygon(two, square_));
  EXPECT_FALSE(geo_.IsPolygonCrossPolygon(square_, two));
  EXPECT_FALSE(geo_.IsPolygonCrossPolygon({}, {}));
}

TEST_F(ConvertLonLatPlane, ALineCrossesAPolygonByItsEdgesOnlyKept) {
  EXPECT_TRUE(geo_.IsPolygonCrossLine(square_, {{5, 5}, {5, 15}}));
  EXPECT_TRUE(geo_.IsPolygonCrossLine(square_, {{-5, -5}, {-5, 5}, {0, 5}}));
  EXPECT_FALSE(geo_.IsPolygonCrossLine(square_, {{4, 4}, {6, 6}, {6, 4}}));
  EXPECT_TRUE(geo_.IsPolygonCrossLine(square_, {{-5, 5}, {5, 5}}));  // the closing edge
}

TEST_F(ConvertLonLatPlane, ALineStaysOpen) {
  // Only an edge from its last vertex to its first would cross.
  EXPECT_FALSE(geo_.IsPolygonCrossLine(square_, {{-5, 5}, {-5, 20}, {20, 20}, {20, 5}}));
}

TEST_F(ConvertLonLatPlane, AnEmptyLineOrPolygonOrALoneVertexCrossesNothing) {
  EXPECT_FALSE(geo_.IsPolygonCrossLine(square_, {}));
  EXPECT_FALSE(geo_.IsPolygonCrossLine(square_, {{0, 0}}));
  EXPECT_FALSE(geo_.IsPolygonCrossLine({}, {{0, 0}, {10, 10}}));
  EXPECT_FALSE(geo_.IsPolygonCrossLine({}, {}));
}

TEST_F(ConvertLonLatPlane, BoxesThatTouchCrossKept) {
  EXPECT_TRUE(geo_.IsRectCross({0, 0}, {10, 10}, {10, 10}, {20, 20}));
  EXPECT_FALSE(geo_.IsRectCross({0, 0}, {10, 10}, {10.5, 0}, {20, 20}));
}

TEST_F(ConvertLonLatPlane, StraddlingSegmentsOnOneLineCrossEvenApartKept) {
  EXPECT_TRUE(geo_.cross({0, 0}, {10, 0}, {11, 0}, {20, 0}));
  EXPECT_TRUE(geo_.cross({0, 0}, {10, 0}, {5, -5}, {5, 5}));
  EXPECT_FALSE(geo_.cross({0, 0}, {10, 0}, {5, 1}, {5, 5}));
}

TEST_F(ConvertLonLatPlane, OverlapIsTheSharedAreaOverTheCoveredOneKept) {
  EXPECT_EQ(geo_.calculateIOU({0, 0, 10, 10}, {5, 5, 15, 15}), 25.0 / 175.0);
  EXPECT_EQ(geo_.calculateIOU({0, 0, 10, 10}, {10, 0, 20, 10}), 0.0);
  EXPECT_EQ(geo_.calculateIOU({0, 0, 10, 10}, {11, 0, 20, 10}), 0.0);
  EXPECT_EQ(geo_.calculateIOU({0, 0, 10, 10}, {0, 0, 10, 10}), 1.0);
}

TEST_F(ConvertLonLatPlane, TheRimBelongsToACircle) {
  const double distance = geo_.GetDistanceA(116.1, 39.1, 116, 39);
  EXPECT_TRUE(geo_.IsInCircleArea(116.1, 39.1, 116, 39, distance));
  EXPECT_FALSE(geo_.IsInCircleArea(116.1, 39.1, 116, 39, std::nextafter(distance, 0)));
  EXPECT_EQ(geo_.calcPointToCircleNearestDist(116.1, 39.1, 116, 39, distance), 0.0);
}

TEST_F(ConvertLonLatPlane, TheDistanceFromACircleIsNegativeInsideKept) {
  const double distance = geo_.GetDistanceA(116.1, 39.1, 116, 39);
  EXPECT_EQ(geo_.calcPointToCircleNearestDist(116.1, 39.1, 116, 39, 1000), distance - 1000);
  EXPECT_LT(geo_.calcPointToCircleNearestDist(116.1, 39.1, 116, 39, 1e6), 0);
}

TEST_F(ConvertLonLatPlane, NoNumberIsInNoCircle) {
  EXPECT_FALSE(geo_.IsInCircleArea(kNaN, 39, 116, 39, 1e9));
  EXPECT_FALSE(geo_.IsInCircleArea(116, 39, 116, 39, kNaN));
}

TEST_F(ConvertLonLatPlane, ASectorTakesBearingsAroundItsAngleWhateverItsAzimuthKept) {
  for (const double azimuth : {0.0, 90.0, 270.0}) {
    const sector_info sector{116, 39, 5000, 90, azimuth};
    EXPECT_FALSE(geo_.IsPointInSector(At(sector, 43, 1000), sector));
    EXPECT_TRUE(geo_.IsPointInSector(At(sector, 47, 1000), sector));
    EXPECT_TRUE(geo_.IsPointInSector(At(sector, 133, 1000), sector));
    EXPECT_FALSE(geo_.IsPointInSector(At(sector, 137, 1000), sector));
    EXPECT_FALSE(geo_.IsPointInSector(At(sector, 270, 1000), sector));
  }
}

TEST_F(ConvertLonLatPlane, TheRimBelongsToASector) {
  sector_info sector{116, 39, 0, 90, 0};
  const _POINTD point = At(sector, 100, 1000);
  sector.radius = geo_.GetDistanceA(point.x, point.y, sector.lon, sector.lat);
  EXPECT_TRUE(geo_.IsPointInSector(point, sector));
  sector.radius = std::nextafter(sector.radius, 0);
  EXPECT_FALSE(geo_.IsPointInSector(point, sector));
}

TEST_F(ConvertLonLatPlane, BearingsOfASectorDoNotWrapAtNorthKept) {
  const sector_info sector{116, 39, 5000, 300, 0};  // 150 ... 450
  EXPECT_TRUE(geo_.IsPointInSector(At(sector, 350, 1000), sector));
  EXPECT_FALSE(geo_.IsPointInSector(At(sector, 45, 1000), sector));
}

TEST_F(ConvertLonLatPlane, ADistanceThatIsNoNumberKeepsNobodyOutOfASectorKept) {
  EXPECT_TRUE(geo_.IsPointInSector({116.01, 38.99}, {116, 39, kNaN, 135, 0}));
}

TEST_F(ConvertLonLatPlane, TheCentreOfASectorLiesHalfWayAlongItsAxis) {
  const sector_info sector{116, 39, 5000, 90, 200};
  double lon = kUntouched;
  double lat = kUntouched;
  geo_.calcSectorCenterOfGravity(sector, lon, lat);
  const _POINTD expected = At(sector, 200, 2500);
  EXPECT_EQ(lon, expected.x);
  EXPECT_EQ(lat, expected.y);
  EXPECT_NEAR(geo_.GetDistanceB(116, 39, lon, lat), 2500, 10);
}

TEST_F(ConvertLonLatPlane, TheCentroidOfASquareIsItsMiddleAndTheResultFalseKept) {
  const Outputs outputs = Centroid("0,0;2,0;2,2;0,2");
  EXPECT_FALSE(outputs.result);
  EXPECT_EQ(outputs.lon, 1);
  EXPECT_EQ(outputs.lat, 1);
}

TEST_F(ConvertLonLatPlane, TheCentroidOfTwoVerticesIsNoNumberKept) {
  const Outputs outputs = Centroid("116.30,39.90;116.35,39.95");
  EXPECT_FALSE(outputs.result);
  EXPECT_TRUE(std::isnan(outputs.lon));
  EXPECT_TRUE(std::isnan(outputs.lat));
}

TEST_F(ConvertLonLatPlane, TextsThatAreNoPolygonLeaveTheOutputsUntouchedKept) {
  for (const char* text : {"", "1,2", "1,2;", "1,2;3", "1;2,3;4,5", "1,2;3,4;;5,6", "polygon"}) {
    const Outputs outputs = Centroid(text);
    EXPECT_FALSE(outputs.result) << text;
    EXPECT_EQ(outputs.lon, kUntouched) << text;
    EXPECT_EQ(outputs.lat, kUntouched) << text;
    EXPECT_EQ(Nearest(1, 1, text), kUntouched) << text;
  }
}

TEST_F(ConvertLonLatPlane, TheNearestDistanceIsThatOfTheNearestEdgeKept) {
  const char* const polygon = "116.30,39.90;116.35,39.90;116.35,39.95;116.30,39.95";
  const _POINTD v[] = {{116.30, 39.90}, {116.35, 39.90}, {116.35, 39.95}, {116.30, 39.95}};
  for (const _POINTD p : {_POINTD{116.32, 39.88}, _POINTD{116.37, 39.93}, _POINTD{116.33, 39.99},
                          _POINTD{116.27, 39.92}, _POINTD{116.29, 39.96}}) {
    double expected = SegmentDistance(v[0], v[1], p);
    expected = std::min(expected, SegmentDistance(v[1], v[2], p));
    expected = std::min(expected, SegmentDistance(v[2], v[3], p));
    expected = std::min(expected, SegmentDistance(v[0], v[3], p));
    EXPECT_EQ(Nearest(p.x, p.y, polygon), expected);
    EXPECT_GT(expected, 0);
  }
}

TEST_F(ConvertLonLatPlane, APointInsideHasItsDistanceFromTheNearestEdgeKept) {
  const double inside =
      Nearest(116.325, 39.91, "116.30,39.90;116.35,39.90;116.35,39.95;116.30,39.95");
  EXPECT_NEAR(inside, 0.01 * 111319.49, 20);
}

TEST_F(ConvertLonLatPlane, TwoVerticesAreMeasuredBothWays) {
  const _POINTD a{116.30, 39.90};
  const _POINTD b{116.35, 39.90};
  EXPECT_EQ(Nearest(116.31, 39.93, "116.30,39.90;116.35,39.90"),
            SegmentDistance(a, b, {116.31, 39.93}));
}

TEST_F(ConvertLonLatPlane, ADistanceThatIsNoNumberIsKeptFromTheFirstEdgeOn) {
  EXPECT_TRUE(std::isnan(Nearest(116, 39, "nan,0;1,0;1,1")));
  EXPECT_FALSE(std::isnan(Nearest(116, 39, "1,0;1,1;nan,0")));
}

TEST_F(ConvertLonLatPlane, TheHeightOfATriangleIsThatOfHeronsRule) {
  // From an independent computation of the same triangle on the sphere, flattened by its sides.
  const auto lines = PythonLines(R"(
from math import *
def dist(a, b):
    (x1, y1), (x2, y2) = (map(radians, p) for p in (a, b))
    return 6378137 * 2 * asin(sqrt(sin((y1 - y2) / 2) ** 2 + cos(y1) * cos(y2) * sin((x1 - x2) / 2) ** 2))
a, b, p = (116.30, 39.90), (116.35, 39.92), (116.33, 39.95)
ab, bp, ap = dist(a, b), dist(b, p), dist(a, p)
along = (ab * ab + ap * ap - bp * bp) / (2 * ab)
print(sqrt(ap * ap - along * along))
)",
                                 "");
  ASSERT_EQ(lines.size(), 1u);
  const double height = geo_.GeMinDistanceInfo({116.30, 39.90}, {116.35, 39.92}, {116.33, 39.95});
  EXPECT_NEAR(height, std::stod(lines[0]), 0.01);
}

TEST_F(ConvertLonLatPlane, NearlyFlatTrianglesHaveNoHeightKept) {
  EXPECT_EQ(geo_.GeMinDistanceInfo({116, 39}, {116.2, 39}, {116.1, 39.00001}), 0);
  // Sides of less than a metre: their product stays below the limit for one of lengths.
  EXPECT_EQ(geo_.GeMinDistanceInfo({0, 0}, {4e-6, 0}, {2e-6, 4e-6}), 0);
  EXPECT_GT(geo_.GeMinDistanceInfo({0, 0}, {4e-5, 0}, {2e-5, 4e-5}), 4);
}

TEST_F(ConvertLonLatPlane, TheFootOfAHeightMayLieOutsideTheSide) {
  // Far beyond b, where the nearest point of the segment would be b itself.
  const double height = geo_.GeMinDistanceInfo({0, 0}, {0.1, 0}, {0.3, 0.05});
  EXPECT_NEAR(height, 0.05 * 111319.49, 5);
}
