// Distances, bearings and moves. Whole sweeps are in GeodesyBitsTest and GeodesyOracleTest.
#include "utility/core/GreatCircle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "utility/core/DirectProblem.h"

using namespace Tarn::Core;

namespace {

constexpr double kQuarter = M_PI / 2 * 6378137;

class Anywhere {
 public:
  Position operator()(double maxLat = 89) {
    return {std::uniform_real_distribution<double>(-180, 180)(random_),
            std::uniform_real_distribution<double>(-maxLat, maxLat)(random_)};
  }

 private:
  std::mt19937_64 random_{11};
};

/// A copy of `position` a small distance away.
Position Near(Anywhere& anywhere, Position position) {
  const Position offset = anywhere();
  return {position.lon + offset.lon / 1000, position.lat + offset.lat / 1000};
}

}  // namespace

TEST(GreatCircle, KnownArcs) {
  for (const auto distance : {DistanceByCosines, DistanceByHaversine}) {
    EXPECT_NEAR(distance({0, 0}, {90, 0}), kQuarter, 1e-6);
    EXPECT_NEAR(distance({0, 0}, {0, 90}), kQuarter, 1e-6);
    EXPECT_NEAR(distance({10, 45}, {-170, 45}), kQuarter, 1e-6);
    EXPECT_NEAR(distance({0, 0}, {180, 0}), 2 * kQuarter, 1e-6);
    EXPECT_NEAR(distance({25, 90}, {-25, 90}), 0, 0.2);
  }
}

TEST(GreatCircle, TheFormulasAgreeFarFromTheirWeakPoints) {
  Anywhere anywhere;
  for (int i = 0; i < 2000; ++i) {
    const Position a = anywhere();
    const Position b = anywhere();
    const double expected = DistanceByHaversine(a, b);
    EXPECT_NEAR(DistanceByCosines(a, b), expected, 0.01);
    if (a.lat > 0 && b.lat > 0) {
      EXPECT_NEAR(DistanceByChord(a, b), expected, 0.01);
    }
  }
}

TEST(GreatCircle, TheDirectWayIsTheShortest) {
  Anywhere anywhere;
  for (int i = 0; i < 2000; ++i) {
    const Position a = anywhere();
    const Position b = anywhere();
    const Position c = anywhere();
    EXPECT_LE(DistanceByHaversine(a, c),
              DistanceByHaversine(a, b) + DistanceByHaversine(b, c) + 1e-6);
  }
}

TEST(GreatCircle, BearingsPointBackByHalfATurn) {
  Anywhere anywhere;
  for (int i = 0; i < 2000; ++i) {
    const Position a = anywhere(50);
    const Position b = Near(anywhere, a);
    const double turn = std::remainder(FlatBearing(a, b) - FlatBearing(b, a) - 180, 360);
    EXPECT_NEAR(turn, 0, 0.5);
  }
}

TEST(GreatCircle, BearingAndDistanceLeadThere) {
  Anywhere anywhere;
  for (int i = 0; i < 2000; ++i) {
    const Position a = anywhere(50);
    const Position b = Near(anywhere, a);
    const double distance = DistanceByHaversine(a, b);
    const Position end = MoveByVincenty(a, FlatBearing(a, b), distance);
    EXPECT_LT(DistanceByHaversine(end, b), 0.01 * distance + 1e-6);
  }
}

TEST(GreatCircle, NoPointOfASegmentIsFarFromIt) {
  Anywhere anywhere;
  for (int i = 0; i < 2000; ++i) {
    const Position a = anywhere(50);
    const Position b = Near(anywhere, a);
    const double length = DistanceByHaversine(a, b);
    const Position inside =
        MoveByVincenty(a, FlatBearing(a, b), length * 0.3);  // on the segment but for its bearing
    EXPECT_LT(NearestOnSegment(a, b, inside).distance, 0.01 * length + 5);
  }
}

TEST(GreatCircle, NeitherEndOfASegmentIsNearerThanItsNearestPoint) {
  Anywhere anywhere;
  for (int i = 0; i < 2000; ++i) {
    const Position a = anywhere(50);
    const Position b = Near(anywhere, a);
    const Position p = Near(anywhere, a);
    const double nearest = NearestOnSegment(a, b, p).distance;
    EXPECT_LE(nearest, DistanceByCosines(a, p) + 1e-3);
    EXPECT_LE(nearest, DistanceByCosines(b, p) + 1e-3);
    EXPECT_GE(nearest, 0);
  }
}

TEST(GreatCircle, ARangeCombinesGroundAndRise) {
  const LineOfSight level = SightFrom({116, 39}, 50, {116.1, 39}, 50);
  EXPECT_EQ(level.elevation, 0);
  EXPECT_EQ(level.range, DistanceByCosines({116, 39}, {116.1, 39}));
  const LineOfSight down = SightFrom({116, 39}, 50, {116.1, 39}, -level.range + 50);
  EXPECT_NEAR(down.elevation, -45, 1e-12);
}

TEST(DirectProblem, EastAndWestMirrorEachOther) {
  Anywhere anywhere;
  for (int i = 0; i < 500; ++i) {
    const Position start = anywhere(70);
    for (const auto move : {MoveByGauss, MoveByVincenty, MoveInPlane, MoveOnSphere}) {
      const Position east = move(start, 63, 20000);
      const Position west = move(start, -63, 20000);
      EXPECT_NEAR(east.lon - start.lon, start.lon - west.lon, 1e-11);
      EXPECT_NEAR(east.lat, west.lat, 1e-11);
    }
  }
}

TEST(DirectProblem, NorthAndSouthMirrorEachOther) {
  Anywhere anywhere;
  for (int i = 0; i < 500; ++i) {
    const Position start = anywhere(70);
    for (const auto move : {MoveByGauss, MoveByVincenty, MoveInPlane, MoveOnSphere}) {
      const Position north = move(start, 63, 20000);
      const Position south = move({start.lon, -start.lat}, 117, 20000);
      EXPECT_NEAR(north.lon, south.lon, 1e-11);
      EXPECT_NEAR(north.lat, -south.lat, 1e-11);
    }
  }
}

TEST(DirectProblem, AWholeMeridianLeadsBack) {
  // Twice the way from pole to pole.
  const Position end = MoveByVincenty({20, 10}, 0, 4 * 10001965.7293);
  EXPECT_NEAR(end.lon, 20, 1e-7);
  EXPECT_NEAR(end.lat, 10, 1e-7);
}

TEST(DirectProblem, GaussIsHeldBackBeyondThePoleKept) {
  // 11 km to the pole and 89 km beyond it: far round in longitude, but the divisor is 0.001 at
  // least.
  EXPECT_GT(MoveByVincenty({0, 89.9}, 10, 100000).lon, 160);
  const double held = std::atan(std::sin(ToRadians(10)) * std::tan(100000 / 6378245.0) / 0.001);
  EXPECT_NEAR(MoveByGauss({0, 89.9}, 10, 100000).lon, ToDegrees(held), 0.2);
}
