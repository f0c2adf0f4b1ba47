// Verbs for sockets that carry datagrams.
#include "utility/os/DatagramSocket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/support/RawDatagrams.h"
#include "utility/os/Wait.h"

namespace {

using namespace Tarn::Os;
using namespace tarn_test;

TEST(DatagramSocket, ANewSocketClosesOnExecAndStandsAboveTheStandardStreams) {
  const int status = RunInChild([] {
    close(0);
    const Descriptor fd = OpenDatagramSocket();
    if (!fd.Valid() || fd.Get() < 3) return 1;
    if ((fcntl(fd.Get(), F_GETFD) & FD_CLOEXEC) == 0) return 2;
    struct stat info {};
    return fstat(0, &info) == -1 ? 0 : 3;  // the low one is free again
  });
  EXPECT_EQ(status, 0);
}

TEST(DatagramSocket, AddressesAreReadAsInetAddrDoes) {
  EXPECT_EQ(AddressOf("1.2.3.4", 5).sin_addr.s_addr, htonl(0x01020304));
  EXPECT_EQ(AddressOf("1.2.3.4", 5).sin_port, htons(5));
  EXPECT_EQ(AddressOf("0x7f.1", 65536 + 5).sin_addr.s_addr, htonl(0x7f000001));
  EXPECT_EQ(AddressOf("0x7f.1", 65536 + 5).sin_port, htons(5));
  EXPECT_EQ(AddressOf("", 0).sin_addr.s_addr, INADDR_NONE);
  EXPECT_STREQ(DottedText(AddressOf("10.20.30.40", 0).sin_addr).text, "10.20.30.40");
}

TEST(DatagramSocket, ErrorsAreNegatedErrorNumbers) {
  const sockaddr_in address = AddressOf("127.0.0.1", 9);
  sockaddr_in from{};
  char byte = 0;
  EXPECT_EQ(BindAddress(-1, address), -EBADF);
  EXPECT_EQ(SetNonblockingAlone(-1), -EBADF);
  EXPECT_EQ(JoinGroup(-1, "239.1.1.1", "0.0.0.0"), -EBADF);
  EXPECT_EQ(SetMulticastTtl(-1, 1), -EBADF);
  EXPECT_FALSE(CanSegment(-1));
  EXPECT_EQ(SendTo(-1, &byte, 1, address), -EBADF);
  EXPECT_EQ(SendSegmented(-1, &byte, 1, 1, address), -EBADF);
  EXPECT_EQ(ReceiveFrom(-1, &byte, 1, from), -EBADF);
}

TEST(DatagramSocket, SendsAndReceivesOneDatagram) {
  const Descriptor fd = OpenDatagramSocket();
  ASSERT_EQ(BindAddress(fd.Get(), AddressOf("127.0.0.1", 0)), 0);
  ASSERT_EQ(SetNonblockingAlone(fd.Get()), 0);
  EXPECT_EQ(fcntl(fd.Get(), F_GETFL) & O_NONBLOCK, O_NONBLOCK);
  RawDatagrams peer("127.0.0.2");
  EXPECT_EQ(SendTo(fd.Get(), "abc", 3, AddressOf("127.0.0.2", peer.Port())), 3);
  const auto question = peer.Receive();
  ASSERT_TRUE(question);
  EXPECT_EQ(question->bytes, "abc");
  sockaddr_in from{};
  char buffer[4] = {};
  EXPECT_EQ(ReceiveFrom(fd.Get(), buffer, 4, from), -EAGAIN);
  ASSERT_TRUE(peer.Send("127.0.0.1", question->port, "answer"));
  ASSERT_EQ(WaitReadable(fd.Get(), 5000), WaitResult::kReady);
  EXPECT_EQ(ReceiveFrom(fd.Get(), buffer, 3, from), 3);  // cut
  EXPECT_STREQ(buffer, "ans");
  EXPECT_EQ(ntohs(from.sin_port), peer.Port());
  EXPECT_STREQ(DottedText(from.sin_addr).text, "127.0.0.2");
}

TEST(DatagramSocket, ASegmentedSendArrivesAsManyDatagrams) {
  const Descriptor fd = OpenDatagramSocket();
  if (!CanSegment(fd.Get())) GTEST_SKIP() << "this kernel does not cut datagrams";
  RawDatagrams peer;
  const sockaddr_in to = AddressOf("127.0.0.1", peer.Port());
  const std::string message = PatternBytes(64 * 1000);
  for (const size_t length : {size_t{1001}, size_t{2000}, message.size()}) {
    ASSERT_EQ(SendSegmented(fd.Get(), message.data(), length, 1000, to), static_cast<int>(length));
    std::string joined;
    for (const Datagram& each : peer.Receive((length + 999) / 1000)) {
      EXPECT_EQ(each.bytes.size(), std::min<size_t>(1000, length - joined.size()));
      joined += each.bytes;
    }
    EXPECT_TRUE(joined == message.substr(0, length));
  }
  // More than one packet holds: nothing is sent.
  const std::string more = PatternBytes(70000);
  EXPECT_LT(SendSegmented(fd.Get(), more.data(), more.size(), 1400, to), 0);
  EXPECT_FALSE(peer.Receive(50ms));
}

TEST(DatagramSocket, JoinsAGroupOnAnInterface) {
  const Descriptor fd = OpenDatagramSocket();
  EXPECT_EQ(JoinGroup(fd.Get(), "239.1.2.3", "127.0.0.1"), 0);
  EXPECT_LT(JoinGroup(fd.Get(), "127.0.0.1", "127.0.0.1"), 0);
  EXPECT_LT(JoinGroup(fd.Get(), "", "127.0.0.1"), 0);
  EXPECT_EQ(SetMulticastTtl(fd.Get(), 64), 0);
  EXPECT_EQ(SocketOption(fd.Get(), IPPROTO_IP, IP_MULTICAST_TTL), 64);
}

}  // namespace
