#include "utility/core/Camera.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "tests/support/Oracle.h"

using namespace Tarn::Core;
using namespace tarn_test;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
constexpr Picture kPicture{1920, 1080, 0.5625};
constexpr CameraView kView{30, -5, 60};

class Random {
 public:
  int32_t Below(int32_t limit) {
    return static_cast<int32_t>(engine_() % static_cast<uint32_t>(limit));
  }
  double Within(double limit) { return static_cast<double>(engine_()) * limit / 4294967296.0; }

 private:
  std::mt19937 engine_{6};
};

}  // namespace

TEST(Camera, TheCentrePixelLooksWhereTheCameraLooks) {
  const Direction centre = DirectionOfPixel(kPicture, kView, {960, 540});
  EXPECT_EQ(centre.horizontal, 30);
  EXPECT_EQ(centre.vertical, -5);
}

TEST(Camera, APanOf360OrMoreAndANegativeOneAreBroughtBelow360) {
  EXPECT_EQ(DirectionOfPixel(kPicture, {390, 0, 60}, {960, 540}).horizontal, 30);
  EXPECT_EQ(DirectionOfPixel(kPicture, {-30, 0, 60}, {960, 540}).horizontal, 330);
  EXPECT_EQ(DirectionOfPixel(kPicture, {360, 0, 60}, {960, 540}).horizontal, 0);
}

TEST(Camera, APanBelowMinus360StaysNegativeKept) {
  EXPECT_EQ(DirectionOfPixel(kPicture, {-400, 0, 60}, {960, 540}).horizontal, -40);
}

TEST(Camera, TheEdgesOfThePictureAreHalfTheFieldsOfView) {
  const Direction topLeft = DirectionOfPixel(kPicture, kView, {0, 0});
  EXPECT_NEAR(topLeft.horizontal, 0, 1e-12);
  EXPECT_NEAR(topLeft.vertical, -5 + 0.5625 * 60 / 2, 1e-12);
}

TEST(Camera, TheCentreOfAnOddPictureIsCut) {
  EXPECT_EQ(DirectionOfPixel({3, 5, 1}, {10, 20, 30}, {1, 2}).horizontal, 10);
  EXPECT_EQ(DirectionOfPixel({3, 5, 1}, {10, 20, 30}, {1, 2}).vertical, 20);
  EXPECT_EQ(DirectionOfPixel({-3, -5, 1}, {10, 20, 30}, {-1, -2}).vertical, 20);
}

TEST(Camera, TheDirectionOfTheCentreIsTheCentrePixel) {
  const Pixel centre = PixelOfDirection(kPicture, kView, {30, -5});
  EXPECT_EQ(centre.x, 960);
  EXPECT_EQ(centre.y, 540);
}

TEST(Camera, HalfTheFieldOfViewToTheRightIsTheWidthOfThePicture) {
  EXPECT_EQ(PixelOfDirection(kPicture, kView, {30 + 30, -5}).x, 1920);
  EXPECT_EQ(PixelOfDirection(kPicture, kView, {30 - 30, -5}).x, 0);
  EXPECT_EQ(PixelOfDirection(kPicture, kView, {30, -5 - 0.5625 * 30}).y, 1080);
}

TEST(Camera, ATargetAcrossNorthLiesFarOutsideKept) {
  EXPECT_EQ(PixelOfDirection(kPicture, {359, 0, 60}, {1, 0}).x, 961 - 358 * 32);
}

TEST(Camera, PixelsLeftOfZeroAreCutTowardsItKept) {
  // 32 pixels per degree: -0.3, -0.9 and -1.1 after the half has been added.
  EXPECT_EQ(PixelOfDirection(kPicture, {0, 0, 60}, {-30.025, 0}).x, 0);
  EXPECT_EQ(PixelOfDirection(kPicture, {0, 0, 60}, {-30.0437, 0}).x, 0);
  EXPECT_EQ(PixelOfDirection(kPicture, {0, 0, 60}, {-30.05, 0}).x, -1);
}

TEST(Camera, EveryPixelComesBackFromItsDirection) {
  // The centre is cut to whole pixels, so only even pictures go both ways.
  for (int x = 0; x <= 640; x += 7) {
    for (int y = 0; y <= 480; y += 7) {
      const Picture picture{640, 480, 0.75};
      const CameraView view{200, 10, 55.5};
      const Pixel back = PixelOfDirection(picture, view, DirectionOfPixel(picture, view, {x, y}));
      ASSERT_EQ(back.x, x);
      ASSERT_EQ(back.y, y);
    }
  }
}

TEST(Camera, BothWaysAreThoseOfTheSameArithmeticInPython) {
  Random random;
  std::string data;
  std::string results;
  for (int i = 0; i < 1000; ++i) {
    const Picture picture{1 + random.Below(4000), 1 + random.Below(4000),
                          0.01 + random.Within(1.5)};
    const CameraView view{random.Within(430), random.Within(43) - 20, 0.1 + random.Within(110)};
    const Pixel pixel{random.Below(4000), random.Below(4000)};
    const Direction target{random.Within(430), random.Within(43) - 20};
    char line[400];
    snprintf(line, sizeof(line), "%d %d %a %a %a %a %d %d %a %a\n", picture.width, picture.height,
             picture.ratio, view.pan, view.tilt, view.fieldOfView, pixel.x, pixel.y,
             target.horizontal, target.vertical);
    data += line;
    const Direction direction = DirectionOfPixel(picture, view, pixel);
    const Pixel seen = PixelOfDirection(picture, view, target);
    snprintf(line, sizeof(line), "%.17g %.17g %d %d|", direction.horizontal, direction.vertical,
             seen.x, seen.y);
    results += line;
  }
  const auto lines = PythonLines(R"(
import math
out = ''
for line in d.decode().split('\n')[:-1]:
    f = line.split()
    w, h, px, py = (int(f[i]) for i in (0, 1, 6, 7))
    ratio, pan, tilt, fov, th, tv = (float.fromhex(f[i]) for i in (2, 3, 4, 5, 8, 9))
    cx, cy = w // 2, h // 2
    out += '%.17g %.17g %d %d|' % (
        math.fmod(360 + (px - cx) * (fov / w) + pan, 360), tilt + (cy - py) * (ratio * fov / h),
        int(0.5 + cx + (th - pan) * (cx / (fov / 2))), int(0.5 + cy + (tilt - tv) * (cy / (ratio * fov / 2))))
print(out)
)",
                                 data);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(results, lines[0]);
}

TEST(Camera, APictureWithoutWidthOrHeightGivesInfinities) {
  const Direction direction = DirectionOfPixel({0, 0, 1}, {0, 0, 60}, {1, 1});
  EXPECT_TRUE(std::isnan(direction.horizontal));  // the remainder of infinity
  EXPECT_EQ(direction.vertical, -std::numeric_limits<double>::infinity());
  EXPECT_EQ(PixelOfDirection({0, 0, 1}, {0, 0, 60}, {10, 10}).x, 0);
}

TEST(Camera, OddNumbersDoNotTrap) {
  for (const double odd : {kNaN, HUGE_VAL, -HUGE_VAL, 1e300, -1e300, 0.0}) {
    (void)PixelOfDirection(kPicture, {odd, odd, odd}, {1, 1});
    (void)PixelOfDirection(kPicture, kView, {odd, odd});
    (void)DirectionOfPixel({kMin, kMax, odd}, {odd, odd, odd}, {kMax, kMin});
  }
  // All that fits no 32 bits is one number, as from any conversion on this processor.
  EXPECT_EQ(PixelOfDirection(kPicture, kView, {kNaN, 0}).x, kMin);
  EXPECT_EQ(PixelOfDirection(kPicture, kView, {1e300, 0}).x, kMin);
  EXPECT_EQ(PixelOfDirection(kPicture, kView, {-1e300, 0}).x, kMin);
}

TEST(Camera, DifferencesOfPixelsWrapAt32BitsKept) {
  const Picture picture{-10, 10, 1};
  EXPECT_EQ(DirectionOfPixel(picture, {0, 0, 10}, {kMax, 5}).horizontal,
            std::fmod(360 + 2147483644.0, 360));
}
