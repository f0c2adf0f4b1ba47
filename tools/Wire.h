// tarn tcp and tarn udp: messages to and from a wire, through the library's own clients and
// servers.
#ifndef TARN_TOOLS_WIRE_H
#define TARN_TOOLS_WIRE_H

#include <CLI/CLI.hpp>
#include <functional>

namespace tarn_tool {

/// Add `tcp` and `udp` with their own verbs; `verb` becomes the one that the command line names.
void AddTcp(CLI::App& app, std::function<int()>& verb);
void AddUdp(CLI::App& app, std::function<int()>& verb);

}  // namespace tarn_tool

#endif  // TARN_TOOLS_WIRE_H
