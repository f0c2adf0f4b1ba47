// tarn geo inside, tarn geo iou: whether positions lie in a polygon, how far rectangles overlap.
#include "tools/GeoPlane.h"

#include <Tarn/Generic/ConvertLonLat.h>

#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/Console.h"
#include "tools/Numbers.h"

namespace tarn_tool {

namespace {

using Tarn::tagRECT;
using Tarn::Generic::CConvertLonLat;

constexpr int kUsageError = 2;
constexpr int kDigitsOfRatios = 9;

struct InsideOptions : CalculationOptions {
  std::string polygon;
};

struct Polygon {
  std::vector<double> lons;
  std::vector<double> lats;
};

/// Nothing when the text is not of the form LON,LAT;LON,LAT;... with three vertices at least.
std::optional<Polygon> ReadPolygon(const std::string& text) {
  Polygon polygon;
  for (size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
    end = text.find(';', start);
    const std::optional<std::vector<double>> vertex = ReadNumbers(text.substr(start, end - start));
    if (!vertex || vertex->size() != 2) return std::nullopt;
    polygon.lons.push_back((*vertex)[0]);
    polygon.lats.push_back((*vertex)[1]);
  }
  if (polygon.lons.size() < 3) return std::nullopt;
  return polygon;
}

int Inside(const InsideOptions& options) {
  std::optional<Polygon> polygon = ReadPolygon(options.polygon);
  if (!polygon) {
    Complain("--polygon wants LON,LAT;LON,LAT;LON,LAT and so on");
    return kUsageError;
  }
  const auto answer = [&polygon](const std::vector<double>& n) -> std::optional<std::string> {
    if (n.size() != 2) return std::nullopt;
    const int count = static_cast<int>(polygon->lons.size());
    const bool inside =
        CConvertLonLat().PNPoly(count, n[0], n[1], polygon->lons.data(), polygon->lats.data());
    return inside ? "inside" : "outside";
  };
  return AnswerNumbers(options.numbers, "LON LAT", 2, answer);
}

/// A rectangle from four whole numbers within 32 bits, in order.
std::optional<tagRECT> RectFrom(const double* numbers) {
  for (int i = 0; i < 4; ++i) {
    const bool fits = numbers[i] >= std::numeric_limits<int>::min() &&
                      numbers[i] <= std::numeric_limits<int>::max();
    if (!fits || numbers[i] != std::floor(numbers[i])) return std::nullopt;
  }
  if (numbers[0] > numbers[2] || numbers[1] > numbers[3]) return std::nullopt;
  return tagRECT{static_cast<int>(numbers[0]), static_cast<int>(numbers[1]),
                 static_cast<int>(numbers[2]), static_cast<int>(numbers[3])};
}

int Overlap(const CalculationOptions& options) {
  const auto answer = [&options](const std::vector<double>& n) -> std::optional<std::string> {
    if (n.size() != 8) return std::nullopt;
    const std::optional<tagRECT> a = RectFrom(&n[0]);
    const std::optional<tagRECT> b = RectFrom(&n[4]);
    if (!a || !b) return std::nullopt;
    return NumberText(CConvertLonLat().calculateIOU(*a, *b), kDigitsOfRatios, options.exact);
  };
  return AnswerNumbers(options.numbers,
                       "whole numbers LEFT TOP RIGHT BOTTOM (left to right, top to bottom), twice",
                       8, answer);
}

}  // namespace

void AddGeoPlane(CLI::App& geo, std::function<int()>& verb) {
  CLI::App* inside = geo.add_subcommand("inside", "Whether positions lie in a polygon");
  const auto insideOptions = std::make_shared<InsideOptions>();
  AddCalculationOptions(*inside, *insideOptions, "LON LAT");
  inside->add_option("--polygon", insideOptions->polygon, "LON,LAT;LON,LAT;LON,LAT and so on")
      ->required();
  inside->callback(
      [&verb, insideOptions] { verb = [insideOptions] { return Inside(*insideOptions); }; });

  CLI::App* iou = geo.add_subcommand("iou", "Shared area of two rectangles over what they cover");
  const auto iouOptions = std::make_shared<CalculationOptions>();
  AddCalculationOptions(*iou, *iouOptions, "LEFT TOP RIGHT BOTTOM twice, whole numbers");
  iou->callback([&verb, iouOptions] { verb = [iouOptions] { return Overlap(*iouOptions); }; });
}

}  // namespace tarn_tool
