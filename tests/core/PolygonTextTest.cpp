#include "utility/core/PolygonText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Oracle.h"
#include "tests/support/Support.h"

using namespace Tarn::Core;
using namespace tarn_test;

namespace {

double Read(const std::string& text) {
  const std::vector<char> exact(text.begin(), text.end());
  const char* at = exact.data();
  return NumberReader().Read(at, at + exact.size());
}

bool Same(double a, double b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0 || (std::isnan(a) && std::isnan(b));
}

void ExpectAsAtof(const std::string& text) {
  const double expected = strtod(text.c_str(), nullptr);
  EXPECT_TRUE(Same(Read(text), expected))
      << testing::PrintToString(text) << ": " << Read(text) << " instead of " << expected;
}

std::vector<Position> Vertices(const std::string& text) {
  std::vector<Position> vertices;
  VertexReader reader(text);
  while (const auto vertex = reader.Next())
    vertices.push_back(*vertex);
  return vertices;
}

std::string Shown(const std::vector<Position>& vertices) {
  std::string text;
  for (const Position& vertex : vertices)
    text += std::to_string(vertex.lon) + " " + std::to_string(vertex.lat) + ";";
  return text;
}

}  // namespace

TEST(PolygonText, NumbersAreReadByTheRulesOfAtof) {
  for (const char* text : {"",
                           "0",
                           "-0",
                           "+0",
                           "1",
                           "12abc",
                           "abc",
                           "-7",
                           "+7",
                           "+-7",
                           "-+7",
                           "--7",
                           "- 7",
                           " 7",
                           "\t\n\v\f\r7",
                           "1.5",
                           ".5",
                           "5.",
                           ".",
                           "-.",
                           "-.5",
                           "1e3",
                           "1E3",
                           "1e",
                           "1e+",
                           "1e+2x",
                           "1e-2",
                           "-1.5e-3",
                           "e5",
                           "1..5",
                           "1.5.5",
                           "1,5",
                           "0x10",
                           "0X1F",
                           "0x",
                           "-0x",
                           "0xg",
                           "0x.8",
                           "0x.",
                           "-0x.",
                           "0x.g",
                           "0x1p",
                           "0x1p+",
                           "0x1p4",
                           "0x1.8p-3",
                           "0x-1",
                           "0x1.8p+-3",
                           "0x1p-+3",
                           "0x1.8.8p1",
                           "1e+-3",
                           "0xinf",
                           "00x1",
                           "0x1.fffffffffffff8p0",
                           "inf",
                           "-inf",
                           "+INFINITY",
                           "infin",
                           "nan",
                           "-nan",
                           "NaN(12)",
                           "nan(",
                           "1e308",
                           "1e309",
                           "-1e309",
                           "1e400",
                           "1e-323",
                           "1e-324",
                           "-1e-400",
                           "5e-324",
                           "2e-324",
                           "3e-324",
                           "0e999999",
                           "1e99999999999999999999",
                           "1e-99999999999999999999",
                           "0x1p1024",
                           "-0x1p9999999999999999999999",
                           "0x1p-1074",
                           "0x1p-1075",
                           "0x1.8p-1075",
                           "0x1p-1080",
                           "0x0.0000001p-1060",
                           "9007199254740993",
                           "123456789012345",
                           "1234567890123456",
                           "12345678901234567890123",
                           "0.1",
                           "116.30",
                           "39.900000000000006",
                           "0.000000000000001",
                           "999999999999.999",
                           "000000000000000000116.3",
                           "116.30000000000000000000",
                           "2.2250738585072011e-308",
                           "2.2250738585072014e-308",
                           "1.7976931348623158e308",
                           "1.7976931348623159e308",
                           "179769313486231580793728971405303415e273",
                           "\xA0"
                           "7",
                           "1\xFF"}) {
    ExpectAsAtof(text);
  }
}

TEST(PolygonText, NumbersOfEveryLengthAreRightToTheLastBit) {
  std::mt19937_64 random(3);
  for (int i = 0; i < 8000; ++i) {
    const size_t whole = random() % 19;
    const size_t decimals = random() % 19;
    std::string text = random() % 2 == 0 ? "-" : "";
    for (size_t k = 0; k < whole; ++k)
      text += static_cast<char>('0' + random() % 10);
    text += '.';
    for (size_t k = 0; k < decimals; ++k)
      text += static_cast<char>('0' + random() % 10);
    ExpectAsAtof(text);
    if (i % 4 == 0)
      ExpectAsAtof(text + "e" + std::to_string(static_cast<int>(random() % 700) - 350));
    if (i % 4 == 1)
      ExpectAsAtof("0x" + text.substr(text[0] == '-') + "p" +
                   std::to_string(static_cast<int>(random() % 2400) - 1200));
  }
}

TEST(PolygonText, EveryDoubleIsReadBackFromSeventeenDigits) {
  std::mt19937_64 random(4);
  for (int i = 0; i < 8000; ++i) {
    const uint64_t bits = random();
    double value = 0;
    std::memcpy(&value, &bits, sizeof(value));
    char text[40];
    snprintf(text, sizeof(text), i % 2 == 0 ? "%.17g" : "%a", value);
    if (std::isnan(value)) continue;
    EXPECT_TRUE(Same(Read(text), value)) << text;
  }
}

TEST(PolygonText, HugeDigitRunsOutOfRangeAreToldApart) {
  const std::string zeros(400, '0');
  EXPECT_EQ(Read("1" + zeros), std::numeric_limits<double>::infinity());
  EXPECT_EQ(Read("1" + zeros + "e-400"), 1.0);
  EXPECT_EQ(Read("1" + zeros + "e-900"), 0.0);
  EXPECT_EQ(Read("0." + zeros + "1"), 0.0);
  EXPECT_EQ(Read("0." + zeros + "1e401"), 1.0);
  EXPECT_EQ(Read("0." + zeros + "1e900"), std::numeric_limits<double>::infinity());
  EXPECT_TRUE(std::signbit(Read("-0." + zeros + "1")));
  EXPECT_EQ(Read("0x0." + zeros + "1p-5"), 0.0);
  EXPECT_EQ(Read("0x" + zeros + "1p1024"), std::numeric_limits<double>::infinity());
}

TEST(PolygonText, NumbersHaveAPointInEveryLocale) {
  // A locale with nothing but the comma: whole ones take seconds to make.
  const TempDir dir;
  WriteFile(dir.File("source"),
            "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3\nEND LC_NUMERIC\n");
  RunCommand("cd '" + dir.Path() + "' && localedef -c -i source -f ISO-8859-1 ./comma 2>&1");
  if (!Exists(dir.File("comma/LC_NUMERIC"))) GTEST_SKIP() << "no locale can be made here";
  EXPECT_EQ(RunInChild([&dir] {
              setenv("LOCPATH", dir.Path().c_str(), 1);
              if (setlocale(LC_NUMERIC, "comma") == nullptr) return 2;
              if (std::strcmp(localeconv()->decimal_point, ",") != 0) return 3;
              if (Read("2.75") != 2.75 || Read("2.75e0") != 2.75 || Read("0x1.8") != 1.5) return 4;
              const auto centroid = CentroidOfText("0.5,0.5;2.5,0.5;2.5,2.5;0.5,2.5");
              return centroid && centroid->lon == 1.5 && centroid->lat == 1.5 ? 0 : 5;
            }),
            0);
}

TEST(PolygonText, VerticesAreReadInOrder) {
  EXPECT_EQ(Shown(Vertices("116.5,39.25;-116.5,-39.25")),
            "116.500000 39.250000;-116.500000 -39.250000;");
  EXPECT_EQ(Shown(Vertices(" 1 , 2 ;\t3,\n4")), "1.000000 2.000000;3.000000 4.000000;");
}

TEST(PolygonText, FieldsBehindTheSecondArePassedOver) {
  EXPECT_EQ(Shown(Vertices("1,2,3;4,5,,;6,7x;8z,9")),
            "1.000000 2.000000;4.000000 5.000000;6.000000 7.000000;8.000000 9.000000;");
}

TEST(PolygonText, EmptyFieldsAre0) {
  EXPECT_EQ(Shown(Vertices(",;1,;,2")), "0.000000 0.000000;1.000000 0.000000;0.000000 2.000000;");
}

TEST(PolygonText, AVertexWithoutACommaEndsTheReading) {
  EXPECT_EQ(Vertices("").size(), 0u);
  EXPECT_EQ(Vertices("1").size(), 0u);
  EXPECT_EQ(Vertices(";1,2").size(), 0u);
  EXPECT_EQ(Vertices("1,2;3;4,5").size(), 1u);
  EXPECT_EQ(Vertices("1,2;").size(), 1u);
}

TEST(PolygonText, ALoneLongNumberLeavesTheOthersRight) {
  EXPECT_EQ(Shown(Vertices("1.5,0.10000000000000000000000000001;2.5,1e1;3.25,4.75")),
            "1.500000 0.100000;2.500000 10.000000;3.250000 4.750000;");
}

TEST(PolygonText, EdgesAreVisitedInOrderAndTheClosingOneIsHandedBack) {
  std::string visited;
  const auto closing = ForEachEdge("1,2;3,4;5,6", [&visited](Position from, Position to) {
    visited += Shown({from, to}) + "|";
  });
  EXPECT_EQ(visited, "1.000000 2.000000;3.000000 4.000000;|3.000000 4.000000;5.000000 6.000000;|");
  ASSERT_TRUE(closing);
  EXPECT_EQ(Shown({closing->first, closing->last}), "1.000000 2.000000;5.000000 6.000000;");
}

TEST(PolygonText, FewerThanTwoVerticesOrOneWithoutACommaAreNoPolygon) {
  for (const char* text : {"", ";", ";;", "1", "1,2", "1,2;", "1,2;3", "1,2;3,4;", ";1,2;3,4",
                           "1,2;;3,4", "x", "1;2"}) {
    EXPECT_FALSE(CentroidOfText(text)) << text;
    EXPECT_FALSE(DistanceFromText({0, 0}, text)) << text;
  }
}

TEST(PolygonText, EveryCutOfAPolygonIsReadWithoutReadingBeyondIt) {
  const std::string text = "116.30,39.90;0x1p3,1e2;nan,-inf;116.35,39.95";
  for (size_t length = 0; length <= text.size(); ++length) {
    const std::vector<char> exact(text.begin(), text.begin() + static_cast<ptrdiff_t>(length));
    const std::string_view cut(exact.data(), exact.size());
    const size_t commas = static_cast<size_t>(std::count(cut.begin(), cut.end(), ','));
    EXPECT_EQ(Vertices(std::string(cut)).size(), commas);
    VertexReader reader(cut);
    while (reader.Next()) {
    }
  }
}

TEST(PolygonText, ACentroidIsThatOfTheSameArithmeticInPython) {
  std::mt19937 random(5);
  std::string data;
  std::string results;
  for (int i = 0; i < 300; ++i) {
    std::string text;
    for (size_t k = 0, n = 2 + random() % 30; k < n; ++k) {
      char vertex[80];
      snprintf(vertex, sizeof(vertex), "%s%.*f,%.*f", k == 0 ? "" : ";",
               static_cast<int>(random() % 18), static_cast<double>(random()) / 1e8 + 70,
               static_cast<int>(random() % 18), static_cast<double>(random()) / 1e8);
      text += vertex;
    }
    data += text + "\n";
    const auto centroid = CentroidOfText(text);
    ASSERT_TRUE(centroid);
    char shown[80];
    snprintf(shown, sizeof(shown), "%.17g %.17g|", centroid->lon, centroid->lat);
    results += std::strstr(shown, "nan") != nullptr ? "nan|" : shown;
  }
  const auto lines = PythonLines(R"(
out = ''
for line in d.decode().splitlines():
    v = [tuple(map(float, f.split(','))) for f in line.split(';')]
    area = lon = lat = 0.0
    for k in range(1, len(v) + 1):
        cx, cy = v[k % len(v)]
        px, py = v[k - 1]
        a = (px * cy - cx * py) / 2
        area += a
        lat += (cy + py) * a / 3
        lon += (cx + px) * a / 3
    out += '%.17g %.17g|' % (lon / area, lat / area) if area else 'nan|'
print(out)
)",
                                 data);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(results, lines[0]);
}

TEST(PolygonText, MovingAndMirroringAPolygonMovesAndMirrorsItsCentroid) {
  const auto plain = CentroidOfText("1,1;4,1;5,3;2,6");
  const auto moved = CentroidOfText("11,-6;14,-6;15,-4;12,-1");
  const auto mirrored = CentroidOfText("-1,1;-4,1;-5,3;-2,6");
  const auto reversed = CentroidOfText("2,6;5,3;4,1;1,1");
  ASSERT_TRUE(plain && moved && mirrored && reversed);
  EXPECT_NEAR(moved->lon, plain->lon + 10, 1e-12);
  EXPECT_NEAR(moved->lat, plain->lat - 7, 1e-12);
  EXPECT_NEAR(mirrored->lon, -plain->lon, 1e-12);
  EXPECT_NEAR(mirrored->lat, plain->lat, 1e-12);
  EXPECT_NEAR(reversed->lon, plain->lon, 1e-12);
}

TEST(PolygonText, NumbersThatAreNoneGiveACentroidThatIsNone) {
  for (const char* text : {"nan,0;1,0;1,1", "inf,0;1,0;1,1", "1e308,1e308;-1e308,1e308;0,-1e308"}) {
    const auto centroid = CentroidOfText(text);
    ASSERT_TRUE(centroid) << text;
    EXPECT_FALSE(std::isfinite(centroid->lon)) << text;
  }
}

TEST(PolygonText, TheNearestEdgeMayBeTheClosingOne) {
  const double near = DistanceFromText({-0.1, 0.5}, "0,0;1,0;1,1;0,1").value_or(-1);
  EXPECT_NEAR(near, 0.1 * 111319.49, 5);
  EXPECT_NEAR(DistanceFromText({1.1, 0.5}, "0,0;1,0;1,1;0,1").value_or(-1), near, 1);
}

TEST(PolygonText, TimeGrowsWithTheTextOnly) {
  // A walk over the rest of the text for each vertex would take hours.
  std::string text = "0,0";
  for (int i = 1; i < 1000000; ++i)
    text += ";" + std::to_string(i % 360) + ".25," + std::to_string(i % 90) + ".5";
  const Stopwatch watch;
  EXPECT_TRUE(CentroidOfText(text));
  EXPECT_LT(watch.ElapsedMs(), AtMost(30000));
}
