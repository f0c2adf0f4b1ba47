// Results to the last bit: peers compare them so. The other side is tests/geodesy_formulas.py.
#include <Tarn/Generic/ConvertLonLat.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Support.h"

using namespace tarn_test;
using Tarn::Generic::CConvertLonLat;

namespace {

using Row = std::vector<double>;
using Ranges = std::vector<std::array<double, 2>>;

Row Random(std::mt19937_64& random, const Ranges& ranges) {
  Row row;
  for (const auto& [low, high] : ranges)
    row.push_back(std::uniform_real_distribution<double>(low, high)(random));
  return row;
}

std::string Line(const std::string& name, const Row& row) {
  std::string line = name;
  for (const double number : row) {
    char text[40];
    snprintf(text, sizeof text, " %a", number);
    line += text;
  }
  return line + "\n";
}

Row Numbers(const std::string& line) {
  std::istringstream words(line);
  Row row;
  for (std::string word; words >> word;)
    row.push_back(strtod(word.c_str(), nullptr));
  return row;
}

using Operation = std::function<Row(CConvertLonLat&, const Row&)>;

/// Compares `operation` with the script's function of that name at random arguments.
void ExpectSameBits(const std::string& name, const Ranges& ranges, const Operation& operation) {
  std::mt19937_64 random(7);
  std::vector<Row> arguments;
  std::string questions;
  for (int i = 0; i < 2000; ++i) {
    arguments.push_back(Random(random, ranges));
    questions += Line(name, arguments.back());
  }
  const TempDir dir;
  WriteFile(dir.File("in"), questions);
  std::istringstream answers(
      RunCommand("python3 " TARN_SOURCE_DIR "/tests/geodesy_formulas.py < " + dir.File("in")));
  CConvertLonLat convert;
  for (const Row& row : arguments) {
    std::string line;
    ASSERT_TRUE(std::getline(answers, line)) << name;
    const Row expected = Numbers(line);
    const Row actual = operation(convert, row);
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
      ASSERT_EQ(std::bit_cast<uint64_t>(actual[i]), std::bit_cast<uint64_t>(expected[i]))
          << Line(name, row) << "result " << i << ": " << actual[i] << ", not " << expected[i];
    }
  }
}

const Ranges kTwoPositions = {{-180, 180}, {-89, 89}, {-180, 180}, {-89, 89}};

using Move = void (CConvertLonLat::*)(double, double, double, double, double&, double&);

Operation Moving(Move move) {
  return [move](CConvertLonLat& convert, const Row& r) {
    Row out(2);
    (convert.*move)(r[0], r[1], r[2], r[3], out[0], out[1]);
    return out;
  };
}

using OfTwoPositions = double (CConvertLonLat::*)(double, double, double, double);

Operation Between(OfTwoPositions function) {
  return [function](CConvertLonLat& convert, const Row& r) {
    return Row{(convert.*function)(r[0], r[1], r[2], r[3])};
  };
}

}  // namespace

TEST(GeodesyBits, ShiftedGrid) {
  ExpectSameBits("Transform", {{1, 55}, {73, 137}}, [](CConvertLonLat& convert, const Row& r) {
    Row out(2);
    convert.Transform(r[0], r[1], out[0], out[1]);
    return out;
  });
}

TEST(GeodesyBits, Projection) {
  const Operation project = [](CConvertLonLat& convert, const Row& r) {
    Row out(2);
    convert.Wgs84ToXY(r[0], r[1], static_cast<int>(r[2]), true, out[0], out[1]);
    return out;
  };
  ExpectSameBits("Wgs84ToXY", {{-89, 89}, {-180, 180}, {6, 6}}, project);
  ExpectSameBits("Wgs84ToXY", {{-89, 89}, {-180, 180}, {3, 3}}, project);
  ExpectSameBits("Wgs84ToXY", {{-89, 89}, {-180, 180}, {5, 5}}, project);
}

TEST(GeodesyBits, InverseProjection) {
  ExpectSameBits("XYToWgs84", {{-9.5e6, 9.5e6}, {1.5e5, 8.5e5}, {-3, 3}},
                 [](CConvertLonLat& convert, const Row& r) {
                   Row out(2);
                   convert.XYToWgs84(r[0], r[1], r[2], out[0], out[1]);
                   return out;
                 });
}

TEST(GeodesyBits, CartesianCoordinates) {
  ExpectSameBits("LBH2XYZ", {{-180, 180}, {-90, 90}, {-1e4, 1e6}},
                 [](CConvertLonLat& convert, const Row& r) {
                   Row out(3);
                   convert.LBH2XYZ(r[0], r[1], r[2], &out[0], &out[1], &out[2]);
                   return out;
                 });
  ExpectSameBits("XYZ2LBH", {{-7e6, 7e6}, {-7e6, 7e6}, {-7e6, 7e6}},
                 [](CConvertLonLat& convert, const Row& r) {
                   Row out(3);
                   convert.XYZ2LBH(r[0], r[1], r[2], &out[0], &out[1], &out[2]);
                   return out;
                 });
  ExpectSameBits("TransRect", {{-180, 180}, {-90, 90}}, [](CConvertLonLat& convert, const Row& r) {
    Row out(2);
    convert.TransRect(r[0], r[1], out[0], out[1]);
    return out;
  });
}

TEST(GeodesyBits, Distances) {
  ExpectSameBits("GetDistanceA", kTwoPositions, Between(&CConvertLonLat::GetDistanceA));
  ExpectSameBits("GetDistanceB", kTwoPositions, Between(&CConvertLonLat::GetDistanceB));
  ExpectSameBits("GetDistanceC", kTwoPositions, Between(&CConvertLonLat::GetDistanceC));
}

TEST(GeodesyBits, Bearings) {
  ExpectSameBits("GetAnglex", kTwoPositions, Between(&CConvertLonLat::GetAnglex));
  ExpectSameBits("GetAngle", {{-180, 180}, {-89, 89}, {0, 1e4}, {-180, 180}, {-89, 89}, {0, 1e4}},
                 [](CConvertLonLat& convert, const Row& r) {
                   Row out(3);
                   convert.GetAngle(r[0], r[1], r[2], r[3], r[4], r[5], out[0], out[1], out[2]);
                   return out;
                 });
}

TEST(GeodesyBits, Moves) {
  const Ranges moves = {{-180, 180}, {-89, 89}, {-360, 360}, {0, 5e6}};
  ExpectSameBits("CalculateAimLonLat", moves, Moving(&CConvertLonLat::CalculateAimLonLat));
  ExpectSameBits("CalculateAimLonLatB", moves, Moving(&CConvertLonLat::CalculateAimLonLatB));
  ExpectSameBits("CalculateAimLonLatB", {{-180, 180}, {-89, 89}, {-360, 360}, {0, 1e9}},
                 Moving(&CConvertLonLat::CalculateAimLonLatB));
  ExpectSameBits("CalculateAimLonLatC", moves, Moving(&CConvertLonLat::CalculateAimLonLatC));
  ExpectSameBits("ConvertRangeAzimtoLonlat", {{-180, 180}, {-89, 89}, {0, 5e6}, {-360, 360}},
                 Moving(&CConvertLonLat::ConvertRangeAzimtoLonlat));
}

TEST(GeodesyBits, NearestPoints) {
  ExpectSameBits(
      "GetNearestDistance", {{116, 117}, {39, 40}, {116, 117}, {39, 40}, {116, 117}, {39, 40}},
      [](CConvertLonLat& convert, const Row& r) {
        Row out(3);
        out[0] = convert.GetNearestDistance(r[0], r[1], r[2], r[3], r[4], r[5], out[1], out[2]);
        return out;
      });
  const Operation fromSegment = [](CConvertLonLat& convert, const Row& r) {
    return Row{convert.PointLine_Disp(r[0], r[1], r[2], r[3], r[4], r[5])};
  };
  ExpectSameBits("PointLine_Disp", {{-9, 9}, {-9, 9}, {-9, 9}, {-9, 9}, {-9, 9}, {-9, 9}},
                 fromSegment);
  ExpectSameBits("PointLine_Disp", {{-9, 9}, {-9, 9}, {-9, 9}, {2, 2}, {-9, 9}, {2, 2}},
                 fromSegment);
}
