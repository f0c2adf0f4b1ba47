// Polygons as text: vertices separated by ";", each a longitude, a "," and a latitude, closed
// implicitly. Read in one pass without temporary texts.
#ifndef TARN_UTILITY_CORE_POLYGONTEXT_H
#define TARN_UTILITY_CORE_POLYGONTEXT_H

#include <cstddef>
#include <optional>
#include <string_view>

#include "utility/core/Angles.h"

namespace Tarn::Core {

/// Numbers by atof's rules in the "C" locale, whatever the host's: white space, a sign, a decimal
/// or hexadecimal number, "inf" or "nan"; 0 without a number. The values are exact to the last bit,
/// save for what "nan(...)" holds.
class NumberReader {
 public:
  /// The number at the beginning of at ... end. Moves `at` behind it. Fields need no cutting out:
  /// what ends a field ends a number.
  double Read(const char*& at, const char* end);

 private:
  bool short_ =
      true;  // no number so far was too long for the quick way: the next may not be either
};

/// The vertices of a polygon text, from the left. Fields beyond the second of a vertex are passed
/// over; an empty text has no vertex, one that ends with ";" an empty last one.
class VertexReader {
 public:
  explicit VertexReader(std::string_view text) : left_(text), atEnd_(text.empty()) {}

  [[nodiscard]] bool AtEnd() const { return atEnd_; }

  /// The next vertex; nothing at the end and for a vertex without ",".
  std::optional<Position> Next();

 private:
  std::string_view left_;
  bool atEnd_;
  NumberReader numbers_;
};

/// The ends of the edge that closes a polygon.
struct ClosingEdge {
  Position first;
  Position last;
};

/// Hands every edge but the closing one to `visit(from, to)`, in order.
/// @return nothing for fewer than two vertices or one without ",", whatever has been visited
template <typename Visit>
std::optional<ClosingEdge> ForEachEdge(std::string_view text, Visit visit) {
  VertexReader reader(text);
  const std::optional<Position> first = reader.Next();
  if (!first || reader.AtEnd()) return std::nullopt;
  Position last = *first;
  while (!reader.AtEnd()) {
    const std::optional<Position> next = reader.Next();
    if (!next) return std::nullopt;
    visit(last, *next);
    last = *next;
  }
  return ClosingEdge{*first, last};
}

/// The centroid of a polygon in degrees taken as plane coordinates; NaN or infinity without area.
/// @return nothing where ForEachEdge gives nothing
[[nodiscard]] std::optional<Position> CentroidOfText(std::string_view polygon);

/// The distance in metres of a position from the nearest edge, also from inside.
/// @return nothing where ForEachEdge gives nothing
[[nodiscard]] std::optional<double> DistanceFromText(Position position, std::string_view polygon);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_POLYGONTEXT_H
