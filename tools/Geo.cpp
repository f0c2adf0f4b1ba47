// tarn geo: distances, bearings, moves and coordinate forms. Positions are LON LAT everywhere.
#include "tools/Geo.h"

#include <Tarn/Generic/ConvertLonLat.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/GeoPlane.h"
#include "tools/Numbers.h"

namespace tarn_tool {

namespace {

using Tarn::Generic::CConvertLonLat;

struct GeoOptions : CalculationOptions {
  std::string formula;
  int zoneWidth = 6;
  double meridian = 0;
};

constexpr int kDigitsOfDegrees = 9;  // a tenth of a millimetre
constexpr int kDigitsOfMetres = 4;

std::string Degrees(double value, const GeoOptions& options) {
  return NumberText(value, kDigitsOfDegrees, options.exact);
}

std::string Metres(double value, const GeoOptions& options) {
  return NumberText(value, kDigitsOfMetres, options.exact);
}

std::string PositionText(double lon, double lat, const GeoOptions& options) {
  return Degrees(lon, options) + " " + Degrees(lat, options);
}

std::string Distance(const GeoOptions& options, const std::vector<double>& n) {
  CConvertLonLat convert;
  double metres = 0;
  if (options.formula == "cosines") {
    metres = convert.GetDistanceA(n[0], n[1], n[2], n[3]);
  } else if (options.formula == "chord") {
    metres = convert.GetDistanceC(n[0], n[1], n[2], n[3]);
  } else {
    metres = convert.GetDistanceB(n[0], n[1], n[2], n[3]);
  }
  return Metres(metres, options);
}

std::string Bearing(const GeoOptions& options, const std::vector<double>& n) {
  return Degrees(CConvertLonLat().GetAnglex(n[0], n[1], n[2], n[3]), options);
}

std::string Move(const GeoOptions& options, const std::vector<double>& n) {
  CConvertLonLat convert;
  double lon = 0;
  double lat = 0;
  if (options.formula == "gauss") {
    convert.CalculateAimLonLat(n[0], n[1], n[2], n[3], lon, lat);
  } else if (options.formula == "plane") {
    convert.CalculateAimLonLatC(n[0], n[1], n[2], n[3], lon, lat);
  } else if (options.formula == "sphere") {
    convert.ConvertRangeAzimtoLonlat(n[0], n[1], n[3], n[2], lon, lat);
  } else {
    convert.CalculateAimLonLatB(n[0], n[1], n[2], n[3], lon, lat);
  }
  return PositionText(lon, lat, options);
}

std::string ToGrid(const GeoOptions& options, const std::vector<double>& n) {
  double x = 0;
  double y = 0;
  CConvertLonLat().Wgs84ToXY(n[1], n[0], options.zoneWidth, false, x, y);
  return Metres(x, options) + " " + Metres(y, options);
}

std::string FromGrid(const GeoOptions& options, const std::vector<double>& n) {
  CConvertLonLat convert;
  double lon = 0;
  double lat = 0;
  convert.XYToWgs84(n[0], n[1], convert.rad(options.meridian), lon, lat);
  return PositionText(lon, lat, options);
}

std::string Shift(const GeoOptions& options, const std::vector<double>& n) {
  double lon = 0;
  double lat = 0;
  CConvertLonLat().Transform(n[1], n[0], lat, lon);
  return PositionText(lon, lat, options);
}

struct GeoVerb {
  const char* name;
  const char* help;
  const char* wanted;
  size_t count;
  std::string (*calculate)(const GeoOptions&, const std::vector<double>&);
  std::vector<std::string> formulas;  // the first is the default
};

const std::vector<GeoVerb>& GeoVerbs() {
  static const std::vector<GeoVerb> verbs = {
      {"distance",
       "Metres between two positions",
       "LON1 LAT1 LON2 LAT2",
       4,
       Distance,
       {"haversine", "cosines", "chord"}},
      {"bearing",
       "Degrees from north, clockwise, on a flat model",
       "LON1 LAT1 LON2 LAT2",
       4,
       Bearing,
       {}},
      {"move",
       "The position reached along a bearing",
       "LON LAT BEARING METRES",
       4,
       Move,
       {"vincenty", "gauss", "plane", "sphere"}},
      {"xy", "Gauss-Krueger northing and easting of a WGS-84 position", "LON LAT", 2, ToGrid, {}},
      {"lonlat", "The WGS-84 position of a northing and an easting", "X Y", 2, FromGrid, {}},
      {"shift", "WGS-84 to the shifted national grid (GCJ-02)", "LON LAT", 2, Shift, {}}};
  return verbs;
}

int Calculate(const GeoVerb& verb, const GeoOptions& options) {
  const auto answer = [&](const std::vector<double>& numbers) -> std::optional<std::string> {
    if (numbers.size() != verb.count) return std::nullopt;
    return verb.calculate(options, numbers);
  };
  return AnswerNumbers(options.numbers, verb.wanted, verb.count, answer);
}

CLI::App* AddVerb(CLI::App& geo, const GeoVerb& row, const std::shared_ptr<GeoOptions>& options,
                  std::function<int()>& verb) {
  CLI::App* app = geo.add_subcommand(row.name, row.help);
  AddCalculationOptions(*app, *options, row.wanted);
  if (!row.formulas.empty()) {
    options->formula = row.formulas.front();
    app->add_option("--by", options->formula, "The formula")
        ->check(CLI::IsMember(row.formulas))
        ->capture_default_str();
  }
  app->callback(
      [&row, options, &verb] { verb = [&row, options] { return Calculate(row, *options); }; });
  return app;
}

}  // namespace

void AddGeo(CLI::App& app, std::function<int()>& verb) {
  CLI::App* geo = app.add_subcommand("geo", "Positions on the Earth, as LON LAT in degrees");
  geo->require_subcommand(1);
  for (const GeoVerb& row : GeoVerbs()) {
    const auto options = std::make_shared<GeoOptions>();
    CLI::App* added = AddVerb(*geo, row, options, verb);
    if (row.calculate == ToGrid) {
      added->add_option("--zone", options->zoneWidth, "Width of the zones, degrees")
          ->check(CLI::IsMember({3, 6}))
          ->capture_default_str();
    }
    if (row.calculate == FromGrid) {
      added->add_option("--meridian", options->meridian, "Central meridian, degrees")->required();
    }
  }
  AddGeoPlane(*geo, verb);
}

}  // namespace tarn_tool
