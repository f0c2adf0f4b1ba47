// Many points at once, and the largest difference that they show.
#ifndef TARN_TESTS_GEODESYSWEEP_H
#define TARN_TESTS_GEODESYSWEEP_H

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace tarn_test {

using Row = std::vector<double>;
using Rows = std::vector<Row>;

/// Numbers evenly spread over ranges, the same in each run.
inline Rows Sweep(size_t count, const std::vector<std::array<double, 2>>& ranges) {
  std::mt19937_64 random(20240607);
  Rows rows(count);
  for (Row& row : rows) {
    for (const auto& [low, high] : ranges)
      row.push_back(std::uniform_real_distribution<double>(low, high)(random));
  }
  return rows;
}

/// Tells the largest difference and holds it between two bounds.
inline void ExpectMeasured(const std::string& what, double worst, const char* unit, double low,
                           double high) {
  printf("measured: %s: %.3g %s\n", what.c_str(), worst, unit);
  EXPECT_GE(worst, low) << what;
  EXPECT_LE(worst, high) << what;
}

}  // namespace tarn_test

#endif  // TARN_TESTS_GEODESYSWEEP_H
