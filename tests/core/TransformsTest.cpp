// Angles and coordinate forms. Whole sweeps are in GeodesyBitsTest and GeodesyOracleTest.
#include "utility/core/Transforms.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>

using namespace Tarn::Core;

namespace {

uint64_t Bits(double value) {
  return std::bit_cast<uint64_t>(value);
}

}  // namespace

TEST(Angles, TwoAtOnceAreWhatEachIsAlone) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 20000; ++i) {
    // Any bits: ordinary numbers, tiny ones, infinities, NaN.
    const double first = std::bit_cast<double>(random());
    const double second = std::uniform_real_distribution<double>(-360, 360)(random);
    const TwoAngles both = ToRadians(first, second);
    ASSERT_EQ(Bits(both.second), Bits(ToRadians(second)));
    if (!std::isnan(first)) {
      ASSERT_EQ(Bits(both.first), Bits(ToRadians(first)));
    }
  }
}

TEST(Angles, SplitAnglesJoinAgain) {
  for (double degrees = -400; degrees < 400; degrees += 0.777) {
    const DegreesMinutesSeconds parts = SplitRadians(ToRadians(degrees));
    EXPECT_NEAR(JoinDegrees(parts), degrees, 1e-12);
    EXPECT_GE(parts.minutes, 0);
    EXPECT_LT(parts.minutes, 60);
    EXPECT_GE(parts.seconds, 0);
    EXPECT_LE(parts.seconds, 60);
    EXPECT_EQ(parts.degrees, std::floor(parts.degrees));
  }
}

TEST(Transforms, TheShiftIsBelowAKilometre) {
  for (double lat = 1; lat < 55; lat += 1.7) {
    for (double lon = 73; lon < 137; lon += 2.3) {
      const Position shifted = ToShiftedGrid({lon, lat});
      EXPECT_LT(std::fabs(shifted.lat - lat), 0.01) << lon << " " << lat;
      EXPECT_LT(std::fabs(shifted.lon - lon), 0.02) << lon << " " << lat;
      EXPECT_FALSE(shifted.lat == lat && shifted.lon == lon);
    }
  }
}

TEST(Transforms, TheShiftIsContinuous) {
  for (double lon = 73; lon < 137; lon += 0.01) {
    const Position here = ToShiftedGrid({lon, 39.9});
    const Position there = ToShiftedGrid({lon + 1e-7, 39.9});
    // The root of |x| is steep where x is 0.
    EXPECT_NEAR(there.lon - here.lon, 1e-7, 2e-8) << lon;
    EXPECT_NEAR(there.lat, here.lat, 2e-8) << lon;
  }
}

TEST(Transforms, EveryZoneHasItsOwnMeridian) {
  for (int zone = -30; zone < 30; ++zone) {
    const double meridian = zone * 6 + 3.0;
    EXPECT_EQ(ProjectGaussKrueger({meridian, 40}, 6).easting, 500000);
    EXPECT_GT(ProjectGaussKrueger({meridian + 2.9, 40}, 6).easting, 500000);
    EXPECT_LT(ProjectGaussKrueger({meridian - 2.9, 40}, 6).easting, 500000);
  }
}

TEST(Transforms, ZonesOfAnyWidthLieAroundTheirMultiples) {
  for (const int width : {1, 2, 3, 4, 5, 7, 12, -3}) {
    EXPECT_EQ(ProjectGaussKrueger({width * 3.0, 40}, width).easting, 500000) << width;
    EXPECT_GT(ProjectGaussKrueger({width * 3.0 + 0.1, 40}, width).easting, 500000) << width;
  }
  EXPECT_EQ(ProjectGaussKrueger({0, 40}, 0).easting, 500000);  // every longitude in one zone
}

TEST(Transforms, TheNorthingGrowsWithTheLatitude) {
  double last = ProjectGaussKrueger({118, -90}, 6).northing;
  for (double lat = -89; lat <= 89; lat += 1) {
    const double northing = ProjectGaussKrueger({118, lat}, 6).northing;
    EXPECT_NEAR(northing - last, 111e3, 2e3) << lat;
    last = northing;
  }
}

TEST(Transforms, TheInverseIsInverseInTheNorth) {
  for (double lat = 0.5; lat < 84; lat += 3.1) {
    for (double lon = 114.05; lon < 120; lon += 0.55) {
      const GridPosition grid = ProjectGaussKrueger({lon, lat}, 6);
      const Position back = UnprojectGaussKrueger(grid, ToRadians(117));
      // The iteration stops early beyond 45 degrees: some decimetres.
      EXPECT_NEAR(back.lat, lat, 2.5e-6) << lon << " " << lat;
      EXPECT_NEAR(back.lon, lon, 2.5e-6 / std::cos(ToRadians(lat))) << lon << " " << lat;
    }
  }
}

TEST(Transforms, CartesianCoordinatesLieOnTheEllipsoid) {
  constexpr double a = 6378137.0;
  constexpr double b = 6356752.314245179;
  for (double lat = -90; lat <= 90; lat += 2.5) {
    for (double lon = -180; lon <= 180; lon += 15) {
      const Cartesian c = ToCartesian({{lon, lat}, 0});
      EXPECT_NEAR(Square(c.x / a) + Square(c.y / a) + Square(c.z / b), 1, 1e-14);
    }
  }
}

TEST(Transforms, HeightsAddUpAlongTheVertical) {
  for (double lat = -85; lat <= 85; lat += 10) {
    const Cartesian low = ToCartesian({{50, lat}, 0});
    const Cartesian high = ToCartesian({{50, lat}, 5000});
    const double apart =
        std::sqrt(Square(high.x - low.x) + Square(high.y - low.y) + Square(high.z - low.z));
    EXPECT_NEAR(apart, 5000, 1e-8);
  }
}

TEST(Transforms, GeodeticCoordinatesAreInverseWithinAMillimetre) {
  for (double lat = -89; lat < 90; lat += 4.3) {
    for (const double height : {-5000.0, 0.0, 1e5, 2e7}) {
      const GeodeticPosition back = ToGeodetic(ToCartesian({{-100, lat}, height}));
      EXPECT_NEAR(back.position.lat, lat, 1e-8);
      EXPECT_NEAR(back.position.lon, -100, 1e-12);
      // The height divides by the sine of the latitude.
      EXPECT_NEAR(back.height, height, std::fabs(1e-3 / std::sin(ToRadians(lat))));
    }
  }
}
