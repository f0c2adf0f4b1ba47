// The camera and the track filter of CConvertLonLat as hosts call them; their formulas are tested
// in tests/core.
#include <Tarn/Generic/ConvertLonLat.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <new>
#include <thread>
#include <type_traits>
#include <vector>

using Tarn::Generic::angle_info;
using Tarn::Generic::CConvertLonLat;
using Tarn::Generic::MeasuredValue;
using Tarn::Generic::point_info;
using Tarn::Generic::window_info;

namespace {

constexpr double kUntouched = -77.5;
constexpr MeasuredValue kNone{kUntouched, kUntouched, kUntouched,
                              kUntouched, kUntouched, kUntouched};

static_assert(sizeof(window_info) == 16 && offsetof(window_info, height) == 4 &&
              offsetof(window_info, ratio) == 8);
static_assert(sizeof(angle_info) == 24 && offsetof(angle_info, tilt) == 8 &&
              offsetof(angle_info, fov) == 16);
static_assert(sizeof(point_info) == 8 && offsetof(point_info, y) == 4);
static_assert(sizeof(MeasuredValue) == 48 && offsetof(MeasuredValue, lat) == 8 &&
              offsetof(MeasuredValue, lon) == 16 && offsetof(MeasuredValue, speed) == 24 &&
              offsetof(MeasuredValue, aux) == 32 && offsetof(MeasuredValue, course) == 40);
static_assert(std::is_trivially_copyable_v<MeasuredValue> &&
              std::is_trivially_copyable_v<window_info>);
// The state, six matrices, two records and nothing else.
static_assert(sizeof(CConvertLonLat) == (5 + 6 * 25 + 2 * 6) * sizeof(double));

MeasuredValue Fix(double time, double lat, double lon, double course = 1) {
  return {time, lat, lon, 12, 3, course};
}

MeasuredValue Step(CConvertLonLat& geo, const MeasuredValue& last, const MeasuredValue& current,
                   double dt) {
  MeasuredValue out = kNone;
  geo.SetValueData(last, current);
  geo.KalmanFilter(dt, out);
  return out;
}

std::vector<MeasuredValue> Track(CConvertLonLat& geo) {
  std::vector<MeasuredValue> results;
  MeasuredValue last = Fix(0, 39.9, 116.3);
  for (int i = 0; i < 20; ++i) {
    const MeasuredValue current = Fix(10.0 * i, 39.9 + i * 1e-3, 116.3 - i * 1e-4, 0.1 * i);
    results.push_back(Step(geo, last, current, 10));
    last = current;
  }
  return results;
}

bool SameBits(const std::vector<MeasuredValue>& a, const std::vector<MeasuredValue>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0;
}

}  // namespace

TEST(ConvertLonLatCamera, TheCentrePixelLooksWhereTheCameraLooks) {
  CConvertLonLat geo;
  const auto direction = geo.pixel_to_camera({1920, 1080, 0.5625}, {370, -5, 60}, {960, 540});
  EXPECT_EQ(direction.first, 10);
  EXPECT_EQ(direction.second, -5);
}

TEST(ConvertLonLatCamera, PixelsGrowToTheRightAndDownwards) {
  CConvertLonLat geo;
  const auto direction = geo.pixel_to_camera({1920, 1080, 0.5625}, {10, -5, 60}, {1920, 1080});
  EXPECT_NEAR(direction.first, 40, 1e-12);
  EXPECT_NEAR(direction.second, -5 - 60 * 0.5625 / 2, 1e-12);
}

TEST(ConvertLonLatCamera, TheCentreAndTheRightEdgeComeBackAsPixels) {
  CConvertLonLat geo;
  const std::pair<int, int> centre =
      geo.camera_to_pixel({1920, 1080, 0.5625}, {10, -5, 60}, {10, -5});
  EXPECT_EQ(centre, (std::pair<int, int>{960, 540}));
  const std::pair<int, int> right =
      geo.camera_to_pixel({1920, 1080, 0.5625}, {10, -5, 60}, {40, -5});
  EXPECT_EQ(right, (std::pair<int, int>{1920, 540}));
}

TEST(ConvertLonLatCamera, PicturesWithoutSizeGiveInfinities) {
  CConvertLonLat geo;
  EXPECT_TRUE(std::isinf(geo.pixel_to_camera({0, 0, 1}, {0, 0, 60}, {3, 3}).second));
}

TEST(TrackOfConvertLonLat, AnObjectBeginsZeroed) {
  alignas(CConvertLonLat) unsigned char storage[sizeof(CConvertLonLat)];
  std::memset(storage, 0xAB, sizeof(storage));
  auto* geo = new (storage) CConvertLonLat();
  for (const unsigned char byte : storage)
    ASSERT_EQ(byte, 0);
  geo->~CConvertLonLat();
}

TEST(TrackOfConvertLonLat, WithoutAResetTheFilterStaysAtZero) {
  CConvertLonLat geo;  // no gain, and a covariance without inverse
  const MeasuredValue out = Step(geo, Fix(0, 39, 116), Fix(10, 39, 116), 5);
  EXPECT_EQ(out.time, 15);
  EXPECT_EQ(out.lat, 0);
  EXPECT_EQ(out.lon, 0);
  EXPECT_EQ(out.speed, 0);
  EXPECT_EQ(out.aux, 0);
  EXPECT_EQ(out.course, 0);
}

TEST(TrackOfConvertLonLat, TheFirstFixIsTakenAlmostWholeAndMovedOn) {
  CConvertLonLat geo;
  geo.KalmanInit();
  const MeasuredValue last = Fix(0, 0.5, 0.5, 0.7);
  const MeasuredValue current{10, 39.9, 116.3, 12, 3, 1.5};
  const MeasuredValue out = Step(geo, last, current, 20);
  const double gain = (1 + 1e-8) / (1 + 2e-8);
  EXPECT_EQ(out.time, 30);
  EXPECT_NEAR(out.speed, 12 * gain, 1e-12);
  EXPECT_NEAR(out.aux, 3 * gain, 1e-12);
  EXPECT_NEAR(out.course, 1.5 * gain, 1e-12);
  // The motion is that of the fix before.
  const double perKnot = 1.852 * 20 / 399600;
  EXPECT_NEAR(out.lat, (39.9 + 12 * perKnot * std::sin(0.7)) * gain, 1e-12);
  EXPECT_NEAR(out.lon, (116.3 + 12 * perKnot * std::cos(0.7) / std::cos(0.5)) * gain, 1e-12);
}

TEST(TrackOfConvertLonLat, MotionTakesEffectInTheNextStepOnlyKept) {
  CConvertLonLat one;
  CConvertLonLat other;
  one.KalmanInit();
  other.KalmanInit();
  // Different motions ahead, the same state behind.
  EXPECT_EQ(Step(one, Fix(0, 39, 116), Fix(0, 39, 116), 0).lat,
            Step(other, Fix(0, 39, 116), Fix(0, 39, 116), 0).lat);
  Step(one, Fix(0, 39, 116), Fix(10, 39, 116), 10);
  Step(other, Fix(0, 39, 116), Fix(10, 39, 116), 99);
  EXPECT_NE(Step(one, Fix(0, 39, 116), Fix(20, 39, 116), 0).lat,
            Step(other, Fix(0, 39, 116), Fix(20, 39, 116), 0).lat);
}

TEST(TrackOfConvertLonLat, TheSameTrackGivesTheSameBitsInAnyObject) {
  CConvertLonLat one;
  CConvertLonLat other;
  one.KalmanInit();
  other.KalmanInit();
  std::vector<MeasuredValue> inThread;
  std::thread thread([&] { inThread = Track(other); });
  const std::vector<MeasuredValue> here = Track(one);
  thread.join();
  EXPECT_TRUE(SameBits(here, inThread));
}

TEST(TrackOfConvertLonLat, AResetLeavesWhatStandsBesideTheDiagonalsKept) {
  CConvertLonLat fresh;
  fresh.KalmanInit();
  CConvertLonLat used;
  used.KalmanInit();
  Track(used);
  used.KalmanInit();
  // A covariance of latitude and speed shows where the speed is far off.
  const MeasuredValue fast{0, 39.9, 116.3, 1e12, 3, 1};
  EXPECT_NE(Step(used, fast, fast, 0).lat, Step(fresh, fast, fast, 0).lat);
}

TEST(TrackOfConvertLonLat, TheResultMayBeOneOfTheRecordsHandedIn) {
  CConvertLonLat geo;
  geo.KalmanInit();
  MeasuredValue value = Fix(10, 39.9, 116.3);
  geo.SetValueData(value, value);
  geo.KalmanFilter(5, value);
  EXPECT_EQ(value.time, 15);
  EXPECT_NEAR(value.speed, 12, 1e-6);
}

TEST(TrackOfConvertLonLat, DeadReckoningTakesSpeedTimesTimeAsBearingAndCourseAsDistanceKept) {
  CConvertLonLat geo;
  MeasuredValue out = kNone;
  geo.PredictValueBySD({1, 39.9, 116.3, 15, 4, 2500}, out, 6);
  double lon = 0;
  double lat = 0;
  geo.CalculateAimLonLat(116.3, 39.9, 90, 2500, lon, lat);
  EXPECT_EQ(out.lon, lon);
  EXPECT_EQ(out.lat, lat);
  EXPECT_EQ(out.speed, 15);
  EXPECT_EQ(out.aux, 4);
  EXPECT_EQ(out.course, 2500);
}

TEST(TrackOfConvertLonLat, DeadReckoningLeavesTheTimeAloneKept) {
  CConvertLonLat geo;
  MeasuredValue out = kNone;
  geo.PredictValueBySD(Fix(1, 39.9, 116.3), out, 6);
  EXPECT_EQ(out.time, kUntouched);
}

TEST(TrackOfConvertLonLat, DeadReckoningDoesNotTouchTheFilter) {
  CConvertLonLat plain;
  CConvertLonLat reckoning;
  plain.KalmanInit();
  reckoning.KalmanInit();
  MeasuredValue out = kNone;
  reckoning.PredictValueBySD(Fix(1, 39.9, 116.3), out, 6);
  EXPECT_TRUE(SameBits(Track(plain), Track(reckoning)));
}

TEST(TrackOfConvertLonLat, MatricesAreInvertedOrRefused) {
  CConvertLonLat geo;
  double matrix[5][5] = {};
  double inverse[5][5] = {};
  EXPECT_FALSE(geo.MatrixInverse(matrix, inverse));
  for (int i = 0; i < 5; ++i)
    matrix[i][i] = 1;
  EXPECT_TRUE(geo.MatrixInverse(matrix, inverse));
  EXPECT_EQ(std::memcmp(matrix, inverse, sizeof(matrix)), 0);
  matrix[2][2] = 0;
  EXPECT_FALSE(geo.MatrixInverse(matrix, inverse));
}

TEST(TrackOfConvertLonLat, NoMatrixIsRefused) {
  CConvertLonLat geo;
  double matrix[5][5] = {};
  EXPECT_FALSE(geo.MatrixInverse(nullptr, matrix));
  EXPECT_FALSE(geo.MatrixInverse(matrix, nullptr));
}
