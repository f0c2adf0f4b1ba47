// Addresses and ports on the command line.
#include "tools/Network.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <charconv>

#include "tools/Console.h"

namespace tarn_tool {

namespace {

bool ParsePort(const std::string& text, int& port) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  return error == std::errc{} && stop == end && port > 0 && port <= 65535;
}

/// The first IPv4 address of a name, as dotted text.
bool Resolve(const std::string& host, Target& target) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (error != 0) {
    Complain("%s: %s", host.c_str(), gai_strerror(error));
    return false;
  }
  const auto* address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
  inet_ntop(AF_INET, &address->sin_addr, target.address.data(), INET_ADDRSTRLEN);
  freeaddrinfo(found);
  return true;
}

/// A port that nobody has at this moment, or 0. Somebody may take it before the caller does.
int FindFreePort(Transport transport) {
  const int type = transport == Transport::kTcp ? SOCK_STREAM : SOCK_DGRAM;
  const int probe = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  if (probe < 0) return 0;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  const bool found = bind(probe, generic, length) == 0 && getsockname(probe, generic, &length) == 0;
  close(probe);
  return found ? ntohs(address.sin_port) : 0;
}

}  // namespace

std::optional<Target> ParseTarget(const std::string& text) {
  Target target;
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || !ParsePort(text.substr(colon + 1), target.port)) {
    Complain("%s: not of the form HOST:PORT", text.c_str());
    return std::nullopt;
  }
  if (!Resolve(text.substr(0, colon), target)) return std::nullopt;
  return target;
}

int StartOn(int port, Transport transport, const std::function<bool(int)>& start) {
  if (port != 0) return start(port) ? port : 0;
  constexpr int kAttempts = 20;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const int candidate = FindFreePort(transport);
    if (candidate != 0 && start(candidate)) return candidate;
  }
  return 0;
}

}  // namespace tarn_tool
