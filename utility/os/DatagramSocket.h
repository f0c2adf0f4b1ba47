// Verbs for sockets that carry datagrams.
//
// Results are 0 or a count on success and a negated error number on failure. Dotted texts are read
// as inet_addr does: what is none stands for 255.255.255.255.
#ifndef TARN_UTILITY_OS_DATAGRAMSOCKET_H
#define TARN_UTILITY_OS_DATAGRAMSOCKET_H

#include <netinet/in.h>

#include <cstddef>

#include "utility/os/Handle.h"

namespace Tarn::Os {

/// "a.b.c.d"
struct DottedText {
  explicit DottedText(const in_addr& address);
  char text[INET_ADDRSTRLEN];
};

/// A dotted text and a port in host order.
sockaddr_in AddressOf(const char* ip, int port);

/// A new UDP socket, close-on-exec; invalid with errno set.
Descriptor OpenDatagramSocket();

int BindAddress(int fd, const sockaddr_in& address);

/// Makes O_NONBLOCK the only flag of the descriptor; others that were set are gone.
int SetNonblockingAlone(int fd);

/// Joins a multicast group on the interface that has the address `interfaceIp`.
int JoinGroup(int fd, const char* group, const char* interfaceIp);
int SetMulticastTtl(int fd, unsigned char hops);

/// Whether the kernel cuts one send into datagrams by itself. One that does not would take
/// SendSegmented for a single long datagram.
bool CanSegment(int fd);

/// One datagram.
int SendTo(int fd, const void* data, size_t length, const sockaddr_in& to);
/// All bytes as datagrams of `segment` bytes and a last one of what is left; or none of them.
int SendSegmented(int fd, const void* data, size_t length, size_t segment, const sockaddr_in& to);
/// One datagram with its sender.
int ReceiveFrom(int fd, void* buffer, size_t room, sockaddr_in& from);

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_DATAGRAMSOCKET_H
