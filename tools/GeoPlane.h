// tarn geo inside, tarn geo iou: shapes in the plane.
#ifndef TARN_TOOLS_GEOPLANE_H
#define TARN_TOOLS_GEOPLANE_H

#include <CLI/CLI.hpp>
#include <functional>

namespace tarn_tool {

/// Adds both verbs to `geo`; `verb` becomes the one that the command line names.
void AddGeoPlane(CLI::App& geo, std::function<int()>& verb);

}  // namespace tarn_tool

#endif  // TARN_TOOLS_GEOPLANE_H
