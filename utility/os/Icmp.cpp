// Raw ICMP sockets and the lookups around them.
#include "utility/os/Icmp.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "utility/os/Socket.h"

namespace Tarn::Os {

namespace {

constexpr size_t kFirstLookupBytes = 2048;
constexpr size_t kMostLookupBytes = size_t{1} << 20;

int Result(ssize_t returned) {
  return returned < 0 ? -errno : static_cast<int>(returned);
}

// The resolver tells a failure in several ways; some of them leave errno as it was.
int LookupError(int returned) {
  if (returned > 0) return -returned;
  return errno != 0 ? -errno : -ENOENT;
}

void CopyAddresses(const hostent& host, std::vector<in_addr>& addresses) {
  for (char** at = host.h_addr_list; *at != nullptr; ++at) {
    in_addr address{};
    std::memcpy(&address, *at, sizeof(address));
    addresses.push_back(address);
  }
}

int Resolve(const char* name, std::vector<in_addr>& addresses) {
  std::vector<char> buffer(kFirstLookupBytes);
  while (true) {
    hostent host{};
    hostent* found = nullptr;
    int resolverError = 0;
    errno = 0;
    const int returned =
        gethostbyname_r(name, &host, buffer.data(), buffer.size(), &found, &resolverError);
    if (returned == ERANGE && buffer.size() < kMostLookupBytes) {
      buffer.resize(buffer.size() * 4);
      continue;
    }
    if (returned != 0 || found == nullptr) return LookupError(returned);
    CopyAddresses(*found, addresses);
    return addresses.empty() ? -ENOENT : 0;
  }
}

}  // namespace

int IcmpProtocol() {
  protoent protocol{};
  protoent* found = nullptr;
  char buffer[kFirstLookupBytes];
  errno = 0;
  const int returned = getprotobyname_r("icmp", &protocol, buffer, sizeof(buffer), &found);
  return returned == 0 && found != nullptr ? found->p_proto : LookupError(returned);
}

Descriptor OpenRawSocket(int protocol) {
  return Descriptor(AboveStandardStreams(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, protocol)));
}

int DropPrivileges() {
  return Result(setuid(getuid()));
}

bool ParseDotted(const char* text, in_addr& address) {
  address.s_addr = inet_addr(text);
  return address.s_addr != INADDR_NONE;
}

int ResolveHost(const char* name, std::vector<in_addr>& addresses) {
  try {
    return Resolve(name, addresses);
  } catch (const std::bad_alloc&) {
    return -ENOMEM;
  }
}

timeval TimeOfDay() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return now;
}

}  // namespace Tarn::Os
