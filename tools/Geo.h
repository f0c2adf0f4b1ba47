// tarn geo: positions on the Earth.
#ifndef TARN_TOOLS_GEO_H
#define TARN_TOOLS_GEO_H

#include <CLI/CLI.hpp>
#include <functional>

namespace tarn_tool {

/// Adds `geo` and its own verbs; `verb` becomes the one that the command line names.
void AddGeo(CLI::App& app, std::function<int()>& verb);

}  // namespace tarn_tool

#endif  // TARN_TOOLS_GEO_H
