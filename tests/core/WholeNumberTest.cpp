// Doubles cut to whole numbers, and arithmetic that wraps.
#include "utility/core/WholeNumber.h"

#include <gtest/gtest.h>

#include <limits>

using namespace Tarn::Core;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

TEST(WholeNumber, CutsTowardsZero) {
  EXPECT_EQ(CutToInt32(2.9), 2);
  EXPECT_EQ(CutToInt32(-2.9), -2);
  EXPECT_EQ(CutToInt32(-0.9), 0);
  EXPECT_EQ(CutToInt64(1e15 + 0.5), 1000000000000000);
  EXPECT_EQ(CutToInt64(-2.9), -2);
}

TEST(WholeNumber, KnowsTheLimits) {
  EXPECT_EQ(CutToInt32(2147483647.9), 2147483647);
  EXPECT_EQ(CutToInt32(-2147483648.9), INT32_MIN);
  EXPECT_EQ(CutToInt64(9223372036854774784.0), 9223372036854774784);
  EXPECT_EQ(CutToInt64(-9223372036854775808.0), INT64_MIN);
}

TEST(WholeNumber, WhatDoesNotFitIsTheLeast) {
  for (const double value : {kNaN, -kNaN, kInfinity, -kInfinity, 2147483648.0, -2147483649.0}) {
    EXPECT_EQ(CutToInt32(value), INT32_MIN) << value;
  }
  for (const double value : {kNaN, kInfinity, -kInfinity, 9223372036854775808.0, -1e19}) {
    EXPECT_EQ(CutToInt64(value), INT64_MIN) << value;
  }
}

TEST(WholeNumber, ProductsAndDifferencesWrap) {
  EXPECT_EQ(WrappingProduct(65536, 65536), 0);
  EXPECT_EQ(WrappingProduct(INT32_MIN, -1), INT32_MIN);
  EXPECT_EQ(WrappingProduct(-7, 6), -42);
  EXPECT_EQ(WrappingDifference(INT32_MIN, 1), INT32_MAX);
  EXPECT_EQ(WrappingDifference(3, 5), -2);
}
