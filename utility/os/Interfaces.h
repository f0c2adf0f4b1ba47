// The host's network interfaces.
#ifndef TARN_UTILITY_OS_INTERFACES_H
#define TARN_UTILITY_OS_INTERFACES_H

#include <netinet/in.h>

namespace Tarn::Os {

/// What a search among the interfaces came to; errno tells why a step failed.
enum class InterfaceSearch { kFound, kNoneUp, kNoSocket, kNoList };

/// The IPv4 address of the last interface in the platform's list that is up. Aliases ("eth0:1")
/// count as the interface they belong to; of consecutive entries with one name the first counts.
InterfaceSearch FindLastUpAddress(in_addr& address);

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_INTERFACES_H
