// Polygon texts against a model of temporary texts and strtod.
#include <cmath>
#include <cstring>
#include <vector>

#include "fuzz/FuzzInput.h"
#include "utility/core/PlaneGeometry.h"
#include "utility/core/PolygonText.h"

namespace Core = Tarn::Core;
using tarn_fuzz::ExactBlock;

namespace {

constexpr size_t kLongest = 4096;

bool Same(double a, double b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0 || (std::isnan(a) && std::isnan(b));
}

std::vector<std::string> Fields(const std::string& text, char delimiter) {
  std::vector<std::string> fields;
  size_t start = 0;
  while (!text.empty()) {
    const size_t end = text.find(delimiter, start);
    fields.push_back(text.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return fields;
}

struct Model {
  std::vector<Core::Position> vertices;  // up to the first without a comma
  bool complete = true;
};

Model ModelRead(const std::string& text) {
  Model model;
  for (const std::string& field : Fields(text, ';')) {
    const std::vector<std::string> numbers = Fields(field, ',');
    if (numbers.size() < 2) {
      model.complete = false;
      break;
    }
    model.vertices.push_back(
        {std::strtod(numbers[0].c_str(), nullptr), std::strtod(numbers[1].c_str(), nullptr)});
  }
  return model;
}

void CheckVertices(std::string_view text, const Model& model) {
  Core::VertexReader reader(text);
  for (const Core::Position& expected : model.vertices) {
    FUZZ_CHECK(!reader.AtEnd());
    const auto vertex = reader.Next();
    FUZZ_CHECK(vertex && Same(vertex->lon, expected.lon) && Same(vertex->lat, expected.lat));
  }
  FUZZ_CHECK(reader.AtEnd() == model.complete);
  FUZZ_CHECK(!reader.Next());
}

void CheckCentroid(std::string_view text, const Model& model) {
  const auto centroid = Core::CentroidOfText(text);
  FUZZ_CHECK(centroid.has_value() == (model.complete && model.vertices.size() >= 2));
  if (!centroid) return;
  Core::CentroidSum sum;
  for (size_t k = 1; k <= model.vertices.size(); ++k) {
    const Core::Position& from = model.vertices[k - 1];
    const Core::Position& to = model.vertices[k % model.vertices.size()];
    sum.AddEdge({from.lon, from.lat}, {to.lon, to.lat});
  }
  FUZZ_CHECK(Same(centroid->lon, sum.Centroid().x) && Same(centroid->lat, sum.Centroid().y));
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), std::min(size, kLongest));
  const ExactBlock text(input.substr(0, input.find('\0')));  // texts end there
  const Model model = ModelRead(std::string(text.View()));
  CheckVertices(text.View(), model);
  CheckCentroid(text.View(), model);
  FUZZ_CHECK(Core::DistanceFromText({116, 39}, text.View()).has_value() ==
             (model.complete && model.vertices.size() >= 2));
  return 0;
}
