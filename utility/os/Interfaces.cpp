// The host's network interfaces.
#include "utility/os/Interfaces.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "utility/os/Socket.h"

namespace Tarn::Os {

namespace {

constexpr int kListBytes = 4000;

bool IsUp(int fd, ifreq request) {
  return ioctl(fd, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & IFF_UP) != 0;
}

void CutAlias(char (&name)[IFNAMSIZ]) {
  if (void* const colon = std::memchr(name, ':', sizeof(name))) *static_cast<char*>(colon) = '\0';
}

InterfaceSearch LastUp(int fd, const char* records, int bytes, in_addr& address) {
  auto result = InterfaceSearch::kNoneUp;
  char previous[IFNAMSIZ] = {};
  for (int at = 0; at + static_cast<int>(sizeof(ifreq)) <= bytes; at += sizeof(ifreq)) {
    ifreq record{};
    std::memcpy(&record, records + at, sizeof(record));
    if (record.ifr_addr.sa_family != AF_INET) continue;
    CutAlias(record.ifr_name);
    if (std::strncmp(record.ifr_name, previous, sizeof(previous)) == 0) continue;
    std::memcpy(previous, record.ifr_name, sizeof(previous));
    if (!IsUp(fd, record)) continue;
    address = reinterpret_cast<const sockaddr_in&>(record.ifr_addr).sin_addr;
    result = InterfaceSearch::kFound;
  }
  return result;
}

}  // namespace

InterfaceSearch FindLastUpAddress(in_addr& address) {
  Descriptor socket(AboveStandardStreams(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
  if (!socket.Valid()) return InterfaceSearch::kNoSocket;
  alignas(ifreq) char records[kListBytes];
  ifconf list{};
  list.ifc_len = kListBytes;
  list.ifc_buf = records;
  if (ioctl(socket.Get(), SIOCGIFCONF, &list) < 0) {
    const int error = errno;
    socket.Reset();
    errno = error;
    return InterfaceSearch::kNoList;
  }
  return LastUp(socket.Get(), records, list.ifc_len, address);
}

}  // namespace Tarn::Os
