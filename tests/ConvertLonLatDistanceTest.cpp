// Distances, bearings, moves, segments and optics as hosts call them; see ConvertLonLatTest.cpp.
#include <Tarn/Generic/ConvertLonLat.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/Support.h"

using namespace tarn_test;
using namespace Tarn::Generic;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kHuge = std::numeric_limits<double>::max();

struct LonLat {
  double lon = 0;
  double lat = 0;
};

using Move = void (CConvertLonLat::*)(double, double, double, double, double&, double&);
constexpr Move kMoves[] = {&CConvertLonLat::CalculateAimLonLat,
                           &CConvertLonLat::CalculateAimLonLatB,
                           &CConvertLonLat::CalculateAimLonLatC};
using Distance = double (CConvertLonLat::*)(double, double, double, double);
constexpr Distance kDistances[] = {&CConvertLonLat::GetDistanceA, &CConvertLonLat::GetDistanceB,
                                   &CConvertLonLat::GetDistanceC};

LonLat Moved(Move move, LonLat start, double azimuth, double dist) {
  CConvertLonLat convert;
  LonLat end;
  (convert.*move)(start.lon, start.lat, azimuth, dist, end.lon, end.lat);
  return end;
}

}  // namespace

// --- Distances and bearings -------------------------------------------------------------------

TEST(ConvertLonLat, ADegreeOfLongitudeAtLatitude39) {
  CConvertLonLat convert;
  EXPECT_NEAR(convert.GetDistanceB(116, 39, 117, 39), 86.5e3, 50);
  EXPECT_NEAR(convert.GetDistanceA(116, 39, 117, 39), convert.GetDistanceB(116, 39, 117, 39), 1e-4);
  EXPECT_NEAR(convert.GetDistanceC(116, 39, 117, 39), convert.GetDistanceB(116, 39, 117, 39), 1e-4);
}

TEST(ConvertLonLat, DistancesAreSymmetric) {
  CConvertLonLat convert;
  for (const Distance distance : kDistances) {
    for (double lon = -170; lon < 180; lon += 33) {
      EXPECT_NEAR((convert.*distance)(lon, 20, -lon + 5, 70),
                  (convert.*distance)(-lon + 5, 70, lon, 20), 1e-6);
    }
  }
}

TEST(ConvertLonLat, DistancesCrossTheDateLine) {
  CConvertLonLat convert;
  for (const Distance distance : kDistances) {
    EXPECT_NEAR((convert.*distance)(179.5, 10, -179.5, 10), (convert.*distance)(-0.5, 10, 0.5, 10),
                1e-3);
  }
}

TEST(ConvertLonLat, FromPoleToPoleIsHalfACircumference) {
  CConvertLonLat convert;
  EXPECT_NEAR(convert.GetDistanceA(0, 90, 77, -90), M_PI * 6378137, 0.2);
  EXPECT_NEAR(convert.GetDistanceB(0, 90, 77, -90), M_PI * 6378137, 0.2);
}

TEST(ConvertLonLat, IdenticalPointsAreApartByNothingOrNoNumber) {
  CConvertLonLat convert;
  int notANumber = 0;
  for (int i = 0; i < 2000; ++i) {
    const double lon = -180 + i * 0.18;
    const double lat = -89 + i * 0.089;
    EXPECT_EQ(convert.GetDistanceB(lon, lat, lon, lat), 0);
    EXPECT_EQ(convert.GetDistanceC(lon, lat, lon, lat), 0);
    const double byCosines = convert.GetDistanceA(lon, lat, lon, lat);
    if (std::isnan(byCosines)) {
      ++notANumber;
    } else {
      EXPECT_LT(byCosines, 0.3);
    }
  }
  EXPECT_GT(notANumber, 0);  // not clamped: see the next case
}

TEST(ConvertLonLat, TheArgumentOfTheArcCosineIsNotClampedKept) {
  // sin^2 + cos^2 of some latitudes rounds to just above 1.
  CConvertLonLat convert;
  double lat = 1;
  while (std::pow(std::sin(convert.rad(lat)), 2) + std::pow(std::cos(convert.rad(lat)), 2) <= 1)
    lat += 0.1;
  ASSERT_LT(lat, 90);
  EXPECT_TRUE(std::isnan(convert.GetDistanceA(116, lat, 116, lat)));
}

TEST(ConvertLonLat, TheChordTakesTheSouthForAnotherPlaceKept) {
  CConvertLonLat convert;
  const double quarter = M_PI / 2 * 6378137;
  // Latitude 0 stays 0, which is the pole's colatitude; the pole is 0, too.
  EXPECT_NEAR(convert.GetDistanceC(0, 0, 90, 0), 0, 1e-6);
  EXPECT_NEAR(convert.GetDistanceC(0, 0, 0, 90), 0, 1e-6);
  // -90 ends as -pi/2 and 0 as 0.
  EXPECT_NEAR(convert.GetDistanceC(0, -90, 0, 0), quarter, 1e-6);
  // -30 ends as -30 from the pole: as far from +60, at colatitude 30, as 60 degrees.
  EXPECT_NEAR(convert.GetDistanceC(0, -30, 0, 60), quarter * 2 / 3, 1e-6);
}

TEST(ConvertLonLat, BearingsOfTheFourDirectionsKept) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.GetAnglex(0, 0, 0, 1), 0);
  EXPECT_EQ(convert.GetAnglex(0, 0, 1, 0), 180);
  EXPECT_EQ(convert.GetAnglex(0, 0, 0, -1), 180);
  EXPECT_EQ(convert.GetAnglex(0, 0, -1, 0), 360);
  EXPECT_EQ(convert.GetAnglex(0, 0, 0, 0), 0);
}

TEST(ConvertLonLat, BearingsOfTheFourQuadrants) {
  CConvertLonLat convert;
  const double northEast = convert.GetAnglex(0, 0, 1, 1);
  EXPECT_GT(northEast, 44);
  EXPECT_LT(northEast, 46);
  EXPECT_EQ(convert.GetAnglex(0, 0, 1, -1), 180 - northEast);
  EXPECT_EQ(convert.GetAnglex(0, 0, -1, -1), 180 + northEast);
  EXPECT_EQ(convert.GetAnglex(0, 0, -1, 1), 360 - northEast);
}

TEST(ConvertLonLat, BearingsDoNotCrossTheDateLineKept) {
  // The longitudes are subtracted as they are: the target is taken to lie in the far west.
  const double bearing = CConvertLonLat().GetAnglex(179.9, 0, -179.9, 0.1);
  EXPECT_GT(bearing, 270);
}

TEST(ConvertLonLat, ElevationAndRangeFollowFromHeightAndDistance) {
  CConvertLonLat convert;
  double azimuth = 0;
  double elevation = 0;
  double range = 0;
  convert.GetAngle(116, 39, 100, 116.01, 39.01, 1100, azimuth, elevation, range);
  const double ground = convert.GetDistanceA(116, 39, 116.01, 39.01);
  EXPECT_EQ(azimuth, convert.GetAnglex(116, 39, 116.01, 39.01));
  EXPECT_NEAR(std::tan(convert.rad(elevation)) * ground, 1000, 1e-6);
  EXPECT_NEAR(range, std::hypot(ground, 1000), 1e-6);
  convert.GetAngle(116, 39, 1100, 116.01, 39.01, 100, azimuth, elevation, range);
  EXPECT_LT(elevation, 0);
}

TEST(ConvertLonLat, StraightUpIs90Degrees) {
  CConvertLonLat convert;
  double azimuth = 1;
  double elevation = 0;
  double range = 0;
  convert.GetAngle(116, 0, 0, 116, 0, 500, azimuth, elevation, range);
  EXPECT_EQ(azimuth, 0);
  EXPECT_EQ(elevation, 90);
  EXPECT_EQ(range, 500);
}

TEST(ConvertLonLat, AnglesOfALineInSpaceAreRadiansKept) {
  CConvertLonLat convert;
  double horiz = 0;
  double vert = 0;
  convert.M_GetAngleXYZ(1, 1, 1, 2, 2, 1 + std::sqrt(2), &horiz, &vert);
  EXPECT_NEAR(horiz, M_PI / 4, 1e-15);
  EXPECT_NEAR(vert, M_PI / 4, 1e-15);
  convert.M_GetAngleXYZ(1, 1, 1, 0, 1, 1, &horiz, &vert);
  EXPECT_NEAR(horiz, -M_PI / 2, 1e-15);
  EXPECT_EQ(vert, 0);
  convert.M_GetAngleXYZ(1, 1, 1, 1, 1, 1, &horiz, &vert);
  EXPECT_TRUE(std::isnan(horiz));
  EXPECT_TRUE(std::isnan(vert));
}

// --- Moves ------------------------------------------------------------------------------------

TEST(ConvertLonLat, MovingByNothingStays) {
  CConvertLonLat convert;
  for (const Move move : kMoves) {
    const LonLat end = Moved(move, {116.3, 39.9}, 77, 0);
    EXPECT_NEAR(end.lon, 116.3, 1e-12);
    EXPECT_NEAR(end.lat, 39.9, 1e-12);
  }
  LonLat end;
  convert.ConvertRangeAzimtoLonlat(116.3, 39.9, 0, 77, end.lon, end.lat);
  EXPECT_NEAR(end.lon, 116.3, 1e-12);
  EXPECT_NEAR(end.lat, 39.9, 1e-12);
}

TEST(ConvertLonLat, MovingThereAndBackReturns) {
  CConvertLonLat convert;
  for (double azimuth = 0; azimuth < 360; azimuth += 30) {
    const LonLat there = Moved(&CConvertLonLat::CalculateAimLonLatB, {10, 0}, azimuth, 1000);
    const LonLat back = Moved(&CConvertLonLat::CalculateAimLonLatB, there, azimuth + 180, 1000);
    EXPECT_NEAR(back.lon, 10, 1e-8);
    EXPECT_NEAR(back.lat, 0, 1e-8);
  }
}

TEST(ConvertLonLat, AllMovesAgreeOverShortDistancesKept) {
  CConvertLonLat convert;
  for (double azimuth = 0; azimuth < 360; azimuth += 15) {
    const LonLat exact = Moved(&CConvertLonLat::CalculateAimLonLatB, {116, 39}, azimuth, 1000);
    for (const Move move : kMoves) {
      const LonLat end = Moved(move, {116, 39}, azimuth, 1000);
      EXPECT_NEAR(end.lon, exact.lon, 1e-4);
      EXPECT_NEAR(end.lat, exact.lat, 1e-4);
    }
    LonLat end;
    convert.ConvertRangeAzimtoLonlat(116, 39, 1000, azimuth, end.lon, end.lat);
    EXPECT_NEAR(end.lon, exact.lon, 1e-4);
    EXPECT_NEAR(end.lat, exact.lat, 1e-4);
  }
}

TEST(ConvertLonLat, TheDistanceMovedIsTheDistanceBetween) {
  CConvertLonLat convert;
  for (double azimuth = 5; azimuth < 360; azimuth += 40) {
    LonLat end;
    convert.ConvertRangeAzimtoLonlat(20, 30, 500000, azimuth, end.lon, end.lat);
    EXPECT_NEAR(convert.GetDistanceB(20, 30, end.lon, end.lat) * 6378245 / 6378137, 500000, 1e-4);
  }
}

TEST(ConvertLonLat, TheLongitudeOfAMoveIsNotWrappedKept) {
  EXPECT_GT(Moved(&CConvertLonLat::CalculateAimLonLatB, {179.9, 0}, 90, 100000).lon, 180);
  EXPECT_LT(Moved(&CConvertLonLat::CalculateAimLonLatB, {-179.9, 0}, 270, 100000).lon, -180);
}

TEST(ConvertLonLat, TheSphereReachesNoFurtherThan90DegreesOfLongitudeKept) {
  CConvertLonLat convert;
  LonLat end;
  convert.ConvertRangeAzimtoLonlat(0, 0, M_PI * 6378245 * 0.75, 90, end.lon, end.lat);
  EXPECT_NEAR(end.lon, 45, 1e-9);  // 135 would be right
}

TEST(ConvertLonLat, MovesStartAtPoles) {
  for (const Move move :
       {&CConvertLonLat::CalculateAimLonLat, &CConvertLonLat::CalculateAimLonLatB})
    EXPECT_NEAR(Moved(move, {0, 90}, 180, 111000).lat, 89, 0.01);
  EXPECT_NEAR(Moved(&CConvertLonLat::CalculateAimLonLatB, {0, -90}, 0, 111000).lat, -89, 0.01);
}

TEST(ConvertLonLat, DistancesWithoutEndEndAfterAThousandSteps) {
  const Stopwatch watch;
  for (const double dist : {1e13, 1e14, 3e15, 1e16, 1e20, 1e100, kHuge, -1e16, kInfinity, kNaN}) {
    for (double azimuth = 0; azimuth < 360; azimuth += 7)
      Moved(&CConvertLonLat::CalculateAimLonLatB, {116, 39}, azimuth, dist);
  }
  EXPECT_LT(watch.ElapsedMs(), AtMost(10000));
}

TEST(ConvertLonLat, MovesByOddNumbersAreDefined) {
  CConvertLonLat convert;
  for (const double bad : {kNaN, kInfinity, -kInfinity}) {
    for (const Move move : kMoves) {
      EXPECT_TRUE(std::isnan(Moved(move, {116, 39}, bad, 1000).lat));
      const LonLat end = Moved(move, {116, bad}, 30, 1000);
      EXPECT_FALSE(std::isfinite(end.lat));
      EXPECT_FALSE(std::isfinite(Moved(move, {bad, 39}, 30, 1000).lon));
    }
    LonLat end;
    convert.ConvertRangeAzimtoLonlat(116, 39, bad, 30, end.lon, end.lat);
    EXPECT_TRUE(std::isnan(end.lat));
  }
}

// --- Segments ---------------------------------------------------------------------------------

TEST(ConvertLonLat, BeyondItsEndsASegmentIsNearestThere) {
  CConvertLonLat convert;
  LonLat nearest;
  double distance =
      convert.GetNearestDistance(116, 39, 117, 39, 117.5, 39, nearest.lon, nearest.lat);
  EXPECT_EQ(nearest.lon, 117);
  EXPECT_EQ(nearest.lat, 39);
  EXPECT_EQ(distance, convert.GetDistanceA(117, 39, 117.5, 39));
  distance = convert.GetNearestDistance(116, 39, 117, 39, 115.5, 39, nearest.lon, nearest.lat);
  EXPECT_EQ(nearest.lon, 116);
  EXPECT_EQ(distance, convert.GetDistanceA(116, 39, 115.5, 39));
}

TEST(ConvertLonLat, PointsBesideASegmentAreNearestToTheirFoot) {
  CConvertLonLat convert;
  LonLat nearest;
  const double distance =
      convert.GetNearestDistance(116, 39, 116, 39.2, 116.05, 39.1, nearest.lon, nearest.lat);
  EXPECT_NEAR(distance, convert.GetDistanceB(116, 39.1, 116.05, 39.1), 1);
  EXPECT_NEAR(nearest.lon, 116, 1e-4);
  EXPECT_NEAR(nearest.lat, 39.1, 1e-3);
}

TEST(ConvertLonLat, PointsOfADetourBelowFourMetresLieOnTheSegmentKept) {
  CConvertLonLat convert;
  LonLat nearest;
  EXPECT_EQ(
      convert.GetNearestDistance(116, 39, 116, 39.2, 116.00001, 39.1, nearest.lon, nearest.lat), 0);
  EXPECT_EQ(nearest.lon, 116.00001);
  EXPECT_EQ(nearest.lat, 39.1);
}

TEST(ConvertLonLat, TheFootOfASegmentDueEastIsSoughtInTheSouthKept) {
  // GetAnglex calls due east 180.
  CConvertLonLat convert;
  LonLat nearest;
  convert.GetNearestDistance(116, 39, 116.2, 39, 116.1, 39.05, nearest.lon, nearest.lat);
  EXPECT_NEAR(nearest.lon, 116, 1e-9);
  EXPECT_LT(nearest.lat, 39);
}

TEST(ConvertLonLat, PlaneDistancesFromASegment) {
  CConvertLonLat convert;
  EXPECT_NEAR(convert.PointLine_Disp(5, 3, 0, 0, 10, 0), 3, 1e-12);
  EXPECT_NEAR(convert.PointLine_Disp(2, -3, 0, 0, 10, 0), 3, 1e-12);
  EXPECT_NEAR(convert.PointLine_Disp(13, 4, 0, 0, 10, 0), 5, 1e-12);
  EXPECT_NEAR(convert.PointLine_Disp(-3, 4, 0, 0, 10, 0), 5, 1e-12);
  EXPECT_NEAR(convert.PointLine_Disp(3, 8, 0, 0, 0, 10), 3, 1e-12);  // nearer to the second end
}

TEST(ConvertLonLat, EndsAndSegmentsWithoutLengthHaveTheirDistance) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.PointLine_Disp(0, 0, 0, 0, 10, 5), 0);
  EXPECT_EQ(convert.PointLine_Disp(10, 5, 0, 0, 10, 5), 0);
  EXPECT_EQ(convert.PointLine_Disp(3, 4, 0, 0, 0, 0), 5);
}

TEST(ConvertLonLat, NearTheFirstEndASlantedSegmentHasAnotherDirectionKept) {
  // The direction is cos(t), not acos(t): for a vertical segment cos(0), one radian.
  const double distance = CConvertLonLat().PointLine_Disp(3, 1, 0, 0, 0, 10);
  const double direction = std::acos(3 / std::sqrt(10));
  EXPECT_NEAR(distance, std::sin(std::fabs(direction - 1)) * std::sqrt(10), 1e-12);
}

TEST(ConvertLonLat, SegmentsOfOddNumbersAreDefined) {
  CConvertLonLat convert;
  LonLat nearest;
  for (const double bad : {kNaN, kInfinity, -kInfinity, kHuge}) {
    convert.PointLine_Disp(bad, 0, 1, 1, 2, 2);
    convert.PointLine_Disp(0, 0, bad, bad, 2, 2);
    convert.PointLine_Disp(bad, bad, bad, bad, bad, bad);
    convert.GetNearestDistance(bad, 39, 117, 39, 116.5, 39, nearest.lon, nearest.lat);
    convert.GetNearestDistance(116, 39, 117, bad, 116.5, 39, nearest.lon, nearest.lat);
  }
  EXPECT_TRUE(std::isnan(
      convert.GetNearestDistance(kNaN, 39, 117, 39, 116.5, 39, nearest.lon, nearest.lat)));
}

// --- Optics -----------------------------------------------------------------------------------

TEST(ConvertLonLat, SizeDistanceAndAngleFit) {
  CConvertLonLat convert;
  const double distance = convert.calcuteDis(10, 0.06, 20);
  EXPECT_NEAR(distance, 5 / std::tan(convert.rad(0.6)), 1e-9);
  EXPECT_NEAR(convert.calcView(distance, 10, 20), 0.06, 1e-12);
}

TEST(ConvertLonLat, NothingSeenHasNoDistanceKept) {
  EXPECT_EQ(CConvertLonLat().calcuteDis(10, 0.06, 0), 0);
  EXPECT_EQ(CConvertLonLat().calcuteDis(kNaN, kNaN, -0.0), 0);
  EXPECT_EQ(CConvertLonLat().calcuteDis(10, 0, 5), kInfinity);
  EXPECT_EQ(CConvertLonLat().calcView(100, 10, 0), kInfinity);
}

TEST(ConvertLonLat, TheAimDistanceIsCut) {
  CConvertLonLat convert;
  // 10 / rad(2 * 0.5 / 1) = 572.95...
  EXPECT_EQ(convert.GetAimDistance(10, 1, 2, 0.5), 572u);
  EXPECT_EQ(convert.GetAimDistance(0, 1, 2, 0.5), 0u);
}

TEST(ConvertLonLat, TheAimDistanceHasTheLower32BitsKept) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.GetAimDistance(-10, 1, 2, 0.5), 0u - 572u);
  const double large = 5000000000.0;  // 2^32 + 705032704
  EXPECT_NEAR(convert.GetAimDistance(large * convert.rad(1), 1, 1, 1), 705032704.0, 1);
}

TEST(ConvertLonLat, AimDistancesThatAreNoNumbersAreZero) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.GetAimDistance(10, 1, 0, 0.5), 0u);  // infinite
  EXPECT_EQ(convert.GetAimDistance(0, 1, 0, 0.5), 0u);   // 0 / 0
  EXPECT_EQ(convert.GetAimDistance(10, 0, 1, 0.5), 0u);  // an infinite angle
  EXPECT_EQ(convert.GetAimDistance(kNaN, 1, 1, 1), 0u);
  EXPECT_EQ(convert.GetAimDistance(kHuge, 1, 1, 1), 0u);
  EXPECT_EQ(convert.GetAimDistance(-kInfinity, 1, 1, 1), 0u);
}
