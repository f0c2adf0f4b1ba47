// Raw ICMP sockets and the lookups around them.
//
// Results are 0 or a count on success and a negated error number on failure.
#ifndef TARN_UTILITY_OS_ICMP_H
#define TARN_UTILITY_OS_ICMP_H

#include <netinet/in.h>
#include <sys/time.h>

#include <vector>

#include "utility/os/DatagramSocket.h"
#include "utility/os/Handle.h"

namespace Tarn::Os {

/// The number of the protocol "icmp" as the platform's table tells it.
int IcmpProtocol();

/// A raw IPv4 socket, close-on-exec; invalid with errno set.
Descriptor OpenRawSocket(int protocol);

/// Gives up the effective user id for the real one.
int DropPrivileges();

/// The IPv4 address that a dotted text stands for, as inet_addr reads it; false when it is none.
bool ParseDotted(const char* text, in_addr& address);

/// All IPv4 addresses of a host name, in the resolver's order. Blocks as long as the resolver does.
int ResolveHost(const char* name, std::vector<in_addr>& addresses);

/// The wall clock.
timeval TimeOfDay();

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_ICMP_H
