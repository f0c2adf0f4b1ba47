// The host's own address.
#include <Tarn/Generic/LocalIP.h>

#include <cstdio>
#include <cstring>

#include "utility/os/Interfaces.h"

namespace Tarn {

int GetLocalIP(char* out) {
  in_addr address{};
  switch (Os::FindLastUpAddress(address)) {
    case Os::InterfaceSearch::kNoSocket:
      std::perror("socket failed");
      return 0;
    case Os::InterfaceSearch::kNoList:
      std::perror("ioctl error");
      return 0;
    case Os::InterfaceSearch::kNoneUp:
      return 0;
    case Os::InterfaceSearch::kFound:
      break;
  }
  if (out == nullptr) return 0;
  std::memcpy(out, &address, sizeof(address));
  return 1;
}

}  // namespace Tarn
