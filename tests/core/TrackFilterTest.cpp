#include "utility/core/TrackFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Oracle.h"

using namespace Tarn::Core;
using namespace tarn_test;

namespace {

struct State {
  double x[5] = {};
  double K[5][5] = {};
  double F[5][5] = {};
  double H[5][5] = {};
  double Q[5][5] = {};
  double R[5][5] = {};
  double P[5][5] = {};

  TrackFilter Filter() { return {x, K, F, H, Q, R, P}; }
};

struct Matrix {
  double at[5][5];
};

Matrix RandomMatrix(std::mt19937& random, int range) {
  Matrix matrix{};
  for (auto& row : matrix.at) {
    for (double& element : row)
      element = static_cast<double>(random() % static_cast<unsigned>(2 * range + 1)) - range;
  }
  return matrix;
}

void AppendTo(std::string& text, const double* numbers, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    char number[40];
    snprintf(number, sizeof(number), "%a ", numbers[i]);
    text += number;
  }
}

std::vector<double> Numbers(const std::string& line) {
  std::vector<double> numbers;
  const char* at = line.c_str();
  for (char* behind = nullptr;; at = behind) {
    const double number = std::strtod(at, &behind);
    if (behind == at) return numbers;
    numbers.push_back(number);
  }
}

void ExpectNear(const std::vector<double>& expected, const double* actual, double relative) {
  for (size_t i = 0; i < expected.size(); ++i)
    EXPECT_NEAR(actual[i], expected[i], relative * std::max(1.0, std::fabs(expected[i]))) << i;
}

// Gauss-Jordan with rationals; "singular" where there is no inverse.
const char* const kInverse = R"(
from fractions import Fraction as F
for line in d.decode().splitlines():
    v = [F(float.fromhex(n)) for n in line.split()]
    m = [v[5 * r:5 * r + 5] + [F(r == c) for c in range(5)] for r in range(5)]
    for c in range(5):
        pivot = next((r for r in range(c, 5) if m[r][c]), None)
        if pivot is None:
            print('singular')
            break
        m[c], m[pivot] = m[pivot], m[c]
        m[c] = [e / m[c][c] for e in m[c]]
        for r in range(5):
            if r != c:
                m[r] = [e - m[r][c] * f for e, f in zip(m[r], m[c])]
    else:
        print(*(float(e) for row in m for e in row[5:]))
)";

// The filter once more, in plain lists; a line holds dt, lat and course of the fix before, and the
// measured state.
const char* const kKalman = R"(
import math
def mul(a, b):
    return [[sum(x * y for x, y in zip(row, column)) for column in zip(*b)] for row in a]
def add(a, b, sign=1):
    return [[x + sign * y for x, y in zip(r, s)] for r, s in zip(a, b)]
def eye(value):
    return [[value if r == c else 0.0 for c in range(5)] for r in range(5)]
def solve_inverse(a):
    # by cofactors, so that nothing of an elimination is repeated
    def det(m):
        if len(m) == 1:
            return m[0][0]
        return sum((-1) ** c * m[0][c] * det([row[:c] + row[c + 1:] for row in m[1:]]) for c in range(len(m)))
    full = det(a)
    return [[(-1) ** (r + c) * det([row[:r] + row[r + 1:] for i, row in enumerate(a) if i != c]) / full
             for c in range(5)] for r in range(5)]
x, F, Q, R, P = [0.0] * 5, eye(1.0), eye(1e-8), eye(1e-8), eye(1.0)
for line in d.decode().splitlines():
    dt, lat, course, *z = (float.fromhex(n) for n in line.split())
    xp = [row[0] for row in mul(F, [[v] for v in x])]
    Pp = add(mul(mul(F, P), [list(c) for c in zip(*F)]), Q)
    K = mul(Pp, solve_inverse(add(Pp, R)))
    x = [p + row[0] for p, row in zip(xp, mul(K, [[m - p] for m, p in zip(z, xp)]))]
    P = mul(add(eye(1.0), K, -1), Pp)
    F[0][3] = 1.852 * math.sin(course) * dt / 399600
    F[1][3] = 1.852 * math.cos(course) * dt / (math.cos(lat) * 399600)
    print(*x, *(row[0] for row in mul(F, [[v] for v in x])), *sum(K, []))
)";

}  // namespace

TEST(TrackFilter, AResetWritesTheStateTheDiagonalsAndTheMotionOnlyKept) {
  State state;
  std::fill_n(state.x, 5, 7.0);
  for (auto* matrix : {state.K, state.F, state.H, state.Q, state.R, state.P}) {
    for (int row = 0; row < 5; ++row)
      std::fill_n(matrix[row], 5, 7.0);
  }
  ResetTrack(state.Filter());
  for (int row = 0; row < 5; ++row) {
    EXPECT_EQ(state.x[row], 0);
    for (int column = 0; column < 5; ++column) {
      const bool diagonal = row == column;
      const bool motion = column == 3 && row < 2;
      EXPECT_EQ(state.K[row][column], 7);
      EXPECT_EQ(state.F[row][column], diagonal ? 1.0 : motion ? 0.0 : 7.0);
      EXPECT_EQ(state.H[row][column], diagonal ? 1.0 : 7.0);
      EXPECT_EQ(state.Q[row][column], diagonal ? 1e-8 : 7.0);
      EXPECT_EQ(state.R[row][column], diagonal ? 1e-8 : 7.0);
      EXPECT_EQ(state.P[row][column], diagonal ? 1.0 : 7.0);
    }
  }
}

TEST(TrackFilter, TheFirstMeasurementIsTakenAlmostWhole) {
  State state;
  ResetTrack(state.Filter());
  CorrectTrack(state.Filter(), {39.9, 116.3, 5, 12, 1.5});
  const double measured[] = {39.9, 116.3, 5, 12, 1.5};
  const double gain = (1 + 1e-8) / (1 + 2e-8);
  for (int row = 0; row < 5; ++row) {
    for (int column = 0; column < 5; ++column)
      EXPECT_NEAR(state.K[row][column], row == column ? gain : 0, 1e-15);
    EXPECT_DOUBLE_EQ(state.x[row], gain * measured[row]);
  }
  EXPECT_NEAR(state.K[0][0], 0.99999999, 1e-9);
}

TEST(TrackFilter, AgreesWithAnIndependentFilterOverALongTrack) {
  std::mt19937 random(8);
  State state;
  ResetTrack(state.Filter());
  std::string data;
  std::vector<std::vector<double>> results;
  for (int i = 0; i < 60; ++i) {
    const auto within = [&random](double limit) {
      return static_cast<double>(random()) * limit / 4294967296.0;
    };
    const double dt = 1 + within(20);
    const double lat = 39 + within(1);
    const double course = within(6.28);
    const Vector5 measured{39.9 + within(0.1), 116.3 + within(0.1), within(10), 10 + within(10),
                           course};
    AppendTo(data, std::vector{dt, lat, course}.data(), 3);
    AppendTo(data, measured.data(), 5);
    data += "\n";
    CorrectTrack(state.Filter(), measured);
    SetTrackMotion(state.F, lat, course, dt);
    const Vector5 next = PredictTrack(state.F, state.x);
    std::vector<double> result(state.x, state.x + 5);
    result.insert(result.end(), next.begin(), next.end());
    result.insert(result.end(), &state.K[0][0], &state.K[4][4] + 1);
    results.push_back(result);
  }
  const auto lines = PythonLines(kKalman, data);
  ASSERT_EQ(lines.size(), results.size());
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::vector<double> expected = Numbers(lines[i]);
    ASSERT_EQ(expected.size(), 35u);
    ExpectNear(expected, results[i].data(), 1e-11);
  }
}

TEST(TrackFilter, MotionTakesCourseAndLatitudeAsTheyAreKept) {
  State state;
  SetTrackMotion(state.F, 60, 90, 3600);
  EXPECT_EQ(state.F[0][3], 1.852 * std::sin(90.0) * 3600 / 399600);
  EXPECT_EQ(state.F[1][3], 1.852 * std::cos(90.0) * 3600 / (std::cos(60.0) * 399600));
  for (int i = 0; i < 5; ++i)
    EXPECT_EQ(state.F[i][i], 1.0);
}

TEST(TrackFilter, AnHourAtOneKnotTowardsTheFirstAxisIsASixtiethDegreeAndABit) {
  State state;
  SetTrackMotion(state.F, 0, std::acos(-1.0) / 2, 3600);
  const double x[5] = {10, 20, 30, 1, 50};
  const Vector5 next = PredictTrack(state.F, x);
  EXPECT_NEAR(next[kTrackLat], 10 + 1.852 / 111, 1e-12);
  EXPECT_NEAR(next[kTrackLon], 20, 1e-12);
  EXPECT_EQ(next[kTrackAux], 30);
  EXPECT_EQ(next[kTrackSpeed], 1);
  EXPECT_EQ(next[kTrackCourse], 50);
}

TEST(TrackFilter, ASingularInnovationKeepsTheGainKept) {
  State state;  // all zero: the innovation's covariance, too
  for (int i = 0; i < 5; ++i) {
    state.F[i][i] = 1;
    state.K[i][i] = 0.5;
  }
  CorrectTrack(state.Filter(), {2, 4, 6, 8, 10});
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(state.K[i][i], 0.5);
    EXPECT_EQ(state.x[i], i + 1.0);
    EXPECT_EQ(state.P[i][i], 0.0);
  }
}

TEST(TrackFilter, NumbersThatAreNoneStayInTheStateTheyBelongTo) {
  State state;
  ResetTrack(state.Filter());
  CorrectTrack(state.Filter(), {std::nan(""), 1, 2, 3, 4});
  EXPECT_TRUE(std::isnan(state.x[0]));
  CorrectTrack(state.Filter(), {1, 1, HUGE_VAL, 3, 4});
  EXPECT_TRUE(std::isnan(state.x[0]));
}

TEST(MatrixInverse, OfTheIdentityIsTheIdentity) {
  Matrix identity{};
  for (int i = 0; i < 5; ++i)
    identity.at[i][i] = 1;
  Matrix out{};
  EXPECT_TRUE(Invert(identity.at, out.at));
  EXPECT_EQ(std::memcmp(&out, &identity, sizeof(out)), 0);
}

TEST(MatrixInverse, AgreesWithExactArithmetic) {
  std::mt19937 random(9);
  std::string data;
  std::vector<Matrix> inverses;
  std::vector<bool> found;
  for (int i = 0; i < 500; ++i) {
    // Small ranges make exchanged rows and singular matrices common.
    const Matrix matrix = RandomMatrix(random, i % 2 == 0 ? 1 : 1000);
    AppendTo(data, &matrix.at[0][0], 25);
    data += "\n";
    Matrix inverse{};
    const Matrix before = matrix;
    found.push_back(Invert(matrix.at, inverse.at));
    ASSERT_EQ(std::memcmp(&before, &matrix, sizeof(matrix)), 0);
    inverses.push_back(inverse);
  }
  const auto lines = PythonLines(kInverse, data);
  ASSERT_EQ(lines.size(), inverses.size());
  int singular = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i] == "singular") {
      // Rounding may leave a pivot that is not quite 0; with entries of 0 and 1 it mostly is.
      singular += found[i] ? 0 : 1;
      continue;
    }
    ASSERT_TRUE(found[i]) << i;
    ExpectNear(Numbers(lines[i]), &inverses[i].at[0][0], 1e-9);
  }
  EXPECT_GT(singular, 20);
}

TEST(MatrixInverse, OfAnyMatrixWithAZeroColumnOrRowIsRefused) {
  std::mt19937 random(10);
  for (int zero = 0; zero < 5; ++zero) {
    Matrix column = RandomMatrix(random, 50);
    Matrix row = RandomMatrix(random, 50);
    for (int i = 0; i < 5; ++i) {
      column.at[i][zero] = 0;
      row.at[zero][i] = 0;
    }
    Matrix out{};
    EXPECT_FALSE(Invert(column.at, out.at)) << zero;
    EXPECT_FALSE(Invert(row.at, out.at)) << zero;
  }
}

TEST(MatrixInverse, ExchangesRowsWhereThePivotIsZero) {
  Matrix matrix{};
  for (int i = 0; i < 5; ++i)
    matrix.at[i][4 - i] = i + 1;
  Matrix out{};
  ASSERT_TRUE(Invert(matrix.at, out.at));
  for (int row = 0; row < 5; ++row) {
    for (int column = 0; column < 5; ++column)
      EXPECT_EQ(out.at[row][column], row + column == 4 ? 1.0 / (column + 1) : 0.0);
  }
}

TEST(MatrixInverse, TheResultMayReplaceTheMatrix) {
  std::mt19937 random(11);
  Matrix matrix = RandomMatrix(random, 50);
  Matrix apart{};
  ASSERT_TRUE(Invert(matrix.at, apart.at));
  ASSERT_TRUE(Invert(matrix.at, matrix.at));
  EXPECT_EQ(std::memcmp(&matrix, &apart, sizeof(matrix)), 0);
}

TEST(MatrixInverse, TheFirstOfEqualPivotsIsTaken) {
  // With the second row as pivot the exact zeros of the first inverse row would not come out.
  Matrix matrix{};
  for (int i = 0; i < 5; ++i)
    matrix.at[i][i] = 3;
  matrix.at[1][0] = -3;
  Matrix out{};
  ASSERT_TRUE(Invert(matrix.at, out.at));
  EXPECT_EQ(out.at[0][0], 1.0 / 3);
  EXPECT_EQ(out.at[1][0], 1.0 / 3);
  EXPECT_EQ(out.at[0][1], 0.0);
}

TEST(MatrixInverse, OfNoNumbersIsNoNumbers) {
  Matrix matrix{};
  for (int i = 0; i < 5; ++i)
    matrix.at[i][i] = std::nan("");
  Matrix out{};
  EXPECT_TRUE(Invert(matrix.at, out.at));
  EXPECT_TRUE(std::isnan(out.at[0][0]));
}
