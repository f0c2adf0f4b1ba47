// Coordinate forms, distances, bearings and moves. Plane geometry and the camera are in files of
// their own.
#include <Tarn/Generic/ConvertLonLat.h>

#include <bit>
#include <cstdint>

#include "utility/core/Angles.h"
#include "utility/core/DirectProblem.h"
#include "utility/core/GreatCircle.h"
#include "utility/core/Optics.h"
#include "utility/core/PackedDecimal.h"
#include "utility/core/PlaneAngles.h"
#include "utility/core/Transforms.h"

namespace Tarn::Generic {

namespace {

void Store(Core::Position position, double& lon, double& lat) {
  lon = position.lon;
  lat = position.lat;
}

void StoreAt(double* place, double value) {
  if (place != nullptr) *place = value;
}

}  // namespace

// The filter needs zeroed storage: it writes some elements only.
CConvertLonLat::CConvertLonLat()
    : m_x(), m_K(), m_F(), m_H(), m_Q(), m_R(), m_P(), m_lastValue(), m_curValue() {}

double CConvertLonLat::rad(double degrees) {
  return Core::ToRadians(degrees);
}

double CConvertLonLat::deg(double radians) {
  return Core::ToDegrees(radians);
}

bool CConvertLonLat::OutOfChina(double lat, double lon) {
  return Core::IsOutsideShiftedGrid({lon, lat});
}

double CConvertLonLat::TransformLat(double x, double y) {
  return Core::GridShiftOfLat(x, y);
}

double CConvertLonLat::TransformLon(double x, double y) {
  return Core::GridShiftOfLon(x, y);
}

void CConvertLonLat::Transform(double lat, double lon, double& outLat, double& outLon) {
  Store(Core::ToShiftedGrid({lon, lat}), outLon, outLat);
}

double CConvertLonLat::getCenterLon(double lon, int zoneWidth) {
  return Core::CentralMeridian(lon, zoneWidth);
}

void CConvertLonLat::Wgs84ToXY(double lat, double lon, int zoneWidth, bool /*flag*/, double& x,
                               double& y) {
  const Core::GridPosition grid = Core::ProjectGaussKrueger({lon, lat}, zoneWidth);
  x = grid.northing;
  y = grid.easting;
}

void CConvertLonLat::XYToWgs84(double x, double y, double centerLon, double& lon, double& lat) {
  Store(Core::UnprojectGaussKrueger({x, y}, centerLon), lon, lat);
}

void CConvertLonLat::LBH2XYZ(double L, double B, double H, double* X, double* Y, double* Z) {
  const Core::Cartesian cartesian = Core::ToCartesian({{L, B}, H});
  StoreAt(X, cartesian.x);
  StoreAt(Y, cartesian.y);
  StoreAt(Z, cartesian.z);
}

void CConvertLonLat::XYZ2LBH(double X, double Y, double Z, double* L, double* B, double* H) {
  const Core::GeodeticPosition geodetic = Core::ToGeodetic({X, Y, Z});
  StoreAt(L, geodetic.position.lon);
  StoreAt(B, geodetic.position.lat);
  StoreAt(H, geodetic.height);
}

void CConvertLonLat::TransRect(double lon, double lat, double& x, double& y) {
  const Core::Cartesian cartesian = Core::ToEquatorialPlane({lon, lat});
  x = cartesian.x;
  y = cartesian.y;
}

void CConvertLonLat::radTodms(double radians, double& d, double& m, double& s) {
  const Core::DegreesMinutesSeconds angle = Core::SplitRadians(radians);
  d = angle.degrees;
  m = angle.minutes;
  s = angle.seconds;
}

double CConvertLonLat::dmsTodec(double d, double m, double s) {
  return Core::JoinDegrees({d, m, s});
}

double CConvertLonLat::dminTodegree(double v) {
  return Core::ReadDegreesMinutes(v);
}

double CConvertLonLat::round(double v) {
  return Core::RoundHalfAway(v);
}

long long CConvertLonLat::power(int base, int exp) {
  return Core::IntegerPower(base, exp);
}

long long CConvertLonLat::BCDtoDec(const unsigned char* bcd, int len) {
  if (bcd == nullptr || len <= 0) return 0;
  return Core::FromPackedDecimal(bcd, static_cast<size_t>(len));
}

void CConvertLonLat::DectoBCD(long long value, unsigned char* bcd, int len) {
  if (bcd == nullptr || len <= 0) return;
  Core::ToPackedDecimal(value, bcd, static_cast<size_t>(len));
}

float CConvertLonLat::BLEndianFloat(float f) {
  return std::bit_cast<float>(__builtin_bswap32(std::bit_cast<uint32_t>(f)));
}

double CConvertLonLat::GetDistanceA(double lon1, double lat1, double lon2, double lat2) {
  return Core::DistanceByCosines({lon1, lat1}, {lon2, lat2});
}

double CConvertLonLat::GetDistanceB(double lon1, double lat1, double lon2, double lat2) {
  return Core::DistanceByHaversine({lon1, lat1}, {lon2, lat2});
}

double CConvertLonLat::GetDistanceC(double lon1, double lat1, double lon2, double lat2) {
  return Core::DistanceByChord({lon1, lat1}, {lon2, lat2});
}

double CConvertLonLat::GetAnglex(double lon1, double lat1, double lon2, double lat2) {
  return Core::FlatBearing({lon1, lat1}, {lon2, lat2});
}

void CConvertLonLat::GetAngle(double lon1, double lat1, double h1, double lon2, double lat2,
                              double h2, double& azimuth, double& elevation, double& range) {
  const Core::LineOfSight sight = Core::SightFrom({lon1, lat1}, h1, {lon2, lat2}, h2);
  azimuth = sight.bearing;
  elevation = sight.elevation;
  range = sight.range;
}

void CConvertLonLat::M_GetAngleXYZ(double x1, double y1, double z1, double x2, double y2, double z2,
                                   double* horiz, double* vert) {
  const Core::LineAngles angles = Core::AnglesOfLine(x2 - x1, y2 - y1, z2 - z1);
  StoreAt(horiz, angles.horizontal);
  StoreAt(vert, angles.vertical);
}

void CConvertLonLat::CalculateAimLonLat(double lon, double lat, double azimuth, double dist,
                                        double& outLon, double& outLat) {
  Store(Core::MoveByGauss({lon, lat}, azimuth, dist), outLon, outLat);
}

void CConvertLonLat::CalculateAimLonLatB(double lon, double lat, double azimuth, double dist,
                                         double& outLon, double& outLat) {
  Store(Core::MoveByVincenty({lon, lat}, azimuth, dist), outLon, outLat);
}

void CConvertLonLat::CalculateAimLonLatC(double lon, double lat, double azimuth, double dist,
                                         double& outLon, double& outLat) {
  Store(Core::MoveInPlane({lon, lat}, azimuth, dist), outLon, outLat);
}

void CConvertLonLat::ConvertRangeAzimtoLonlat(double lon, double lat, double range, double azimuth,
                                              double& outLon, double& outLat) {
  Store(Core::MoveOnSphere({lon, lat}, azimuth, range), outLon, outLat);
}

double CConvertLonLat::GetNearestDistance(double lon1, double lat1, double lon2, double lat2,
                                          double lon, double lat, double& nearLon,
                                          double& nearLat) {
  const Core::NearestPoint nearest = Core::NearestOnSegment({lon1, lat1}, {lon2, lat2}, {lon, lat});
  Store(nearest.point, nearLon, nearLat);
  return nearest.distance;
}

double CConvertLonLat::PointLine_Disp(double px, double py, double x1, double y1, double x2,
                                      double y2) {
  return Core::DistanceByAngles({px, py}, {x1, y1}, {x2, y2});
}

double CConvertLonLat::calcuteDis(double size, double unitAngle, double count) {
  return Core::DistanceOfSpan(size, unitAngle, count);
}

double CConvertLonLat::calcView(double dist, double size, float count) {
  return Core::AnglePerUnit(dist, size, static_cast<double>(count));
}

unsigned int CConvertLonLat::GetAimDistance(double value, int divisor, int count,
                                            double unitAngle) {
  return Core::DistanceOfSmallAngle(value, divisor, count, unitAngle);
}

}  // namespace Tarn::Generic
