/// @file
/// Positions on the Earth, plane geometry, camera angles and track filtering.
/// Public: may include only public headers.
#ifndef TARN_GENERIC_CONVERTLONLAT_H
#define TARN_GENERIC_CONVERTLONLAT_H

#include <utility>
#include <vector>

#include <Tarn/Generic/Api.h>
#include <Tarn/Generic/StringEx.h>

namespace Tarn {

/// A point of the plane in whole units, as on a screen.
struct tagPOINT {
  int x;
  int y;
};

/// A rectangle of the plane. Nothing enforces an order; the operations want left <= right and
/// top <= bottom.
struct tagRECT {
  int left;
  int top;
  int right;
  int bottom;
};

namespace Generic {

/// A point of the plane; in geographic operations x is the longitude, y the latitude, in degrees.
struct _POINTD {
  double x;
  double y;
};

/// A sector of a circle on the Earth.
struct sector_info {
  double lon;      ///< of the centre, degrees
  double lat;      ///< of the centre, degrees
  double radius;   ///< metres
  double angle;    ///< degrees; what IsPointInSector goes by
  double azimuth;  ///< of the axis, degrees clockwise from north; see calcSectorCenterOfGravity
};

/// The picture of a camera.
struct window_info {
  int width;     ///< pixels
  int height;    ///< pixels
  double ratio;  ///< the vertical field of view as a fraction of the horizontal one
};

/// Where a camera looks.
struct angle_info {
  double pan;   ///< horizontal angle of the picture's centre, degrees
  double tilt;  ///< vertical angle of the picture's centre, degrees
  double fov;   ///< horizontal field of view, degrees
};

/// A pixel of a camera's picture; y grows downwards.
struct point_info {
  int x;
  int y;
};

/// One fix of a moving target.
struct MeasuredValue {
  double time;    ///< seconds
  double lat;     ///< degrees
  double lon;     ///< degrees
  double speed;   ///< knots
  double aux;     ///< a further quantity, filtered without a motion model
  double course;  ///< taken as it is by the filter's sine and cosine
};

/// A calculator for positions on the Earth and in the plane. Everything but the filter (KalmanInit,
/// SetValueData, KalmanFilter) neither reads nor changes the object, so that one object serves any
/// number of threads; a filter belongs to one thread at a time.
///
/// Units, unless a line says otherwise: angles in decimal degrees, bearings clockwise from north,
/// lengths in metres. Mind the order of arguments: some operations take the latitude first.
/// Errors: nothing throws and nothing is reported. Values outside a formula's domain give NaN or
/// infinity, as IEEE arithmetic has it; where a whole number is wanted, NaN and values beyond its
/// range count as the least one. Null pointers to results are ignored.
/// Several formulas are kept to the last bit as peers compute them, although better ones are known:
/// docs/geodesy.md tells each one's model of the Earth and its error.
class TARN_API CConvertLonLat {
 public:
  /// All state zero.
  CConvertLonLat();

  // --- Coordinate forms ---------------------------------------------------------------------

  /// Degrees to radians: pi * degrees / 180.
  double rad(double degrees);
  /// Radians to degrees: 180 * radians / pi.
  double deg(double radians);

  /// Whether a position lies outside the box of latitudes 0.8293 ... 55.8271 and longitudes
  /// 72.004 ... 137.8347. The bounds themselves are inside.
  bool OutOfChina(double lat, double lon);
  /// The raw shift in latitude of the WGS-84 to GCJ-02 formula.
  /// @param x  the longitude - 105, degrees
  /// @param y  the latitude - 35, degrees
  double TransformLat(double x, double y);
  /// The raw shift in longitude; see TransformLat.
  double TransformLon(double x, double y);
  /// From WGS-84 to the shifted national grid (GCJ-02); positions OutOfChina stay as they are.
  void Transform(double lat, double lon, double& outLat, double& outLon);

  /// The central meridian of the zone that holds a longitude.
  /// @param zoneWidth  3 for the nearest multiple of 3 degrees; anything else for zones of 6
  /// degrees,
  ///   with the longitude truncated towards zero: -1 lies in the zone of 3
  /// @return radians, fit for XYToWgs84
  double getCenterLon(double lon, int zoneWidth);
  /// Gauss-Krueger projection by series.
  /// @param zoneWidth  6 for the zones around 3, 9, 15 ...; otherwise those around its multiples
  /// @param flag  has no meaning
  /// @param x  the northing
  /// @param y  the easting, 500000 on the central meridian; no zone number leads it
  void Wgs84ToXY(double lat, double lon, int zoneWidth, bool flag, double& x, double& y);
  /// The inverse projection by series; the longitude comes first here. Not accurate south of the
  /// equator: a northing below 1e-6 radians of arc gets no iteration.
  /// @param centerLon  the central meridian in radians
  void XYToWgs84(double x, double y, double centerLon, double& lon, double& lat);

  /// Geodetic to Earth-centred Cartesian coordinates.
  /// @param L  longitude
  /// @param B  latitude
  /// @param H  height
  void LBH2XYZ(double L, double B, double H, double* X, double* Y, double* Z);
  /// Earth-centred Cartesian to geodetic coordinates, on an eccentricity 2e-10 larger than that of
  /// LBH2XYZ. In the plane of the equator the height is NaN; it loses digits near it. Takes long
  /// within some 42.7 km of the Earth's axis near its centre, where the iteration barely converges.
  void XYZ2LBH(double X, double Y, double Z, double* L, double* B, double* H);
  /// The first two Cartesian coordinates of a position at height 0.
  void TransRect(double lon, double lat, double& x, double& y);

  /// An angle in degrees, minutes and seconds. Only the degrees are ever negative: -0.5 degrees are
  /// -1 degree 30 minutes.
  /// @param rad  radians
  void radTodms(double rad, double& d, double& m, double& s);
  /// Degrees, minutes and seconds as decimal degrees.
  double dmsTodec(double d, double m, double s);
  /// A reading in the form DDDMM.mmmm, as GNSS receivers give it, as decimal degrees.
  double dminTodegree(double v);

  /// To the nearest whole number, halves away from zero; 0 gives -0.
  double round(double v);
  /// `base` multiplied `exp` times, wrapping at 64 bits; 1 when `exp` is 0 or negative.
  long long power(int base, int exp);
  /// Packed BCD, most significant byte first; nibbles above 9 count what they hold. Wraps at 64
  /// bits.
  /// @return 0 for null or a length of 0 or less
  long long BCDtoDec(const unsigned char* bcd, int len);
  /// Fills `len` bytes with packed BCD; digits that do not fit are dropped. For non-negative
  /// values: others leave nibbles that are no digits.
  void DectoBCD(long long value, unsigned char* bcd, int len);
  /// The float whose bytes are those of f in reverse order.
  float BLEndianFloat(float f);

  // --- Distances and angles -----------------------------------------------------------------

  /// The distance along a great circle, by the spherical law of cosines. Inexact below some metres;
  /// may be NaN for identical points.
  double GetDistanceA(double lon1, double lat1, double lon2, double lat2);
  /// The same by the haversine formula, exact for short distances.
  double GetDistanceB(double lon1, double lat1, double lon2, double lat2);
  /// The same by the chord. Right between northern points off the equator only: southern latitudes
  /// and the equator are mapped to other places.
  double GetDistanceC(double lon1, double lat1, double lon2, double lat2);

  /// The bearing from point 1 to point 2 on a flat model around point 1, 0 ... 360. Due east gives
  /// 180, due west 360, identical points 0.
  double GetAnglex(double lon1, double lat1, double lon2, double lat2);
  /// Bearing, elevation and slant range from a point at height h1 to one at height h2, from
  /// GetAnglex and GetDistanceA, without the curvature of the Earth.
  void GetAngle(double lon1, double lat1, double h1, double lon2, double lat2, double h2,
                double& azimuth, double& elevation, double& range);
  /// Angles of the line from point 1 to point 2 in Cartesian coordinates, radians.
  /// @param horiz  the arc sine of dx in the plane of x and y
  /// @param vert  the arc sine of dz
  void M_GetAngleXYZ(double x1, double y1, double z1, double x2, double y2, double z2,
                     double* horiz, double* vert);

  /// The point reached along a bearing, by Gauss's mid-latitude approximation on the Krassovsky
  /// ellipsoid.
  void CalculateAimLonLat(double lon, double lat, double azimuth, double dist, double& outLon,
                          double& outLat);
  /// The same by Vincenty's direct formula on WGS-84; the longitude may leave -180 ... 180.
  void CalculateAimLonLatB(double lon, double lat, double azimuth, double dist, double& outLon,
                           double& outLat);
  /// The same on a flat model of 111.199 km per degree.
  void CalculateAimLonLatC(double lon, double lat, double azimuth, double dist, double& outLon,
                           double& outLat);
  /// The same on a sphere, with the range before the bearing; the longitude changes by 90 degrees
  /// at most.
  void ConvertRangeAzimtoLonlat(double lon, double lat, double range, double azimuth,
                                double& outLon, double& outLat);

  /// The distance of a point from the segment between points 1 and 2, and the segment's point that
  /// is nearest. A point by which the way between the ends grows by less than 4 m is on the
  /// segment: 0, and the point itself.
  double GetNearestDistance(double lon1, double lat1, double lon2, double lat2, double lon,
                            double lat, double& nearLon, double& nearLat);
  /// The distance of P from the segment 1-2 in the plane, by angles. Where P is nearer to point 1
  /// and the segment is not horizontal, the segment's direction is not its own and so is the
  /// result.
  double PointLine_Disp(double px, double py, double x1, double y1, double x2, double y2);

  /// The distance at which `size` spans `count` units of `unitAngle` degrees; 0 for a count of 0.
  double calcuteDis(double size, double unitAngle, double count);
  /// The degrees per unit when `size` at the distance `dist` spans `count` units.
  double calcView(double dist, double size, float count);
  /// `value` divided by the angle count * unitAngle / divisor (in radians), cut to a whole number.
  /// Of results outside 0 ... 4294967295 the lower 32 bits; 0 for NaN and infinity.
  unsigned int GetAimDistance(double value, int divisor, int count, double unitAngle);

  // --- Plane geometry -----------------------------------------------------------------------

  /// Whether a point lies in a polygon of n vertices, by W. R. Franklin's PNPOLY. False for null
  /// arrays and for n of 0 or less.
  bool PNPoly(int n, double x, double y, double* xs, double* ys);
  /// Whether a point lies in a polygon, by the even-odd rule. Of the boundary, left and lower edges
  /// belong to it, right and upper ones do not.
  bool IsPointInPoly(const tagPOINT& pt, const std::vector<tagPOINT>& poly);
  /// Whether the segments p1-p2 and q1-q2 have a point in common; touching counts. Differences and
  /// products wrap at 32 bits: exact for coordinates up to some 16,000.
  bool IsLineSegmentCross(const tagPOINT& p1, const tagPOINT& p2, const tagPOINT& q1,
                          const tagPOINT& q2);
  /// Whether an edge of `a` crosses one of `b` or a vertex of `a` lies in `b`. A `b` wholly inside
  /// `a` gives false: test both ways where that matters. False below 3 vertices on either side.
  bool IsPolygonCrossPolygon(const std::vector<tagPOINT>& a, const std::vector<tagPOINT>& b);
  /// Whether an open line crosses an edge of a polygon; a line wholly inside gives false.
  bool IsPolygonCrossLine(const std::vector<tagPOINT>& poly, const std::vector<tagPOINT>& line);
  /// Whether the boxes a-b and c-d (each from its lower to its upper corner in x and y) have a
  /// point in common; touching counts.
  bool IsRectCross(_POINTD a, _POINTD b, _POINTD c, _POINTD d);
  /// Whether the segments a-b and c-d straddle each other; touching counts, and so does any pair of
  /// segments on one line, even apart. One sign in the test is turned round, so that the answer is
  /// certain only where a-b is level or c has the x of a.
  bool cross(_POINTD a, _POINTD b, _POINTD c, _POINTD d);
  /// The area that two rectangles share, divided by the area that they cover together; 0 when they
  /// share none. Areas wrap at 32 bits.
  double calculateIOU(tagRECT a, tagRECT b);

  /// Whether a point lies in a circle on the Earth, by GetDistanceA; the rim belongs to it.
  bool IsInCircleArea(double lon, double lat, double cLon, double cLat, double radius);
  /// Whether a point lies within the sector's radius at a bearing from 0.5 to 1.5 times its
  /// `angle`. The azimuth has no part in it and nothing wraps at north.
  bool IsPointInSector(_POINTD pt, const sector_info& s);
  /// The centroid of a polygon in degrees taken as plane coordinates. NaN or infinity when its area
  /// is 0.
  /// @param poly  vertices separated by ";", each a longitude, a "," and a latitude
  /// @return false always; the outputs stay untouched below 2 vertices and when one has no ","
  bool calcPolygonalCenterOfGravity(CStringEx poly, double& lon, double& lat);
  /// The point at half the radius along the sector's azimuth, by CalculateAimLonLat.
  void calcSectorCenterOfGravity(const sector_info& s, double& lon, double& lat);
  /// The distance of a point from the nearest edge of a polygon, also for points inside.
  /// @param poly  as for calcPolygonalCenterOfGravity
  /// @return false always; `dist` stays untouched below 2 vertices and when one has no ","
  bool calcPointToPolygonNearestDist(double lon, double lat, CStringEx poly, double& dist);
  /// The distance of a point from the rim of a circle; negative inside.
  double calcPointToCircleNearestDist(double lon, double lat, double cLon, double cLat,
                                      double radius);
  /// The height of the triangle a-b-p over its side a-b, by Heron's rule on GetDistanceA; 0 for
  /// triangles that are nearly flat.
  double GeMinDistanceInfo(_POINTD a, _POINTD b, _POINTD p);

  // --- Camera and track filter --------------------------------------------------------------

  /// The direction of a pixel: (horizontal 0 ... 360, vertical).
  std::pair<double, double> pixel_to_camera(const window_info& window, const angle_info& angle,
                                            const point_info& point);
  /// The pixel (x, y) of a direction. The difference of the pans is not wrapped at 360: a target
  /// just across north lies far outside the picture.
  std::pair<int, int> camera_to_pixel(const window_info& window, const angle_info& angle,
                                      const std::pair<double, double>& angles);

  /// Resets the filter. Then, for each fix: SetValueData, KalmanFilter.
  void KalmanInit();
  /// Hands the filter the previous and the current fix.
  void SetValueData(MeasuredValue last, MeasuredValue cur);
  /// One step of the filter on the current fix.
  /// @param dt  seconds to predict ahead
  /// @param out  where the target will be
  void KalmanFilter(double dt, MeasuredValue& out);
  /// Dead reckoning by CalculateAimLonLat, with speed * dt in the place of its bearing and the
  /// course in that of its distance. Leaves out.time alone.
  void PredictValueBySD(MeasuredValue cur, MeasuredValue& out, double dt);
  /// Inverts a matrix by Gauss-Jordan elimination with partial pivoting.
  /// @param in  five rows of five; not changed
  /// @param out  five rows of five; incomplete when the result is false
  /// @return false when a pivot is exactly 0, or for null
  bool MatrixInverse(double (*in)[5], double (*out)[5]);

 private:
  // The filter: written by KalmanInit and KalmanFilter only. States: lat, lon, aux, speed, course.
  double m_x[5];              // state
  double m_K[5][5];           // gain
  double m_F[5][5];           // transition
  double m_H[5][5];           // the identity, not used
  double m_Q[5][5];           // process noise
  double m_R[5][5];           // measurement noise
  double m_P[5][5];           // covariance
  MeasuredValue m_lastValue;  // the two fixes of SetValueData
  MeasuredValue m_curValue;
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_CONVERTLONLAT_H
