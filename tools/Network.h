// Addresses and ports on the command line.
#ifndef TARN_TOOLS_NETWORK_H
#define TARN_TOOLS_NETWORK_H

#include <arpa/inet.h>

#include <array>
#include <functional>
#include <optional>
#include <string>

namespace tarn_tool {

struct Target {
  std::array<char, INET_ADDRSTRLEN> address{};  ///< dotted
  int port = 0;
};

/// Reads HOST:PORT and looks the host up; complains when it cannot.
std::optional<Target> ParseTarget(const std::string& text);

enum class Transport { kTcp, kUdp };

/// Lets `start` try the given port, or free ones when it is 0, until it succeeds.
/// @return the port, 0 when none would do
int StartOn(int port, Transport transport, const std::function<bool(int)>& start);

}  // namespace tarn_tool

#endif  // TARN_TOOLS_NETWORK_H
