// Verbs for sockets that carry datagrams.
#include "utility/os/DatagramSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/udp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "utility/os/Socket.h"

namespace Tarn::Os {

namespace {

int Result(ssize_t returned) {
  return returned < 0 ? -errno : static_cast<int>(returned);
}

const sockaddr* Generalised(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

DottedText::DottedText(const in_addr& address) {
  // The buffer is large enough for every address.
  inet_ntop(AF_INET, &address, text, sizeof(text));
}

sockaddr_in AddressOf(const char* ip, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = inet_addr(ip);
  address.sin_port = htons(static_cast<unsigned short>(port));
  return address;
}

Descriptor OpenDatagramSocket() {
  return Descriptor(AboveStandardStreams(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)));
}

int BindAddress(int fd, const sockaddr_in& address) {
  return Result(bind(fd, Generalised(address), sizeof(address)));
}

int SetNonblockingAlone(int fd) {
  return Result(fcntl(fd, F_SETFL, O_NONBLOCK));
}

int JoinGroup(int fd, const char* group, const char* interfaceIp) {
  ip_mreq membership{};
  membership.imr_multiaddr.s_addr = inet_addr(group);
  membership.imr_interface.s_addr = inet_addr(interfaceIp);
  return Result(setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof(membership)));
}

int SetMulticastTtl(int fd, unsigned char hops) {
  return Result(setsockopt(fd, IPPROTO_IP, IP_MULTICAST_TTL, &hops, sizeof(hops)));
}

bool CanSegment(int fd) {
  int segment = 0;
  socklen_t size = sizeof(segment);
  return getsockopt(fd, SOL_UDP, UDP_SEGMENT, &segment, &size) == 0;
}

int SendTo(int fd, const void* data, size_t length, const sockaddr_in& to) {
  return Result(sendto(fd, data, length, MSG_NOSIGNAL, Generalised(to), sizeof(to)));
}

int SendSegmented(int fd, const void* data, size_t length, size_t segment, const sockaddr_in& to) {
  sockaddr_in name = to;
  iovec piece{const_cast<void*>(data), length};
  const auto segmentBytes = static_cast<uint16_t>(segment);
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(segmentBytes))] = {};
  msghdr message{};
  message.msg_name = &name;
  message.msg_namelen = sizeof(name);
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof(control);
  cmsghdr* const head = CMSG_FIRSTHDR(&message);
  head->cmsg_level = SOL_UDP;
  head->cmsg_type = UDP_SEGMENT;
  head->cmsg_len = CMSG_LEN(sizeof(segmentBytes));
  std::memcpy(CMSG_DATA(head), &segmentBytes, sizeof(segmentBytes));
  return Result(sendmsg(fd, &message, MSG_NOSIGNAL));
}

int ReceiveFrom(int fd, void* buffer, size_t room, sockaddr_in& from) {
  socklen_t length = sizeof(from);
  return Result(recvfrom(fd, buffer, room, 0, reinterpret_cast<sockaddr*>(&from), &length));
}

}  // namespace Tarn::Os
