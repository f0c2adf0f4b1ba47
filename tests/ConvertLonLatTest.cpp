// Coordinate forms as hosts call them. GeodesyBitsTest and GeodesyOracleTest compare whole sweeps;
// here stand the edges and what is odd on purpose.
#include <Tarn/Generic/ConvertLonLat.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/Support.h"

using namespace tarn_test;
using namespace Tarn::Generic;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kHuge = std::numeric_limits<double>::max();
constexpr double kTiny = std::numeric_limits<double>::denorm_min();

struct LonLat {
  double lon = 0;
  double lat = 0;
};

LonLat Shifted(double lat, double lon) {
  CConvertLonLat convert;
  LonLat out;
  convert.Transform(lat, lon, out.lat, out.lon);
  return out;
}

struct Grid {
  double x = 0;
  double y = 0;
};

Grid Projected(double lat, double lon, int zoneWidth, bool flag = false) {
  CConvertLonLat convert;
  Grid grid;
  convert.Wgs84ToXY(lat, lon, zoneWidth, flag, grid.x, grid.y);
  return grid;
}

LonLat Unprojected(double x, double y, double centerLon) {
  CConvertLonLat convert;
  LonLat out;
  convert.XYToWgs84(x, y, centerLon, out.lon, out.lat);
  return out;
}

struct Geodetic {
  double L = 0;
  double B = 0;
  double H = 0;
};

Geodetic FromXYZ(double X, double Y, double Z) {
  CConvertLonLat convert;
  Geodetic out;
  convert.XYZ2LBH(X, Y, Z, &out.L, &out.B, &out.H);
  return out;
}

std::vector<unsigned char> Packed(long long value, int len) {
  std::vector<unsigned char> bytes(static_cast<size_t>(len));
  CConvertLonLat().DectoBCD(value, bytes.data(), len);
  return bytes;
}

}  // namespace

// Hosts construct and pass these by value.
static_assert(sizeof(Tarn::tagPOINT) == 8 && sizeof(Tarn::tagRECT) == 16);
static_assert(sizeof(_POINTD) == 16 && sizeof(sector_info) == 40);
static_assert(sizeof(window_info) == 16 && sizeof(angle_info) == 24 && sizeof(point_info) == 8);
static_assert(sizeof(MeasuredValue) == 48);
static_assert(sizeof(CConvertLonLat) == 8 * (5 + 6 * 25) + 2 * 48);
static_assert(offsetof(Tarn::tagRECT, bottom) == 12 && offsetof(sector_info, azimuth) == 32);
static_assert(offsetof(MeasuredValue, speed) == 24 && offsetof(MeasuredValue, course) == 40);
static_assert(offsetof(window_info, ratio) == 8 && offsetof(angle_info, fov) == 16);
static_assert(std::is_trivially_copyable_v<Tarn::tagPOINT> && std::is_aggregate_v<Tarn::tagRECT>);
static_assert(std::is_trivially_copyable_v<MeasuredValue> && std::is_aggregate_v<sector_info>);

TEST(ConvertLonLat, AnObjectStartsZeroedWhateverWasInItsStorage) {
  alignas(CConvertLonLat) std::array<unsigned char, sizeof(CConvertLonLat)> storage{};
  storage.fill(0xff);
  auto* convert = new (storage.data()) CConvertLonLat;
  const std::array<unsigned char, sizeof(CConvertLonLat)> zeros{};
  EXPECT_EQ(memcmp(storage.data(), zeros.data(), zeros.size()), 0);
  convert->~CConvertLonLat();
}

// --- Angles and numbers -----------------------------------------------------------------------

TEST(ConvertLonLat, DegreesAndRadiansAreInverse) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.rad(180), 3.141592653589793);
  EXPECT_EQ(convert.deg(3.141592653589793), 180.0);
  EXPECT_EQ(convert.rad(0), 0);
  for (double degrees = -720; degrees <= 720; degrees += 0.37)
    EXPECT_NEAR(convert.deg(convert.rad(degrees)), degrees, 2e-13);
}

TEST(ConvertLonLat, HalvesAreRoundedAwayFromZero) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.round(2.5), 3);
  EXPECT_EQ(convert.round(-2.5), -3);
  EXPECT_EQ(convert.round(2.4999), 2);
  EXPECT_EQ(convert.round(-2.4999), -2);
  EXPECT_EQ(convert.round(1e300), 1e300);
}

TEST(ConvertLonLat, ZeroIsRoundedToMinusZeroKept) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.round(0), 0);
  EXPECT_TRUE(std::signbit(convert.round(0)));
  EXPECT_FALSE(std::signbit(convert.round(0.1)));
}

TEST(ConvertLonLat, RoundingAddsAHalfFirstKept) {
  // The largest double below a half: the sum rounds to 1.
  EXPECT_EQ(CConvertLonLat().round(0.49999999999999994), 1);
}

TEST(ConvertLonLat, RoundingKnowsOddNumbers) {
  CConvertLonLat convert;
  EXPECT_TRUE(std::isnan(convert.round(kNaN)));
  EXPECT_EQ(convert.round(kInfinity), kInfinity);
  EXPECT_EQ(convert.round(-kInfinity), -kInfinity);
}

TEST(ConvertLonLat, RadiansSplitIntoDegreesMinutesSeconds) {
  CConvertLonLat convert;
  double d = 0;
  double m = 0;
  double s = 0;
  convert.radTodms(convert.rad(116.391), d, m, s);
  EXPECT_EQ(d, 116);
  EXPECT_EQ(m, 23);
  EXPECT_NEAR(s, 27.6, 1e-9);
  EXPECT_NEAR(convert.dmsTodec(d, m, s), 116.391, 1e-13);
}

TEST(ConvertLonLat, OnlyTheDegreesOfANegativeAngleAreNegativeKept) {
  CConvertLonLat convert;
  double d = 0;
  double m = 0;
  double s = 0;
  convert.radTodms(convert.rad(-0.5), d, m, s);
  EXPECT_EQ(d, -1);
  EXPECT_EQ(m, 30);
  EXPECT_NEAR(s, 0, 1e-9);
  EXPECT_NEAR(convert.dmsTodec(d, m, s), -0.5, 1e-12);
}

TEST(ConvertLonLat, DegreesMinutesSecondsAreSummed) {
  EXPECT_EQ(CConvertLonLat().dmsTodec(10, 30, 36), 10 + 30.0 / 60 + 36.0 / 3600);
  EXPECT_EQ(CConvertLonLat().dmsTodec(-10, 30, 0), -9.5);
}

TEST(ConvertLonLat, ReceiverReadingsBecomeDegrees) {
  CConvertLonLat convert;
  EXPECT_NEAR(convert.dminTodegree(11623.46), 116.391, 1e-12);
  EXPECT_EQ(convert.dminTodegree(3930), 39.5);
  EXPECT_EQ(convert.dminTodegree(-3930), -39.5);
  EXPECT_EQ(convert.dminTodegree(59.9), 59.9 / 60);
  EXPECT_EQ(convert.dminTodegree(0), 0);
}

TEST(ConvertLonLat, ReadingsThatAreNoNumbersOrTooLargeAreDefined) {
  CConvertLonLat convert;
  EXPECT_TRUE(std::isnan(convert.dminTodegree(kNaN)));
  EXPECT_EQ(convert.dminTodegree(kInfinity), kInfinity);
  EXPECT_EQ(convert.dminTodegree(-kInfinity), -kInfinity);
  EXPECT_TRUE(std::isfinite(convert.dminTodegree(1e30)));
}

TEST(ConvertLonLat, PowersAreWholeProducts) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.power(100, 0), 1);
  EXPECT_EQ(convert.power(100, 1), 100);
  EXPECT_EQ(convert.power(100, 9), 1000000000000000000);
  EXPECT_EQ(convert.power(-3, 3), -27);
  EXPECT_EQ(convert.power(0, 5), 0);
  EXPECT_EQ(convert.power(2, 62), 1LL << 62);
  EXPECT_EQ(convert.power(7, 20), 79792266297612001);
}

TEST(ConvertLonLat, PowersOfNegativeExponentsAreOneKept) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.power(5, -1), 1);
  EXPECT_EQ(convert.power(5, std::numeric_limits<int>::min()), 1);
}

TEST(ConvertLonLat, PowersWrapAt64Bits) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.power(2, 63), std::numeric_limits<long long>::min());
  EXPECT_EQ(convert.power(2, 64), 0);
  EXPECT_EQ(convert.power(10, 20), 7766279631452241920);  // 10^20 - 5 * 2^64
  EXPECT_EQ(convert.power(-1, std::numeric_limits<int>::max()), -1);
}

TEST(ConvertLonLat, AVastExponentTakesNoTime) {
  const Stopwatch watch;
  EXPECT_EQ(CConvertLonLat().power(2, std::numeric_limits<int>::max()), 0);
  EXPECT_LT(watch.ElapsedMs(), AtMost(1000));
}

// --- Packed BCD -------------------------------------------------------------------------------

TEST(ConvertLonLat, DigitsArePackedMostSignificantFirst) {
  EXPECT_EQ(Packed(123456, 3), (std::vector<unsigned char>{0x12, 0x34, 0x56}));
  const unsigned char bytes[] = {0x12, 0x34, 0x56};
  EXPECT_EQ(CConvertLonLat().BCDtoDec(bytes, 3), 123456);
}

TEST(ConvertLonLat, PackedDigitsReturn) {
  for (const long long value : {0LL, 7LL, 99LL, 100LL, 1234567890LL, 999999999999999999LL,
                                std::numeric_limits<long long>::max()}) {
    const auto bytes = Packed(value, 10);
    EXPECT_EQ(CConvertLonLat().BCDtoDec(bytes.data(), 10), value);
  }
}

TEST(ConvertLonLat, ShortValuesAreFilledWithZerosAndLongOnesCutKept) {
  EXPECT_EQ(Packed(5, 3), (std::vector<unsigned char>{0, 0, 5}));
  EXPECT_EQ(Packed(123456, 2), (std::vector<unsigned char>{0x34, 0x56}));
}

TEST(ConvertLonLat, NibblesAboveNineCountWhatTheyHoldKept) {
  const unsigned char bytes[] = {0xff, 0x0a};
  EXPECT_EQ(CConvertLonLat().BCDtoDec(bytes, 2), (15 * 10 + 15) * 100 + 10);
}

TEST(ConvertLonLat, NegativeValuesLeaveOddNibblesKept) {
  // -56: -5 * 16 + (-6 & 15).
  EXPECT_EQ(Packed(-56, 1), (std::vector<unsigned char>{0xba}));
  EXPECT_EQ(Packed(-1, 2), (std::vector<unsigned char>{0x00, 0x0f}));
  // ...08, of which the 8 is (-8 & 15).
  EXPECT_EQ(Packed(std::numeric_limits<long long>::min(), 1), (std::vector<unsigned char>{0x08}));
}

TEST(ConvertLonLat, PackedDigitsOfBadLengthsAreNothing) {
  CConvertLonLat convert;
  unsigned char byte = 0x42;
  for (const int len : {0, -1, std::numeric_limits<int>::min()}) {
    EXPECT_EQ(convert.BCDtoDec(&byte, len), 0);
    convert.DectoBCD(77, &byte, len);
    EXPECT_EQ(byte, 0x42);
  }
  EXPECT_EQ(convert.BCDtoDec(nullptr, 3), 0);
  convert.DectoBCD(77, nullptr, 3);
}

TEST(ConvertLonLat, LongDigitStringsWrapAt64Bits) {
  const std::vector<unsigned char> nines(40, 0x99);
  unsigned long long expected = 0;
  for (int i = 0; i < 40; ++i)
    expected = expected * 100 + 99;
  EXPECT_EQ(CConvertLonLat().BCDtoDec(nines.data(), 40), static_cast<long long>(expected));
}

TEST(ConvertLonLat, FloatsAreTurnedByteByByte) {
  CConvertLonLat convert;
  const float turned = convert.BLEndianFloat(1.0f);
  const unsigned char expected[] = {0x3f, 0x80, 0x00, 0x00};
  EXPECT_EQ(memcmp(&turned, expected, 4), 0);
  for (const float value : {0.0f, -2.5f, 3.4e38f, 1e-45f})
    EXPECT_EQ(convert.BLEndianFloat(convert.BLEndianFloat(value)), value);
}

// --- Shifted grid -----------------------------------------------------------------------------

TEST(ConvertLonLat, TheBoundsOfTheShiftedGridAreInsideKept) {
  CConvertLonLat convert;
  for (const LonLat p : {LonLat{72.004, 30}, {137.8347, 30}, {100, 0.8293}, {100, 55.8271}})
    EXPECT_FALSE(convert.OutOfChina(p.lat, p.lon)) << p.lon << " " << p.lat;
  for (const LonLat p : {LonLat{72.0039, 30}, {137.8348, 30}, {100, 0.8292}, {100, 55.8272}})
    EXPECT_TRUE(convert.OutOfChina(p.lat, p.lon)) << p.lon << " " << p.lat;
}

TEST(ConvertLonLat, PositionsOnTheNorthernBoundAreShiftedAndBeyondItNot) {
  const LonLat on = Shifted(55.8271, 100);
  EXPECT_NE(on.lat, 55.8271);
  EXPECT_NE(on.lon, 100);
  const LonLat beyond = Shifted(55.8272, 100);
  EXPECT_EQ(beyond.lat, 55.8272);
  EXPECT_EQ(beyond.lon, 100);
}

TEST(ConvertLonLat, TheShiftIsTheTermsOfBothDirectionsInDegrees) {
  CConvertLonLat convert;
  const double term = convert.TransformLat(116.3 - 105, 39.9 - 35);
  const double degree = 111e3;
  EXPECT_NEAR((Shifted(39.9, 116.3).lat - 39.9) * degree, term, 0.01 * std::fabs(term));
  EXPECT_EQ(convert.TransformLat(0, 0), -100);
  EXPECT_EQ(convert.TransformLon(0, 0), 300);
}

TEST(ConvertLonLat, PositionsThatAreNoNumbersAreNotOutsideAndShiftToNothing) {
  EXPECT_FALSE(CConvertLonLat().OutOfChina(kNaN, kNaN));
  EXPECT_TRUE(std::isnan(Shifted(kNaN, 100).lat));
  EXPECT_EQ(Shifted(kInfinity, 100).lat, kInfinity);
  EXPECT_EQ(Shifted(30, -kInfinity).lon, -kInfinity);
}

TEST(ConvertLonLat, ResultsMayReplaceTheirArguments) {
  CConvertLonLat convert;
  double lat = 39.9;
  double lon = 116.3;
  convert.Transform(lat, lon, lat, lon);
  EXPECT_EQ(lat, Shifted(39.9, 116.3).lat);
  EXPECT_EQ(lon, Shifted(39.9, 116.3).lon);
}

// --- Gauss-Krueger ----------------------------------------------------------------------------

TEST(ConvertLonLat, CentralMeridiansAreThoseOfTheZoneKept) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.getCenterLon(116.3, 6), convert.rad(117));
  EXPECT_EQ(convert.getCenterLon(116.3, 3), convert.rad(117));
  EXPECT_EQ(convert.getCenterLon(115.3, 3), convert.rad(114));
  EXPECT_EQ(convert.getCenterLon(115.5, 3), convert.rad(117));
  EXPECT_EQ(convert.getCenterLon(116.3, 0), convert.rad(117));
  EXPECT_EQ(convert.getCenterLon(120, 6), convert.rad(123));
}

TEST(ConvertLonLat, LongitudesAreTruncatedForTheZoneOfSixDegreesKept) {
  CConvertLonLat convert;
  EXPECT_EQ(convert.getCenterLon(-1.0, 6), convert.rad(3));
  EXPECT_EQ(convert.getCenterLon(-5.9, 6), convert.rad(3));
  EXPECT_EQ(convert.getCenterLon(-6, 6), convert.rad(-3));
}

TEST(ConvertLonLat, ZonesOfOddLongitudesAreDefined) {
  CConvertLonLat convert;
  for (const double lon : {kNaN, kInfinity, -kInfinity, kHuge, 2147483647.0, -2147483648.0}) {
    EXPECT_TRUE(std::isfinite(convert.getCenterLon(lon, 6))) << lon;
    Projected(39, lon, 6);
    Projected(39, lon, 3);
    Projected(39, lon, 0);
    Projected(39, lon, std::numeric_limits<int>::min());
    Projected(39, lon, std::numeric_limits<int>::max());
  }
}

TEST(ConvertLonLat, TheCentralMeridianHasTheEasting500000) {
  for (const double lat : {-89.0, -10.0, 0.0, 39.9, 89.0}) {
    for (const double lon : {3.0, 9.0, 117.0, 177.0, -3.0})
      EXPECT_EQ(Projected(lat, lon, 6).y, 500000) << lat << " " << lon;
    for (const double lon : {0.0, 3.0, 114.0, -117.0})
      EXPECT_EQ(Projected(lat, lon, 3).y, 500000) << lat << " " << lon;
  }
  EXPECT_EQ(Projected(0, 117, 6).x, 0);
}

TEST(ConvertLonLat, TheFlagOfTheProjectionMeansNothingKept) {
  for (const double lon : {114.1, 116.3, 117.0}) {
    const Grid without = Projected(39.9, lon, 6, false);
    const Grid with = Projected(39.9, lon, 6, true);
    EXPECT_EQ(without.x, with.x);
    EXPECT_EQ(without.y, with.y);
  }
}

TEST(ConvertLonLat, TheProjectionIsSymmetric) {
  for (double l = 0.1; l < 3; l += 0.3) {
    const Grid east = Projected(39.9, 117 + l, 6);
    const Grid west = Projected(39.9, 117 - l, 6);
    const Grid south = Projected(-39.9, 117 + l, 6);
    EXPECT_NEAR(east.y - 500000, 500000 - west.y, 1e-7);
    EXPECT_NEAR(east.x, west.x, 1e-7);
    EXPECT_EQ(south.x, -east.x);
    EXPECT_EQ(south.y, east.y);
  }
}

TEST(ConvertLonLat, NorthernPositionsReturnFromTheProjection) {
  CConvertLonLat convert;
  for (double lat = 1; lat < 85; lat += 7.3) {
    for (double lon = 114.2; lon < 120; lon += 0.9) {
      const Grid grid = Projected(lat, lon, 6);
      const LonLat back = Unprojected(grid.x, grid.y, convert.getCenterLon(lon, 6));
      EXPECT_NEAR(back.lon, lon, 3e-6);
      EXPECT_NEAR(back.lat, lat, 3e-6);
    }
  }
}

TEST(ConvertLonLat, TheFootpointOfASouthernNorthingIsNotIteratedKept) {
  // On the meridian the latitude is the footpoint itself: x / a0, which treats the Earth as a
  // sphere.
  const double a0 = 6367449.145772;
  for (const double x : {-1.0, -1e6, -4e6, -9e6})
    EXPECT_NEAR(Unprojected(x, 500000, 0).lat, x / a0 * 180 / M_PI, 1e-9) << x;
  EXPECT_NEAR(Unprojected(6, 500000, 0).lat, 6 / a0 * 180 / M_PI, 1e-9);
  EXPECT_GT(std::fabs(Unprojected(4e6, 500000, 0).lat - 4e6 / a0 * 180 / M_PI), 0.1);
}

TEST(ConvertLonLat, TheInverseProjectionEndsForEveryNorthing) {
  for (const double x : {kNaN, kInfinity, -kInfinity, kHuge, -kHuge, 1e9, 1e16, 3e17, 1e100, kTiny})
    Unprojected(x, 500000, 0);
  EXPECT_TRUE(std::isnan(Unprojected(kNaN, 500000, 0).lat));
  EXPECT_TRUE(std::isnan(Unprojected(kInfinity, 500000, 0).lat));
}

TEST(ConvertLonLat, PolesCanBeProjected) {
  const Grid north = Projected(90, 118, 6);
  EXPECT_NEAR(north.x, 10001965.7293, 1e-3);
  EXPECT_NEAR(north.y, 500000, 1e-6);
  EXPECT_EQ(Projected(-90, 118, 6).x, -north.x);
}

// --- Cartesian --------------------------------------------------------------------------------

TEST(ConvertLonLat, TheEndsOfTheAxesAreThoseOfTheEllipsoid) {
  CConvertLonLat convert;
  double X = 0;
  double Y = 0;
  double Z = 0;
  convert.LBH2XYZ(0, 0, 0, &X, &Y, &Z);
  EXPECT_EQ(X, 6378137.0);
  EXPECT_EQ(Y, 0);
  EXPECT_EQ(Z, 0);
  convert.LBH2XYZ(90, 0, 100, &X, &Y, &Z);
  EXPECT_NEAR(X, 0, 1e-9);
  EXPECT_EQ(Y, 6378237.0);
  convert.LBH2XYZ(0, 90, 0, &X, &Y, &Z);
  EXPECT_NEAR(Z, 6356752.314245, 1e-5);
}

TEST(ConvertLonLat, CartesianCoordinatesReturnToWithinTheTwoEccentricitiesKept) {
  CConvertLonLat convert;
  double worst = 0;
  for (double L = -179; L < 180; L += 17) {
    for (double B = -85; B < 90; B += 10) {
      double X = 0;
      double Y = 0;
      double Z = 0;
      convert.LBH2XYZ(L, B, 1234, &X, &Y, &Z);
      const Geodetic back = FromXYZ(X, Y, Z);
      EXPECT_NEAR(back.L, L, 1e-12);
      EXPECT_NEAR(back.B, B, 1e-8);
      worst = std::max(worst, std::fabs(back.H - 1234));
    }
  }
  EXPECT_GT(worst, 1e-5);  // never exact: the eccentricities differ
  EXPECT_LT(worst, 1e-3);
}

TEST(ConvertLonLat, AllQuadrantsHaveTheirLongitude) {
  EXPECT_NEAR(FromXYZ(1e6, 1e6, 5e6).L, 45, 1e-12);
  EXPECT_NEAR(FromXYZ(-1e6, 1e6, 5e6).L, 135, 1e-12);
  EXPECT_NEAR(FromXYZ(-1e6, -1e6, 5e6).L, -135, 1e-12);
  EXPECT_NEAR(FromXYZ(1e6, -1e6, 5e6).L, -45, 1e-12);
}

TEST(ConvertLonLat, TheDateLineIsWestKept) {
  // -0 / positive is -0, which counts as 0 or more: 180 is taken off.
  EXPECT_EQ(FromXYZ(-6378137, 0, 1).L, -180);
  EXPECT_EQ(FromXYZ(-6378137, -0.0, 1).L, -180);
}

TEST(ConvertLonLat, ThePlaneOfTheEquatorHasNoHeightKept) {
  const Geodetic out = FromXYZ(6378137, 0, 0);
  EXPECT_EQ(out.L, 0);
  EXPECT_EQ(out.B, 0);
  EXPECT_TRUE(std::isnan(out.H));
}

TEST(ConvertLonLat, TheAxisHasTheLongitude90) {
  EXPECT_EQ(FromXYZ(0, 5e6, 4e6).L, 90);
  EXPECT_EQ(FromXYZ(0, -5e6, 4e6).L, -90);
  const Geodetic pole = FromXYZ(0, 0, 6356852.314);
  EXPECT_TRUE(std::isnan(pole.L));  // 0 / 0
  EXPECT_EQ(pole.B, 90);
  EXPECT_NEAR(pole.H, 100, 0.001);
}

TEST(ConvertLonLat, AnIterationOf225855StepsIsNotCut) {
  // Where the distance from the axis is a e^2, a step grows by next to nothing.
  const Stopwatch watch;
  EXPECT_NEAR(FromXYZ(42697.382916, 0, 0.000482681).B, 0.2172, 0.0001);
  for (const double fromAxis : {42697.6, 42697.672, 42698.0, 40000.0, 1.0})
    FromXYZ(fromAxis, 0, 1e-3);
  EXPECT_LT(watch.ElapsedMs(), AtMost(20000));
}

TEST(ConvertLonLat, OddCartesianCoordinatesAreDefined) {
  EXPECT_TRUE(std::isnan(FromXYZ(0, 0, 0).B));
  for (const double bad : {kNaN, kInfinity, -kInfinity, kHuge, -kHuge, kTiny}) {
    FromXYZ(bad, 1, 1);
    FromXYZ(1, bad, 1);
    FromXYZ(1, 1, bad);
    FromXYZ(bad, bad, bad);
  }
  EXPECT_TRUE(std::isnan(FromXYZ(kNaN, 1, 1).L));
}

TEST(ConvertLonLat, NullPlacesForCoordinatesAreSkipped) {
  CConvertLonLat convert;
  double value = 0;
  convert.LBH2XYZ(116, 39, 0, nullptr, nullptr, &value);
  EXPECT_NEAR(value, 3992317, 1);
  convert.XYZ2LBH(1e6, 1e6, 6e6, &value, nullptr, nullptr);
  EXPECT_NEAR(value, 45, 1e-9);
  convert.M_GetAngleXYZ(0, 0, 0, 1, 1, 1, nullptr, nullptr);
}

TEST(ConvertLonLat, ThePlanePositionIsThatOfTheCartesianCoordinates) {
  CConvertLonLat convert;
  for (double lat = -90; lat <= 90; lat += 15) {
    double X = 0;
    double Y = 0;
    double Z = 0;
    convert.LBH2XYZ(116, lat, 0, &X, &Y, &Z);
    double x = 0;
    double y = 0;
    convert.TransRect(116, lat, x, y);
    EXPECT_NEAR(x, X, 1e-6);
    EXPECT_NEAR(y, Y, 1e-6);
  }
}
