// Positions against programs of other origin: GeographicLib's GeodSolve, TransverseMercatorProj and
// CartConvert, and PROJ's cs2cs. Each case sweeps some thousand points, tells the largest
// difference (scripts/measure-geodesy makes a table of these lines) and holds it between two
// bounds: a wrong constant shows whether it makes a formula worse or better.
#include <Tarn/Generic/ConvertLonLat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/GeodesySweep.h"
#include "tests/support/Support.h"

using namespace tarn_test;
using Tarn::Generic::CConvertLonLat;

namespace {

constexpr double kMetresPerDegree = 111319.49079327358;  // on a great circle of radius 6378137

/// The numbers that `command` prints for each line of numbers.
Rows Ask(const std::string& command, const Rows& questions) {
  const TempDir dir;
  std::ostringstream lines;
  lines.precision(17);
  for (const Row& row : questions) {
    for (const double number : row)
      lines << number << ' ';
    lines << '\n';
  }
  WriteFile(dir.File("in"), lines.str());
  std::istringstream answer(RunCommand(command + " < " + dir.File("in") + " 2>&1"));
  Rows rows;
  for (std::string line; std::getline(answer, line);) {
    std::istringstream numbers(line);
    rows.emplace_back();
    for (double number = 0; numbers >> number;)
      rows.back().push_back(number);
  }
  EXPECT_EQ(rows.size(), questions.size()) << command;
  rows.resize(questions.size());
  return rows;
}

/// The distance between two close positions, metres.
double Apart(double lon1, double lat1, double lon2, double lat2) {
  const double east = std::remainder(lon1 - lon2, 360) * std::cos((lat1 + lat2) / 2 * M_PI / 180);
  return std::hypot(east, lat1 - lat2) * kMetresPerDegree;
}

using Move = void (CConvertLonLat::*)(double, double, double, double, double&, double&);

/// The largest distance between where `move` arrives and where GeodSolve arrives on an ellipsoid,
/// for random starts up to a latitude, bearings and distances up to `reach`.
double WorstMove(Move move, const std::string& ellipsoid, double reach, double maxLat = 80) {
  const Rows moves = Sweep(3000, {{-180, 180}, {-maxLat, maxLat}, {0, 360}, {1, reach}});
  Rows questions;
  for (const Row& m : moves)
    questions.push_back({m[1], m[0], m[2], m[3]});
  const Rows answers = Ask("GeodSolve -p 9 -e " + ellipsoid, questions);
  CConvertLonLat convert;
  double worst = 0;
  for (size_t i = 0; i < moves.size(); ++i) {
    double lon = 0;
    double lat = 0;
    (convert.*move)(moves[i][0], moves[i][1], moves[i][2], moves[i][3], lon, lat);
    worst = std::max(worst, Apart(lon, lat, answers[i].at(1), answers[i].at(0)));
  }
  return worst;
}

using Distance = double (CConvertLonLat::*)(double, double, double, double);

struct DistanceErrors {
  double metres = 0;
  double relative = 0;
};

DistanceErrors WorstDistance(Distance distance, const std::string& ellipsoid, const Rows& pairs) {
  Rows questions;
  for (const Row& p : pairs)
    questions.push_back({p[1], p[0], p[3], p[2]});
  const Rows answers = Ask("GeodSolve -i -p 9 -e " + ellipsoid, questions);
  CConvertLonLat convert;
  DistanceErrors worst;
  for (size_t i = 0; i < pairs.size(); ++i) {
    const Row& p = pairs[i];
    const double exact = answers[i].at(2);
    const double error = std::fabs((convert.*distance)(p[0], p[1], p[2], p[3]) - exact);
    worst.metres = std::max(worst.metres, error);
    worst.relative = std::max(worst.relative, error / exact);
  }
  return worst;
}

Rows FarPairs(double lowLat = -89) {
  return Sweep(4000, {{-180, 180}, {lowLat, 89}, {-180, 180}, {lowLat, 89}});
}

/// Pairs some 10 m to 1.5 km apart.
Rows NearPairs() {
  Rows pairs = Sweep(4000, {{-179, 179}, {-60, 60}, {0.0001, 0.01}, {0.0001, 0.01}});
  for (Row& p : pairs)
    p = {p[0], p[1], p[0] + p[2], p[1] + p[3]};
  return pairs;
}

const std::string kSphere = "6378137 0";
const std::string kWgs84 = "6378137 1/298.257223563";
const std::string kKrassovsky = "6378245 1/298.3";

}  // namespace

TEST(GeodesyOracle, TheLawOfCosinesIsThatOfItsSphere) {
  const auto far = WorstDistance(&CConvertLonLat::GetDistanceA, kSphere, FarPairs());
  ExpectMeasured("GetDistanceA, any distance, against its sphere", far.metres, "m", 0, 3e-7);
  const auto near = WorstDistance(&CConvertLonLat::GetDistanceA, kSphere, NearPairs());
  ExpectMeasured("GetDistanceA, 10 m to 1.5 km, against its sphere", near.metres, "m", 1e-5, 1e-3);
  const auto earth = WorstDistance(&CConvertLonLat::GetDistanceA, kWgs84, FarPairs());
  ExpectMeasured("GetDistanceA, any distance, against WGS-84", 100 * earth.relative, "%", 0.65,
                 0.68);
}

TEST(GeodesyOracle, TheHaversineIsThatOfItsSphere) {
  const auto far = WorstDistance(&CConvertLonLat::GetDistanceB, kSphere, FarPairs());
  ExpectMeasured("GetDistanceB, any distance, against its sphere", far.metres, "m", 0, 1e-7);
  const auto near = WorstDistance(&CConvertLonLat::GetDistanceB, kSphere, NearPairs());
  ExpectMeasured("GetDistanceB, 10 m to 1.5 km, against its sphere", near.metres, "m", 0, 1e-8);
  const auto earth = WorstDistance(&CConvertLonLat::GetDistanceB, kWgs84, FarPairs());
  ExpectMeasured("GetDistanceB, any distance, against WGS-84", 100 * earth.relative, "%", 0.65,
                 0.68);
}

TEST(GeodesyOracle, TheChordIsThatOfItsSphereInTheNorthOnlyKept) {
  const auto north = WorstDistance(&CConvertLonLat::GetDistanceC, kSphere, FarPairs(0.001));
  ExpectMeasured("GetDistanceC, north of the equator, against its sphere", north.metres, "m", 0,
                 6e-7);
  const auto anywhere = WorstDistance(&CConvertLonLat::GetDistanceC, kSphere, FarPairs());
  ExpectMeasured("GetDistanceC, anywhere, against its sphere", anywhere.metres / 1000, "km", 18000,
                 20000);
}

TEST(GeodesyOracle, TheFlatBearingIsNearTheGeodesicOneForShortDistances) {
  for (const auto& [name, reach, expected] :
       {std::tuple{"1 km", 0.01, 0.192}, std::tuple{"10 km", 0.1, 0.199},
        std::tuple{"100 km", 1., 0.765}}) {
    Rows pairs = Sweep(3000, {{-178, 178}, {-60, 60}, {-reach, reach}, {-reach, reach}});
    Rows questions;
    for (Row& p : pairs) {
      p = {p[0], p[1], p[0] + p[2], p[1] + p[3]};
      questions.push_back({p[1], p[0], p[3], p[2]});
    }
    const Rows answers = Ask("GeodSolve -i -p 9 -e " + kWgs84, questions);
    CConvertLonLat convert;
    double worst = 0;
    for (size_t i = 0; i < pairs.size(); ++i) {
      const double bearing = convert.GetAnglex(pairs[i][0], pairs[i][1], pairs[i][2], pairs[i][3]);
      worst = std::max(worst, std::fabs(std::remainder(bearing - answers[i].at(0), 360)));
    }
    ExpectMeasured(std::string("GetAnglex, about ") + name + ", up to latitude 60", worst,
                   "degrees", 0.9 * expected, 1.1 * expected);
  }
}

TEST(GeodesyOracle, ElevationAndRangeLeaveOutTheCurvature) {
  // Targets about 1 to 10 km from 116 E 39 N, in the local frame of CartConvert.
  Rows targets = Sweep(3000, {{-0.08, 0.08}, {-0.06, 0.06}, {0, 3000}});
  for (Row& t : targets)
    t = {116 + t[0] + std::copysign(0.01, t[0]), 39 + t[1], t[2]};
  const Rows local = Ask("CartConvert -w -l 116 39 500 -p 9", targets);
  CConvertLonLat convert;
  double worstElevation = 0;
  double worstRange = 0;
  for (size_t i = 0; i < targets.size(); ++i) {
    const Row& t = targets[i];
    const double east = local[i].at(0);
    const double north = local[i].at(1);
    const double up = local[i].at(2);
    double azimuth = 0;
    double elevation = 0;
    double range = 0;
    convert.GetAngle(116, 39, 500, t[0], t[1], t[2], azimuth, elevation, range);
    const double exact = convert.deg(std::atan2(up, std::hypot(east, north)));
    worstElevation = std::max(worstElevation, std::fabs(elevation - exact));
    worstRange = std::max(worstRange, std::fabs(range - std::hypot(east, north, up)));
  }
  ExpectMeasured("GetAngle, elevation, 1 to 10 km", worstElevation, "degrees", 0.055, 0.066);
  ExpectMeasured("GetAngle, range, 1 to 10 km", worstRange, "m", 16, 18);
}

TEST(GeodesyOracle, TheNearestPointOfASegmentIsNearTheTrueOne) {
  constexpr int kSegments = 25;
  constexpr int kSamples = 2000;
  // Up to 20 km long and wide; the points are beside the segments.
  const Rows sets =
      Sweep(kSegments, {{-170, 170}, {-60, 60}, {0.03, 0.1}, {0.03, 0.1}, {-0.05, 0.05}});
  Rows ends;
  for (const Row& r : sets)
    ends.push_back({r[1], r[0], r[1] + r[3], r[0] + r[2]});
  const Rows lines = Ask("GeodSolve -i -p 9 -e " + kSphere, ends);
  Rows walks;
  for (size_t i = 0; i < kSegments; ++i) {
    for (int k = 0; k <= kSamples; ++k)
      walks.push_back({ends[i][0], ends[i][1], lines[i].at(0), lines[i].at(2) * k / kSamples});
  }
  const Rows samples = Ask("GeodSolve -p 9 -e " + kSphere, walks);
  CConvertLonLat convert;
  double worst = 0;
  double worstFoot = 0;
  for (size_t i = 0; i < kSegments; ++i) {
    const double pointLon = sets[i][0] + sets[i][2] / 2 + sets[i][4];
    const double pointLat = sets[i][1] + sets[i][3] / 2 - sets[i][4];
    double lon = 0;
    double lat = 0;
    const double distance = convert.GetNearestDistance(ends[i][1], ends[i][0], ends[i][3],
                                                       ends[i][2], pointLon, pointLat, lon, lat);
    double best = 1e9;
    double foot = 0;
    for (size_t k = i * (kSamples + 1); k < (i + 1) * (kSamples + 1); ++k) {
      const Row& sample = samples[k];
      // The haversine is exact on this sphere, as its own case shows.
      const double away = convert.GetDistanceB(pointLon, pointLat, sample.at(1), sample.at(0));
      if (away < best) {
        best = away;
        foot = Apart(lon, lat, sample.at(1), sample.at(0));
      }
    }
    worst = std::max(worst, std::fabs(distance - best));
    worstFoot = std::max(worstFoot, foot);
  }
  ExpectMeasured("GetNearestDistance, segments of 3 to 16 km, against their sphere", worst, "m", 0,
                 0.005);
  ExpectMeasured("GetNearestDistance, the nearest point", worstFoot, "m", 38, 48);
}

TEST(GeodesyOracle, GaussMovesNearTheGeodesicOfKrassovskyKept) {
  const Move gauss = &CConvertLonLat::CalculateAimLonLat;
  ExpectMeasured("CalculateAimLonLat, up to 1 km, against Krassovsky",
                 WorstMove(gauss, kKrassovsky, 1e3, 60), "m", 1e-6, 1.6e-6);
  ExpectMeasured("CalculateAimLonLat, up to 100 km, against Krassovsky",
                 WorstMove(gauss, kKrassovsky, 1e5, 60), "m", 0.007, 0.008);
  ExpectMeasured("CalculateAimLonLat, up to 1000 km, against Krassovsky",
                 WorstMove(gauss, kKrassovsky, 1e6, 60), "m", 7, 8);
}

TEST(GeodesyOracle, VincentyMovesAlongTheGeodesicOfWgs84) {
  const Move vincenty = &CConvertLonLat::CalculateAimLonLatB;
  ExpectMeasured("CalculateAimLonLatB, up to 1000 km, against WGS-84",
                 WorstMove(vincenty, kWgs84, 1e6), "m", 7e-6, 9e-6);
  ExpectMeasured("CalculateAimLonLatB, up to 20000 km, against WGS-84",
                 WorstMove(vincenty, kWgs84, 2e7), "m", 1.2e-4, 1.5e-4);
}

TEST(GeodesyOracle, ThePlaneMovesNearTheGeodesicForShortDistances) {
  const Move plane = &CConvertLonLat::CalculateAimLonLatC;
  ExpectMeasured("CalculateAimLonLatC, up to 1 km, against WGS-84",
                 WorstMove(plane, kWgs84, 1e3, 60), "m", 5.3, 5.7);
  ExpectMeasured("CalculateAimLonLatC, up to 100 km, against WGS-84",
                 WorstMove(plane, kWgs84, 1e5, 60), "m", 1500, 1600);
  // Its own sphere, 111199 m per degree, on which only flatness is left.
  ExpectMeasured("CalculateAimLonLatC, up to 1 km, against its sphere",
                 WorstMove(plane, "6371233.3735 0", 1e3, 60), "m", 0.14, 0.16);
}

TEST(GeodesyOracle, TheSphereMovesAlongItsGreatCircles) {
  const Rows moves = Sweep(4000, {{-180, 180}, {-80, 80}, {0, 360}, {1, 1e6}});
  Rows questions;
  for (const Row& m : moves)
    questions.push_back({m[1], m[0], m[2], m[3]});
  const Rows sphere = Ask("GeodSolve -p 9 -e 6378245 0", questions);
  const Rows earth = Ask("GeodSolve -p 9 -e " + kWgs84, questions);
  CConvertLonLat convert;
  double worst = 0;
  double worstOnEarth = 0;
  for (size_t i = 0; i < moves.size(); ++i) {
    double lon = 0;
    double lat = 0;
    convert.ConvertRangeAzimtoLonlat(moves[i][0], moves[i][1], moves[i][3], moves[i][2], lon, lat);
    worst = std::max(worst, Apart(lon, lat, sphere[i].at(1), sphere[i].at(0)));
    worstOnEarth = std::max(worstOnEarth, Apart(lon, lat, earth[i].at(1), earth[i].at(0)));
  }
  ExpectMeasured("ConvertRangeAzimtoLonlat, up to 1000 km, against its sphere", worst, "m", 0,
                 5e-8);
  ExpectMeasured("ConvertRangeAzimtoLonlat, up to 1000 km, against WGS-84", worstOnEarth, "m", 6500,
                 6800);
}

namespace {

struct GridErrors {
  double northing = 0;
  double easting = 0;
};

/// Forward projection within `halfWidth` of the central meridian 117.
GridErrors WorstProjection(int zoneWidth, double halfWidth) {
  const Rows positions = Sweep(4000, {{117 - halfWidth, 117 + halfWidth}, {-84, 84}});
  const Rows answers = Ask("TransverseMercatorProj -w -k 1 -l 117 -p 9", positions);
  CConvertLonLat convert;
  GridErrors worst;
  for (size_t i = 0; i < positions.size(); ++i) {
    double x = 0;
    double y = 0;
    convert.Wgs84ToXY(positions[i][1], positions[i][0], zoneWidth, false, x, y);
    worst.northing = std::max(worst.northing, std::fabs(x - answers[i].at(1)));
    worst.easting = std::max(worst.easting, std::fabs(y - 500000 - answers[i].at(0)));
  }
  return worst;
}

/// The inverse projection of points up to `reach` metres east or west, in metres on the ground.
double WorstInverse(double reach, double lowNorthing, double highNorthing) {
  const Rows grid = Sweep(4000, {{-reach, reach}, {lowNorthing, highNorthing}});
  const Rows answers = Ask("TransverseMercatorProj -r -w -k 1 -l 117 -p 9", grid);
  CConvertLonLat convert;
  double worst = 0;
  for (size_t i = 0; i < grid.size(); ++i) {
    double lon = 0;
    double lat = 0;
    convert.XYToWgs84(grid[i][1], 500000 + grid[i][0], convert.rad(117), lon, lat);
    worst = std::max(worst, Apart(lon, lat, answers[i].at(0), answers[i].at(1)));
  }
  return worst;
}

}  // namespace

TEST(GeodesyOracle, TheProjectionIsExactToMillimetresKept) {
  const GridErrors wide = WorstProjection(6, 3);
  ExpectMeasured("Wgs84ToXY, zones of 6 degrees, northing", wide.northing, "m", 6e-5, 7e-5);
  ExpectMeasured("Wgs84ToXY, zones of 6 degrees, easting", wide.easting, "m", 3.6e-3, 4e-3);
  const GridErrors narrow = WorstProjection(3, 1.5);
  ExpectMeasured("Wgs84ToXY, zones of 3 degrees, northing", narrow.northing, "m", 6e-5, 7e-5);
  ExpectMeasured("Wgs84ToXY, zones of 3 degrees, easting", narrow.easting, "m", 1.1e-4, 1.3e-4);
}

TEST(GeodesyOracle, TheInverseProjectionIsExactInTheNorthOnlyKept) {
  ExpectMeasured("XYToWgs84, up to 150 km from the meridian, north to 40 degrees",
                 WorstInverse(150e3, 0, 4.43e6), "m", 0.029, 0.035);
  ExpectMeasured("XYToWgs84, up to 150 km from the meridian, north", WorstInverse(150e3, 0, 9e6),
                 "m", 0.17, 0.19);
  ExpectMeasured("XYToWgs84, south of the equator", WorstInverse(150e3, -9e6, -1) / 1000, "km",
                 15.5, 16.5);
}

TEST(GeodesyOracle, ProjAgreesWithTheProjection) {
  const Rows positions = Sweep(2000, {{114, 120}, {-80, 80}});
  const Rows answers =
      Ask("cs2cs -f %.9f +proj=longlat +ellps=WGS84 +to +proj=tmerc +lon_0=117 +x_0=500000 "
          "+ellps=WGS84",
          positions);
  CConvertLonLat convert;
  double worst = 0;
  for (size_t i = 0; i < positions.size(); ++i) {
    double x = 0;
    double y = 0;
    convert.Wgs84ToXY(positions[i][1], positions[i][0], 6, false, x, y);
    worst = std::max({worst, std::fabs(y - answers[i].at(0)), std::fabs(x - answers[i].at(1))});
  }
  ExpectMeasured("Wgs84ToXY, zones of 6 degrees, against PROJ", worst, "m", 3.6e-3, 4e-3);
}

TEST(GeodesyOracle, CartesianCoordinatesAreExact) {
  const Rows positions = Sweep(4000, {{-180, 180}, {-90, 90}, {-10000, 1e6}});
  const Rows answers = Ask("CartConvert -w -p 9", positions);
  CConvertLonLat convert;
  double worst = 0;
  for (size_t i = 0; i < positions.size(); ++i) {
    double X = 0;
    double Y = 0;
    double Z = 0;
    convert.LBH2XYZ(positions[i][0], positions[i][1], positions[i][2], &X, &Y, &Z);
    worst = std::max({worst, std::fabs(X - answers[i].at(0)), std::fabs(Y - answers[i].at(1)),
                      std::fabs(Z - answers[i].at(2))});
  }
  ExpectMeasured("LBH2XYZ", worst, "m", 0, 1e-8);
}

TEST(GeodesyOracle, GeodeticCoordinatesAreExactToTheStepOfTheIteration) {
  Rows questions;
  for (const Row& p : Sweep(4000, {{-180, 180}, {-89, 89}, {-10000, 1e6}}))
    questions.push_back(p);
  const Rows cartesian = Ask("CartConvert -w -p 9", questions);
  const Rows exact = Ask("CartConvert -r -w -p 9", cartesian);
  CConvertLonLat convert;
  double worst = 0;
  double worstHeight = 0;
  for (size_t i = 0; i < cartesian.size(); ++i) {
    double L = 0;
    double B = 0;
    double H = 0;
    convert.XYZ2LBH(cartesian[i].at(0), cartesian[i].at(1), cartesian[i].at(2), &L, &B, &H);
    worst = std::max(worst, Apart(L, B, exact[i].at(0), exact[i].at(1)));
    if (std::fabs(B) > 5) worstHeight = std::max(worstHeight, std::fabs(H - exact[i].at(2)));
  }
  ExpectMeasured("XYZ2LBH, position", worst, "m", 3.5e-4, 4.5e-4);
  ExpectMeasured("XYZ2LBH, height beyond latitude 5", worstHeight, "m", 3.3e-4, 4e-4);
}

TEST(GeodesyOracle, TheEquatorialPlaneIsExact) {
  const Rows positions = Sweep(2000, {{-180, 180}, {-90, 90}, {0, 0}});
  const Rows answers = Ask("CartConvert -w -p 9", positions);
  CConvertLonLat convert;
  double worst = 0;
  for (size_t i = 0; i < positions.size(); ++i) {
    double x = 0;
    double y = 0;
    convert.TransRect(positions[i][0], positions[i][1], x, y);
    worst = std::max({worst, std::fabs(x - answers[i].at(0)), std::fabs(y - answers[i].at(1))});
  }
  ExpectMeasured("TransRect", worst, "m", 0, 1e-8);
}

// From the published test vectors of the open GCJ-02 implementations: WGS-84 and GCJ-02 positions.
TEST(GeodesyOracle, TheShiftedGridIsThePublishedOne) {
  struct Pair {
    double lat, lon, shiftedLat, shiftedLon;
  };
  CConvertLonLat convert;
  double worst = 0;
  for (const Pair& p : {Pair{31.1774276, 121.5272106, 31.17530398364597, 121.531541859215},
                        Pair{22.543847, 113.912316, 22.540796131694766, 113.9171764808363},
                        Pair{39.911954, 116.377817, 39.91334545536069, 116.38404722455657}}) {
    double lat = 0;
    double lon = 0;
    convert.Transform(p.lat, p.lon, lat, lon);
    worst = std::max(worst, Apart(lon, lat, p.shiftedLon, p.shiftedLat));
  }
  ExpectMeasured("Transform, against published pairs", worst, "m", 0, 1e-8);
}
