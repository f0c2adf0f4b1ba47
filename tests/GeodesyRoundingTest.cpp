// Angles, optics, camera and lines in the plane against the same formulas with eleven more bits
// (the processor's long doubles): what rounding costs, and where it costs more than the last bits.
// Each case tells its largest difference, for docs/geodesy.md, and holds it between two bounds.
#include <Tarn/Generic/ConvertLonLat.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "tests/GeodesySweep.h"

using namespace tarn_test;
using Tarn::Generic::CConvertLonLat;

namespace {

using Exact = long double;
static_assert(std::numeric_limits<Exact>::digits == 64);

const Exact kPi = std::acos(Exact{-1});

double Off(Exact value, Exact exact) {
  return static_cast<double>(std::fabs(value - exact));
}

double OffOfOne(double value, Exact exact) {
  return static_cast<double>(std::fabs(value / exact - 1));
}

Exact Wave(double amplitude, Exact angle) {
  return amplitude * std::sin(angle * kPi);
}

Exact Ripple(Exact x) {
  return (Wave(20, 6 * x) + Wave(20, 2 * x)) * 2 / 3;
}

Exact ShiftOfLat(Exact x, Exact y) {
  return -100 + 2 * x + 3 * y + y * y / 5 + x * y / 10 + std::sqrt(std::fabs(x)) / 5 + Ripple(x) +
         (Wave(20, y) + Wave(40, y / 3) + Wave(160, y / 12) + Wave(320, y / 30)) * 2 / 3;
}

Exact ShiftOfLon(Exact x, Exact y) {
  return 300 + x + 2 * y + x * x / 10 + x * y / 10 + std::sqrt(std::fabs(x)) / 10 + Ripple(x) +
         (Wave(20, x) + Wave(40, x / 3) + Wave(150, x / 12) + Wave(300, x / 30)) * 2 / 3;
}

/// Of a point from a segment, by its foot.
Exact FromSegment(const Row& r) {
  const Exact dx = Exact{r[4]} - r[2], dy = Exact{r[5]} - r[3];
  const Exact way = ((r[0] - Exact{r[2]}) * dx + (r[1] - Exact{r[3]}) * dy) / (dx * dx + dy * dy);
  const Exact t = std::clamp(way, Exact{0}, Exact{1});
  return std::hypot(r[0] - r[2] - t * dx, r[1] - r[3] - t * dy);
}

bool NearerToSecondEnd(const Row& r) {
  return std::hypot(r[0] - r[4], r[1] - r[5]) <= std::hypot(r[0] - r[2], r[1] - r[3]);
}

}  // namespace

TEST(GeodesyRounding, DegreesAndRadians) {
  CConvertLonLat convert;
  double worst = 0;
  for (const Row& r : Sweep(4000, {{-360, 360}})) {
    worst = std::max({worst, OffOfOne(convert.rad(r[0]), kPi * r[0] / 180),
                      OffOfOne(convert.deg(r[0]), 180 * r[0] / kPi)});
  }
  ExpectMeasured("rad, deg, as a fraction", worst, "", 1e-16, 4e-16);
}

TEST(GeodesyRounding, DegreesMinutesSeconds) {
  CConvertLonLat convert;
  double split = 0, joined = 0, reading = 0;
  for (const Row& r : Sweep(4000, {{-3.14, 3.14}, {0, 180}, {0, 60}, {0, 60}})) {
    double d = 0, m = 0, s = 0;
    convert.radTodms(r[0], d, m, s);
    split = std::max(split, Off(d + m / Exact{60} + s / Exact{3600}, r[0] * 180 / kPi));
    d = std::floor(r[1]);
    m = std::floor(r[2]);
    const Exact minutes = m + r[3] / Exact{60};
    joined = std::max(joined, Off(convert.dmsTodec(d, m, r[3]), d + minutes / 60));
    const double text = d * 100 + r[2];  // what a receiver says, rounded to a double
    reading = std::max(reading, Off(convert.dminTodegree(text), d + (Exact{text} - d * 100) / 60));
  }
  ExpectMeasured("radTodms", split, "degrees", 1e-15, 1e-13);
  ExpectMeasured("dmsTodec", joined, "degrees", 1e-15, 6e-14);
  ExpectMeasured("dminTodegree", reading, "degrees", 1e-15, 3e-14);
}

TEST(GeodesyRounding, TermsOfTheShiftedGrid) {
  CConvertLonLat convert;
  double worst = 0;
  for (const Row& r : Sweep(4000, {{-33, 33}, {-34, 21}})) {
    worst = std::max({worst, Off(convert.TransformLat(r[0], r[1]), ShiftOfLat(r[0], r[1])),
                      Off(convert.TransformLon(r[0], r[1]), ShiftOfLon(r[0], r[1]))});
  }
  ExpectMeasured("TransformLat, TransformLon", worst, "m", 1e-13, 4e-12);
}

TEST(GeodesyRounding, Optics) {
  CConvertLonLat convert;
  double distance = 0, view = 0;
  int wrong = 0;
  for (const Row& r : Sweep(4000, {{0.1, 100}, {0.001, 1}, {1, 100}, {1, 10000}})) {
    const float count = std::floor(static_cast<float>(r[2]));
    distance = std::max(distance, OffOfOne(convert.calcuteDis(r[0], r[1], r[2]),
                                           r[0] / (2 * std::tan(kPi * r[2] * r[1] / 360))));
    const Exact angle = 2 * std::atan(r[0] / (2 * Exact{r[3]})) * 180 / kPi;
    view = std::max(view, OffOfOne(convert.calcView(r[3], r[0], count), angle / count));
    const Exact small = static_cast<int>(count) * Exact{r[1]} / 6400 * kPi / 180;
    wrong += convert.GetAimDistance(r[0], 6400, static_cast<int>(count), r[1]) !=
             static_cast<unsigned int>(static_cast<unsigned long long>(r[0] / small));
  }
  ExpectMeasured("calcuteDis, as a fraction", distance, "", 1e-16, 1e-15);
  ExpectMeasured("calcView, as a fraction", view, "", 1e-16, 1e-15);
  ExpectMeasured("GetAimDistance, wrong ones of 4000", wrong, "", 0, 0);
}

TEST(GeodesyRounding, AnglesOfALineInSpace) {
  CConvertLonLat convert;
  double anywhere = 0, near90 = 0;
  for (const Row& r : Sweep(4000, {{-1e6, 1e6}, {-1e6, 1e6}, {-1e6, 1e6}, {-8, -1}})) {
    double horizontal = 0, vertical = 0;
    convert.M_GetAngleXYZ(0, 0, 0, r[0], r[1], r[2], &horizontal, &vertical);
    const Exact plane = std::hypot(Exact{r[0]}, Exact{r[1]});
    anywhere = std::max({anywhere, Off(horizontal, std::asin(r[0] / plane)),
                         Off(vertical, std::atan2(Exact{r[2]}, plane))});
    const double aside = r[0] * std::pow(10, r[3]);
    convert.M_GetAngleXYZ(0, 0, 0, r[0], aside, 0, &horizontal, &vertical);
    near90 = std::max(near90, Off(horizontal, std::atan2(Exact{r[0]}, std::fabs(Exact{aside}))));
  }
  ExpectMeasured("M_GetAngleXYZ", anywhere, "rad", 1e-16, 1e-11);
  ExpectMeasured("M_GetAngleXYZ, near a right angle", near90, "rad", 1e-9, 4e-8);
}

TEST(GeodesyRounding, PlaneDistanceFromASegment) {
  CConvertLonLat convert;
  const auto off = [&convert](const Row& r) {
    return Off(convert.PointLine_Disp(r[0], r[1], r[2], r[3], r[4], r[5]), FromSegment(r));
  };
  double level = 0, atSecond = 0, atFirst = 0;
  for (Row& r : Sweep(8000, {{-9, 9}, {-9, 9}, {-9, 9}, {-9, 9}, {-9, 9}, {-9, 9}})) {
    double& worst = NearerToSecondEnd(r) ? atSecond : atFirst;
    worst = std::max(worst, off(r));
    r[5] = r[3];
    level = std::max(level, off(r));
  }
  ExpectMeasured("PointLine_Disp, level segments up to 18 long", level, "", 1e-15, 1e-6);
  ExpectMeasured("PointLine_Disp, near the second end", atSecond, "", 1e-15, 1e-6);
  ExpectMeasured("PointLine_Disp, near the first end", atFirst, "", 10, 26);
}

TEST(GeodesyRounding, PixelsOfACamera) {
  CConvertLonLat convert;
  double worst = 0;
  int moved = 0;
  for (const Row& r : Sweep(4000, {{60, 300}, {-90, 90}, {1, 60}, {0, 1920}, {0, 1080}})) {
    const Tarn::Generic::window_info window{1920, 1080, 0.5625};
    const Tarn::Generic::angle_info angle{r[0], r[1], r[2]};
    const Tarn::Generic::point_info pixel{static_cast<int>(r[3]), static_cast<int>(r[4])};
    const auto seen = convert.pixel_to_camera(window, angle, pixel);
    worst =
        std::max({worst, Off(seen.first, Exact{r[0]} + (pixel.x - 960) * Exact{r[2]} / 1920),
                  Off(seen.second, Exact{r[1]} + (540 - pixel.y) * Exact{r[2]} * 0.5625L / 1080)});
    moved += convert.camera_to_pixel(window, angle, seen) != std::pair<int, int>(pixel.x, pixel.y);
  }
  ExpectMeasured("pixel_to_camera", worst, "degrees", 1e-15, 3e-13);
  ExpectMeasured("camera_to_pixel, other pixels than the first of 4000", moved, "", 0, 0);
}
