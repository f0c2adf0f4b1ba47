// tarn track: filters and foretells a target's track, and draws what comes of it.
#include <Tarn/Generic/ConvertLonLat.h>

#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/Commands.h"
#include "tools/Console.h"
#include "tools/TrackPicture.h"

namespace tarn_tool {

namespace {

using Tarn::Generic::CConvertLonLat;
using Tarn::Generic::MeasuredValue;

constexpr size_t kColumns = 5;
using Row = std::array<std::string_view, kColumns>;

/// One line of the file.
struct Fix {
  double time;    // seconds
  double lat;     // degrees
  double lon;     // degrees, without a jump at 180
  double speed;   // knots
  double course;  // degrees clockwise from north
};

std::string_view Trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::optional<double> Number(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  double value = 0;
  const char* const end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || behind != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<Row> Split(std::string_view line) {
  Row row;
  for (size_t i = 0; i < kColumns; ++i) {
    const size_t comma = line.find(',');
    if ((comma == std::string_view::npos) != (i + 1 == kColumns)) return std::nullopt;
    row[i] = Trimmed(line.substr(0, comma));
    line.remove_prefix(i + 1 == kColumns ? line.size() : comma + 1);
  }
  return row;
}

bool IsHeader(const Row& row) {
  for (const std::string_view field : row) {
    if (field.empty() || Number(field)) return false;
  }
  return true;
}

/// Reads a track line by line and says which lines are wrong.
class TrackReader {
 public:
  explicit TrackReader(const std::string& name) : name_(name), file_(name) {}

  /// Nothing when the file cannot be read, a line is wrong or there are fewer than two fixes.
  std::optional<std::vector<Fix>> Read() {
    if (!file_.is_open()) return Refuse(ErrorText());
    for (std::string line; std::getline(file_, line);) {
      ++line_;
      const std::string_view text = Trimmed(line);
      if (!text.empty() && !text.starts_with('#')) TakeRow(text);
    }
    if (file_.bad()) return Refuse(ErrorText());
    if (wrong_) return std::nullopt;
    if (fixes_.size() < 2) return Refuse("a track needs two fixes at least");
    return fixes_;
  }

 private:
  std::nullopt_t Refuse(const std::string& reason) {
    Complain("%s: %s", name_.c_str(), reason.c_str());
    return std::nullopt;
  }

  void RefuseLine(const char* reason) {
    Complain("%s:%zu: %s", name_.c_str(), line_, reason);
    wrong_ = true;
  }

  void TakeRow(std::string_view text) {
    const bool first = !anyRow_;
    anyRow_ = true;
    const std::optional<Row> row = Split(text);
    if (!row) return RefuseLine("not the five columns time,lat,lon,speed,course");
    if (first && IsHeader(*row)) return;
    std::array<double, kColumns> numbers{};
    for (size_t i = 0; i < kColumns; ++i) {
      const std::optional<double> number = Number((*row)[i]);
      if (!number) return RefuseLine((std::string(kNames[i]) + " is not a number").c_str());
      numbers[i] = *number;
    }
    TakeFix({numbers[0], numbers[1], numbers[2], numbers[3], numbers[4]});
  }

  void TakeFix(Fix fix) {
    if (std::fabs(fix.lat) >= 90) return RefuseLine("lat is not between -90 and 90");
    if (std::fabs(fix.lon) > 360) return RefuseLine("lon is not between -360 and 360");
    if (fix.speed < 0 || fix.speed > 1e5) return RefuseLine("speed is not between 0 and 100000");
    if (std::fabs(fix.course) > 360) return RefuseLine("course is not between -360 and 360");
    if (!fixes_.empty()) {
      const Fix& last = fixes_.back();
      if (fix.time <= last.time) return RefuseLine("time is not later than in the row before");
      fix.lon += 360 * std::round((last.lon - fix.lon) / 360);
    }
    fixes_.push_back(fix);
  }

  static constexpr const char* kNames[kColumns] = {"time", "lat", "lon", "speed", "course"};
  const std::string name_;
  std::ifstream file_;
  size_t line_ = 0;
  bool anyRow_ = false;
  bool wrong_ = false;
  std::vector<Fix> fixes_;
};

MapPoint PointOf(const Fix& fix) {
  return {fix.lon, fix.lat};
}

double Radians(double degrees) {
  return CConvertLonLat().rad(degrees);
}

/// Seconds until the next fix; behind the last one as long as before it.
double StepFrom(const std::vector<Fix>& fixes, size_t i) {
  if (i + 1 == fixes.size()) --i;
  return fixes[i + 1].time - fixes[i].time;
}

MeasuredValue ValueOf(const Fix& fix) {
  return {fix.time, fix.lat, fix.lon, fix.speed, 0, fix.course};
}

/// Where the filter expects the next fix, from each one on.
std::vector<MapPoint> Filter(const std::vector<Fix>& fixes) {
  CConvertLonLat geo;
  geo.KalmanInit();
  std::vector<MapPoint> points;
  for (size_t i = 0; i < fixes.size(); ++i) {
    // The record before goes into the filter's sine and cosine only: as radians, the course counted
    // from east to north, since the sine moves the latitude.
    MeasuredValue last = ValueOf(fixes[i > 0 ? i - 1 : 0]);
    last.lat = Radians(last.lat);
    last.course = Radians(90 - last.course);
    geo.SetValueData(last, ValueOf(fixes[i]));
    MeasuredValue next{};
    geo.KalmanFilter(StepFrom(fixes, i), next);
    points.push_back({next.lon, next.lat});
  }
  return points;
}

/// Where each fix alone leads until the next one.
std::vector<MapPoint> Reckon(const std::vector<Fix>& fixes) {
  constexpr double kMetresPerSecondOfAKnot = 1852.0 / 3600.0;
  CConvertLonLat geo;
  std::vector<MapPoint> points;
  for (size_t i = 0; i < fixes.size(); ++i) {
    // The predictor takes speed * dt as its bearing and the course as its distance.
    const double seconds = StepFrom(fixes, i);
    MeasuredValue value = ValueOf(fixes[i]);
    value.speed = fixes[i].course / seconds;
    value.course = fixes[i].speed * kMetresPerSecondOfAKnot * seconds;
    MeasuredValue next{};
    geo.PredictValueBySD(value, next, seconds);
    points.push_back({next.lon, next.lat});
  }
  return points;
}

/// How far the next fixes lie from where they were expected, on average; metres.
double MeanMiss(const std::vector<MapPoint>& measured, const std::vector<MapPoint>& expected) {
  CConvertLonLat geo;
  double sum = 0;
  for (size_t i = 0; i + 1 < measured.size(); ++i) {
    sum += geo.GetDistanceB(expected[i].lon, expected[i].lat, measured[i + 1].lon,
                            measured[i + 1].lat);
  }
  return sum / static_cast<double>(measured.size() - 1);
}

}  // namespace

int Track(const TrackOptions& options) {
  const std::optional<std::vector<Fix>> fixes = TrackReader(options.file).Read();
  if (!fixes) return 1;
  TrackPicture picture;
  picture.source = options.file;
  for (const Fix& fix : *fixes)
    picture.measured.push_back(PointOf(fix));
  picture.filtered = Filter(*fixes);
  picture.predicted = Reckon(*fixes);
  if (!DrawTrack(picture, options.picture)) return 1;
  Say("%zu fixes; the next one was met by the filter to %.1f m, by dead reckoning to %.1f m, on "
      "average",
      fixes->size(), MeanMiss(picture.measured, picture.filtered),
      MeanMiss(picture.measured, picture.predicted));
  Say("drawn in %s", options.picture.c_str());
  return 0;
}

}  // namespace tarn_tool
