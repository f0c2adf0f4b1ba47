// Shifted grid, Gauss-Krueger, Cartesian coordinates.
#include "utility/core/Transforms.h"

#include <cmath>

#include "utility/core/WholeNumber.h"

namespace Tarn::Core {

namespace {

/// The radius of curvature in the prime vertical, N.
double PrimeVerticalRadius(double a, double e2, double sinLat) {
  return a / std::sqrt(1 - e2 * Square(sinLat));
}

// --- Shifted grid ---------------------------------------------------------------------------

/// The term that both shifts share: waves along the parallel.
double GridRipple(double x) {
  return (20 * std::sin(6 * kPi * x) + 20 * std::sin(2 * kPi * x)) * 2 / 3;
}

// --- Gauss-Krueger --------------------------------------------------------------------------

/// In degrees, and not CentralMeridian's: this one rounds to the zones where that one truncates.
double MeridianOfZone(double lon, int zoneWidth) {
  if (zoneWidth == 6) {
    const int zone = CutToInt32(RoundHalfAway((zoneWidth / 2 + lon) / zoneWidth));
    return WrappingProduct(zone, zoneWidth) - zoneWidth / 2.0;
  }
  return WrappingProduct(CutToInt32(RoundHalfAway(lon / zoneWidth)), zoneWidth);
}

/// The length of the meridian from the equator to a latitude B (radians), by the series in the
/// multiples of B up to the eighth power of the eccentricity (Helmert's form).
double MeridianArc(double B) {
  constexpr double a = 6378137.0;
  constexpr double e = 0.081819190842621;
  constexpr double e2 = e * e, e4 = e2 * e2, e6 = e4 * e2, e8 = e4 * e4;
  constexpr double A0 = 1 + 0.75 * e2 + 0.703125 * e4 + 0.68359375 * e6 + 0.67291259765625 * e8;
  constexpr double B0 = 0.75 * e2 + 0.9375 * e4 + 1.025390625 * e6 + 1.07666015625 * e8;
  constexpr double C4 = 0.234375 * e4 + 0.41015625 * e6 + 0.538330078125 * e8;
  constexpr double D6 = 0.068359375 * e6 + 0.15380859375 * e8;
  constexpr double E8 = 0.00240325927734375 * e8;  // divided by 8 already
  return a * (1 - e2) *
         (A0 * B - B0 / 2 * std::sin(2 * B) + C4 / 4 * std::sin(4 * B) - D6 / 6 * std::sin(6 * B) +
          E8 * std::sin(8 * B));
}

constexpr double kInverseA = 6378137.0;
constexpr double kInverseE2 = 0.0066943799901413;

/// The latitude (radians) to which the meridian is `x` metres long, by fixed-point iteration.
double FootpointLatitude(double x) {
  constexpr double e2 = kInverseE2;
  constexpr double m0 = kInverseA * (1 - e2);
  constexpr double m2 = 1.5 * e2 * m0;
  constexpr double m4 = 5 * e2 * m2 / 4;
  constexpr double m6 = 7 * e2 * m4 / 6;
  constexpr double m8 = 9 * e2 * m6 / 8;
  constexpr double a0 = m0 + m2 / 2 + 3 * m4 / 8 + 5 * m6 / 16 + 35 * m8 / 128;
  constexpr double a2 = m2 / 2 + m4 / 2 + 15 * m6 / 32 + 7 * m8 / 16;
  constexpr double a4 = m4 / 8 + 3 * m6 / 16 + 7 * m8 / 32;
  constexpr double a6 = m6 / 32 + m8 / 16;
  constexpr double a8 = m8 / 128;
  double Bf = x / a0;
  double previous = 0;
  // Kept: the difference has its sign. An iteration that starts at 0 or below, as in the south,
  // makes no step, and one that decreases stops; peers get the same latitudes. It ends for every x:
  // the values grow by each step that goes on, and stay within 0.003 of x / a0.
  while (Bf - previous >= 1e-6) {
    previous = Bf;
    const double F = -(a2 / 2) * std::sin(2 * Bf) + a4 / 4 * std::sin(4 * Bf) -
                     a6 / 6 * std::sin(6 * Bf) + a8 / 8 * std::sin(8 * Bf);
    Bf = (x - F) / a0;
  }
  return Bf;
}

/// Degrees by way of minutes and seconds: the detour decides the last bits.
double ToDegreesBySeconds(double radians) {
  return JoinDegrees(SplitRadians(radians));
}

}  // namespace

bool IsOutsideShiftedGrid(Position position) {
  return position.lon < 72.004 || position.lon > 137.8347 || position.lat < 0.8293 ||
         position.lat > 55.8271;
}

double GridShiftOfLat(double x, double y) {
  return -100 + 2 * x + 3 * y + 0.2 * Square(y) + 0.1 * x * y + 0.2 * std::sqrt(std::fabs(x)) +
         GridRipple(x) + (20 * std::sin(kPi * y) + 40 * std::sin(kPi * y / 3)) * 2 / 3 +
         (160 * std::sin(kPi * y / 12) + 320 * std::sin(kPi * y / 30)) * 2 / 3;
}

double GridShiftOfLon(double x, double y) {
  return 300 + x + 2 * y + 0.1 * Square(x) + 0.1 * x * y + 0.1 * std::sqrt(std::fabs(x)) +
         GridRipple(x) + (20 * std::sin(kPi * x) + 40 * std::sin(kPi * x / 3)) * 2 / 3 +
         (150 * std::sin(kPi * x / 12) + 300 * std::sin(kPi * x / 30)) * 2 / 3;
}

// The published WGS-84 to GCJ-02 formula: the shift in metres divided by the lengths of a degree on
// the Krassovsky ellipsoid.
Position ToShiftedGrid(Position position) {
  if (IsOutsideShiftedGrid(position)) return position;
  constexpr double a = 6378245.0;
  constexpr double e2 = 0.006693421622965943;
  constexpr double aTimes1MinusE2 = 6335552.717000426;
  const double x = position.lon - 105;
  const double y = position.lat - 35;
  const double lat = ToRadians(position.lat);
  const double W = 1 - e2 * Square(std::sin(lat));
  const double rootW = std::sqrt(W);
  const double shiftOfLat = 180 * GridShiftOfLat(x, y) / (kPi * aTimes1MinusE2 / (W * rootW));
  const double shiftOfLon = 180 * GridShiftOfLon(x, y) / (kPi * (a / rootW) * std::cos(lat));
  return {position.lon + shiftOfLon, position.lat + shiftOfLat};
}

double CentralMeridian(double lon, int zoneWidth) {
  if (zoneWidth == 3) return ToRadians(RoundHalfAway(lon / 3) * 3);
  // Kept: truncation, so that the zone of 3 degrees reaches from -6 to 6. Peers number zones so.
  return ToRadians(WrappingProduct(CutToInt32(lon) / 6 + 1, 6) - 3);
}

// Gauss-Krueger by the series in powers of the longitude difference l.
GridPosition ProjectGaussKrueger(Position position, int zoneWidth) {
  constexpr double a = 6378137.0;
  constexpr double b = 6356752.314245179;
  constexpr double secondE = 0.0820944379496957;
  const double B = ToRadians(position.lat);
  const double l = ToRadians(position.lon - MeridianOfZone(position.lon, zoneWidth));
  const double sinB = std::sin(B);
  const double cosB = std::cos(B);
  const double eta2 = Square(secondE) * Square(cosB);
  const double eta4 = Square(eta2);
  const double N = Square(a) / b / std::sqrt(1 + eta2);
  const double t2 = Square(std::tan(B));
  const double t4 = Square(t2);
  const double p2 = Square(l * cosB);
  const double p4 = Square(p2);
  const double x = MeridianArc(B) + N * sinB * cosB * Square(l) / 2 *
                                        (1 + (5 - t2 + 9 * eta2 + 4 * eta4) * p2 / 12 +
                                         (61 - 58 * t2 + t4) * p4 / 360);
  // Kept: the textbook adds 14 eta2. Peers subtract it.
  const double y = 500000 + N * l * cosB *
                                (1 + (1 - t2 + eta2) * p2 / 6 +
                                 (5 - 18 * t2 + t4 - 14 * eta2 - 58 * eta2 * t2) * p4 / 120);
  return {x, y};
}

// The inverse by the series in powers of the easting y, from the footpoint latitude Bf.
Position UnprojectGaussKrueger(GridPosition grid, double centralMeridian) {
  constexpr double a = kInverseA;
  constexpr double e2 = kInverseE2;
  constexpr double secondE2 = 0.0067394967422764;
  const double y = grid.easting - 500000;
  const double y2 = Square(y), y3 = y2 * y, y4 = y2 * y2, y5 = y4 * y, y6 = y4 * y2;
  const double Bf = FootpointLatitude(grid.northing);
  const double cosBf = std::cos(Bf);
  const double V = std::sqrt(1 - e2 * Square(std::sin(Bf)));
  const double N = a / V;
  const double N3 = N * N * N, N5 = N3 * N * N;
  const double M = a * (1 - e2) / (V * V * V);
  const double eta2 = secondE2 * Square(cosBf);
  const double t = std::tan(Bf);
  const double t2 = Square(t), t4 = Square(t2);
  const double B = Bf - t * y2 / (2 * M * N) +
                   (5 + 3 * t2 + eta2 - 9 * eta2 * t2) * t * y4 / (24 * M * N3) -
                   (61 + 90 * t2 + 45 * t4) * t * y6 / (720 * M * N5);
  const double L = y / (N * cosBf) - (1 + 2 * t2 + eta2) * y3 / (6 * N3 * cosBf) +
                   (5 + 28 * t2 + 24 * t4) * y5 / (120 * N5 * cosBf) + centralMeridian;
  return {ToDegreesBySeconds(L), ToDegreesBySeconds(B)};
}

Cartesian ToCartesian(const GeodeticPosition& geodetic) {
  constexpr double a = 6378137.0;
  constexpr double e = 0.081819190842621;  // of WGS-84
  constexpr double e2 = e * e;
  const double L = ToRadians(geodetic.position.lon);
  const double B = ToRadians(geodetic.position.lat);
  const double H = geodetic.height;
  const double sinB = std::sin(B);
  const double cosB = std::cos(B);
  const double N = PrimeVerticalRadius(a, e2, sinB);
  return {(N + H) * cosB * std::cos(L), (N + H) * cosB * std::sin(L), (N * (1 - e2) + H) * sinB};
}

// Fixed-point iteration of the latitude, as in Heiskanen and Moritz, Physical Geodesy, 5-3.
GeodeticPosition ToGeodetic(const Cartesian& c) {
  constexpr double a = 6378137.0;
  // Kept: the eccentricity of GRS-80, not that of ToCartesian. Peers convert back with this one.
  constexpr double e = 0.08181919104281517;
  constexpr double e2 = e * e;
  // Near 42.7 km from the axis a converging iteration takes over 100,000 steps.
  constexpr int kMostSteps = 1000000;
  double L = ToDegrees(std::atan(c.y / c.x));
  if (c.x < 0) L = L >= 0 ? L - 180 : L + 180;

  const double fromAxis = std::sqrt(Square(c.x) + Square(c.y));
  double previous = 0;
  double N = a;
  const auto latitude = [&](double sinB) { return std::atan((c.z + N * e2 * sinB) / fromAxis); };
  double B = latitude(0);
  for (int step = 0; std::fabs(B - previous) > 1e-8 && step < kMostSteps; ++step) {
    previous = B;
    const double sinB = std::sin(previous);
    N = PrimeVerticalRadius(a, e2, sinB);
    B = latitude(sinB);
  }
  return {{L, ToDegrees(B)}, c.z / std::sin(B) - N * (1 - e2)};
}

Cartesian ToEquatorialPlane(Position position) {
  constexpr double a = 6378137.0;
  constexpr double f = 0.0033528106647474805;
  constexpr double b = a * (1 - f);
  constexpr double e2 = (Square(a) - Square(b)) / Square(a);
  const double lat = ToRadians(position.lat);
  const double lon = ToRadians(position.lon);
  const double N = PrimeVerticalRadius(a, e2, std::sin(lat));
  return {N * std::cos(lat) * std::cos(lon), N * std::cos(lat) * std::sin(lon), 0};
}

}  // namespace Tarn::Core
