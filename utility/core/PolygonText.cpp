// Reading polygon texts, and what can be told of a polygon while reading it.
#include "utility/core/PolygonText.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>

#include "utility/core/GreatCircle.h"
#include "utility/core/PlaneGeometry.h"

namespace Tarn::Core {

namespace {

bool IsSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsHexDigit(char c) {
  return IsDigit(c) || ((c | 0x20) >= 'a' && (c | 0x20) <= 'f');
}

bool HasHexMark(const char* at, const char* end) {
  return end - at >= 3 && at[0] == '0' && (at[1] | 0x20) == 'x' &&
         (IsHexDigit(at[2]) || at[2] == '.');
}

/// Not beyond the end of the hexadecimal number at `at`: from_chars takes exponents with two signs.
const char* BoundOfHex(const char* at, const char* end) {
  while (at < end && (IsHexDigit(*at) || *at == '.'))
    ++at;
  if (at == end || (*at | 0x20) != 'p') return at;
  ++at;
  if (at < end && (*at == '+' || *at == '-')) ++at;
  while (at < end && IsDigit(*at))
    ++at;
  return at;
}

/// The exponent behind its mark, cut to what any text's digits may add to.
int64_t ReadExponent(const char* at, const char* end) {
  constexpr int64_t kFar = std::numeric_limits<int64_t>::max() / 4;
  if (at < end && *at == '+') ++at;
  int64_t exponent = 0;
  if (std::from_chars(at, end, exponent).ec == std::errc::result_out_of_range) {
    return *at == '-' ? -kFar : kFar;
  }
  return std::clamp(exponent, -kFar, kFar);
}

/// What a number beyond the range of doubles becomes: infinity when it is too large, else 0.
double BeyondRange(const char* at, const char* end, bool hex) {
  const char mark = hex ? 'p' : 'e';
  int64_t magnitude = 0;  // digits between the first that is not 0 and the point
  bool point = false;
  bool counting = false;
  for (; at < end && (*at | 0x20) != mark; ++at) {
    if (*at == '.') {
      point = true;
      continue;
    }
    counting = counting || *at != '0';
    if (counting && !point) ++magnitude;
    if (!counting && point) --magnitude;
  }
  const int64_t exponent = at < end ? ReadExponent(at + 1, end) : 0;
  const bool large = (hex ? 4 * magnitude : magnitude) + exponent > 0;
  return large ? std::numeric_limits<double>::infinity() : 0.0;
}

/// What stands behind white space and sign.
struct Magnitude {
  double value;
  const char* behind;  ///< null when there is no number
};

const char* SkipDigits(const char* at, const char* end, uint64_t& number) {
  for (; at < end && IsDigit(*at); ++at)
    number = 10 * number + static_cast<uint64_t>(*at - '0');
  return at;
}

/// Digits with a point, as coordinates are written: a double holds both the digits and the power of
/// ten exactly, so that one division rounds rightly. W. D. Clinger, "How to read floating point
/// numbers accurately", 1990. No number where the text is of another kind.
Magnitude ReadShortDecimal(const char* at, const char* end) {
  static constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                            1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
  constexpr ptrdiff_t kMostDigits = 15;
  uint64_t number = 0;
  const char* const point = SkipDigits(at, end, number);
  ptrdiff_t digits = point - at;
  ptrdiff_t decimals = 0;
  const char* behind = point;
  if (point < end && *point == '.') {
    behind = SkipDigits(point + 1, end, number);
    decimals = behind - point - 1;
    digits += decimals;
  }
  const bool goesOn = behind < end && ((*behind | 0x20) == 'e' || (*behind | 0x20) == 'x');
  if (digits == 0 || digits > kMostDigits || goesOn) return {0.0, nullptr};
  return {static_cast<double>(number) / kPowersOfTen[decimals], behind};
}

Magnitude ReadAnyMagnitude(const char* at, const char* end) {
  if (at < end && *at == '-') return {0.0, nullptr};  // from_chars would take this second sign
  const bool hex = HasHexMark(at, end);
  const char* const digits = hex ? at + 2 : at;
  if (hex) end = BoundOfHex(digits, end);
  double value = 0.0;
  const auto [behind, error] = std::from_chars(
      digits, end, value, hex ? std::chars_format::hex : std::chars_format::general);
  if (error == std::errc::invalid_argument) return {0.0, hex ? digits : nullptr};
  if (error == std::errc::result_out_of_range) value = BeyondRange(digits, behind, hex);
  return {value, behind};
}

PlanePoint AsPlane(Position position) {
  return {position.lon, position.lat};
}

}  // namespace

double NumberReader::Read(const char*& at, const char* end) {
  while (at < end && IsSpace(*at))
    ++at;
  const bool negative = at < end && *at == '-';
  const char* const start = at < end && (negative || *at == '+') ? at + 1 : at;
  Magnitude magnitude{0.0, nullptr};
  if (short_) magnitude = ReadShortDecimal(start, end);
  short_ = magnitude.behind != nullptr;
  if (!short_) magnitude = ReadAnyMagnitude(start, end);
  if (magnitude.behind == nullptr) return 0.0;
  at = magnitude.behind;
  return negative ? -magnitude.value : magnitude.value;
}

std::optional<Position> VertexReader::Next() {
  if (atEnd_) return std::nullopt;
  const char* at = left_.data();
  const char* const end = at + left_.size();
  Position vertex{};
  vertex.lon = numbers_.Read(at, end);
  while (at < end && *at != ',' && *at != ';')
    ++at;
  if (at == end || *at == ';') return std::nullopt;
  vertex.lat = numbers_.Read(++at, end);
  while (at < end && *at != ';')
    ++at;
  atEnd_ = at == end;
  left_ = {atEnd_ ? end : at + 1, end};
  return vertex;
}

std::optional<Position> CentroidOfText(std::string_view polygon) {
  CentroidSum sum;
  const auto closing = ForEachEdge(
      polygon, [&sum](Position from, Position to) { sum.AddEdge(AsPlane(from), AsPlane(to)); });
  if (!closing) return std::nullopt;
  sum.AddEdge(AsPlane(closing->last), AsPlane(closing->first));
  const PlanePoint centroid = sum.Centroid();
  return Position{centroid.x, centroid.y};
}

std::optional<double> DistanceFromText(Position position, std::string_view polygon) {
  std::optional<double> nearest;
  const auto measure = [&nearest, position](Position a, Position b) {
    const double distance = NearestOnSegment(a, b, position).distance;
    nearest = nearest ? std::min(*nearest, distance) : distance;
  };
  const auto closing = ForEachEdge(polygon, measure);
  if (!closing) return std::nullopt;
  // Kept: measured from the first vertex to the last, against the ring's direction. The two
  // directions differ in the last digits.
  measure(closing->first, closing->last);
  return nearest;
}

}  // namespace Tarn::Core
