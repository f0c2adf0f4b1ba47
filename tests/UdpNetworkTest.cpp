// Multicast, and hosts that are really two: in networks of their own, for which the tests need
// privileges.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <thread>

#include "tests/UdpFaults.h"
#include "tests/UdpFixtures.h"
#include "tests/support/Capture.h"

namespace {

using namespace tarn_test;
using testing::ElementsAre;

char kGroup[] = "239.1.2.3";
constexpr int kPort = 5007;  // of a network that nobody else uses
constexpr auto kSilence = 300ms;

/// One network with its loopback, over which all groups can be reached.
class Loopback : public testing::Test {
 protected:
  void SetUp() override {
    if (!network_.Valid() || !network_.Ip("route add 224.0.0.0/4 dev lo")) {
      GTEST_SKIP() << "networks of its own need privileges";
    }
  }
  OwnNetwork network_;
};

TEST_F(Loopback, AServerHearsItsGroupAndItsPort) {
  network_.Run([] {
    UdpServer server;
    ASSERT_EQ(server->ConnectMultiCast(kGroup, kPort), 1);
    RawDatagrams peer;
    ASSERT_TRUE(peer.Send(kGroup, kPort, "to all"));
    ASSERT_TRUE(server.log_.WaitFor(1));
    ASSERT_TRUE(peer.Send("127.0.0.1", kPort, "to one"));
    ASSERT_TRUE(server.log_.WaitFor(2));
    EXPECT_EQ(server.log_.All()[0].bytes, "to all");
    EXPECT_EQ(server.log_.All()[1].bytes, "to one");
    EXPECT_EQ(SocketOption(server->m_sockfd, IPPROTO_IP, IP_MULTICAST_TTL), 64);
  });
}

TEST_F(Loopback, AServerSendsToAGroupInCutDatagrams) {
  network_.Run([] {
    RawDatagrams member("0.0.0.0", kPort);
    ASSERT_TRUE(member.Join(kGroup, "127.0.0.1"));
    UdpServer server;
    ASSERT_EQ(server->Start(kPort + 1), 1);
    const std::string message = PatternBytes(65536);
    EXPECT_EQ(server->SendMsg(kGroup, kPort, message.data(), 65536), 65536);
    const auto datagrams = member.Receive(47);
    EXPECT_EQ(Sizes(datagrams), SizesOf(65536, 1400));
    EXPECT_TRUE(Joined(datagrams) == message);
  });
}

TEST_F(Loopback, AClientOnAllAddressesHearsItsGroup) {
  network_.Run([] {
    UdpClient client;
    client->SetLocalAddr("0.0.0.0", 4321);
    ASSERT_EQ(client->ConnectMultiCast(kGroup, kPort), 1);
    // The group's port, not its own.
    EXPECT_EQ(BoundTo(client->m_sockfd), "0.0.0.0:" + std::to_string(kPort));
    EXPECT_EQ(SocketOption(client->m_sockfd, IPPROTO_IP, IP_MULTICAST_TTL), 64);
    RawDatagrams peer;
    ASSERT_TRUE(peer.Send(kGroup, kPort, "to all"));
    ASSERT_TRUE(client.log_.WaitFor(1));
    EXPECT_THAT(client.log_.All(), ElementsAre("to all"));
  });
}

TEST_F(Loopback, AClientOnItsOwnAddressSendsToTheGroupButHearsNothingOfItKept) {
  network_.Run([] {
    RawDatagrams member("0.0.0.0", kPort);
    ASSERT_TRUE(member.Join(kGroup, "127.0.0.1"));
    UdpClient client;
    ASSERT_EQ(client->ConnectMultiCast(kGroup, kPort), 1);
    EXPECT_EQ(BoundTo(client->m_sockfd), "127.0.0.1:" + std::to_string(kPort));
    EXPECT_EQ(client->SendMsg("to all", 6), 6);
    EXPECT_EQ(member.Receive()->bytes, "to all");
    RawDatagrams peer;
    ASSERT_TRUE(peer.Send(kGroup, kPort, "unheard"));
    EXPECT_EQ(member.Receive()->bytes, "unheard");
    EXPECT_FALSE(client.log_.WaitFor(1, kSilence));
  });
}

TEST_F(Loopback, AClientStaysAGroupsMemberKept) {
  network_.Run([] {
    UdpClient client;
    ASSERT_EQ(client->ConnectMultiCast(kGroup, kPort), 1);
    client->Disconnect();
    EXPECT_EQ(client->m_bMultiCast, 1);
    ASSERT_EQ(client->Connect("127.0.0.2", kPort + 2), 1);
    EXPECT_EQ(BoundTo(client->m_sockfd), "127.0.0.1:" + std::to_string(kPort + 2));
  });
}

TEST_F(Loopback, AServerKeepsTheFlagButNotTheGroupKept) {
  network_.Run([] {
    UdpServer server;
    ASSERT_EQ(server->ConnectMultiCast(kGroup, kPort), 1);
    server->Stop();
    server.Register();
    ASSERT_EQ(server->Start(kPort), 1);
    RawDatagrams peer;
    ASSERT_TRUE(peer.Send(kGroup, kPort, "unheard"));
    ASSERT_TRUE(peer.Send("127.0.0.1", kPort, "heard"));
    ASSERT_TRUE(server.log_.WaitFor(1));
    EXPECT_FALSE(server.log_.WaitFor(2, kSilence));
    EXPECT_EQ(server.log_.All()[0].bytes, "heard");
  });
}

TEST_F(Loopback, WithoutAnyInterfaceAClientListensOnAllAddresses) {
  ASSERT_TRUE(network_.Ip("link set lo down"));
  network_.Run([] {
    StderrCapture errors;
    UdpClient client;
    ASSERT_EQ(client->Connect("127.0.0.1", kPort), 1);
    EXPECT_EQ(BoundTo(client->m_sockfd).substr(0, 8), "0.0.0.0:");
  });
}

/// Two hosts and a cable.
class TwoHosts : public testing::Test {
 protected:
  void Lay(int mtu) {
    if (!near_.Valid() || !far_.Valid() || !Connect(near_, far_, mtu)) {
      GTEST_SKIP() << "networks of its own need privileges";
    }
  }
  /// Sends a message from the near host and expects its datagrams at the far one.
  void Send(size_t size) {
    const std::string message = PatternBytes(size);
    std::atomic<bool> listens{false};
    std::vector<Datagram> datagrams;
    std::thread receiver([&] {
      far_.Run([&] {
        RawDatagrams peer("10.77.0.2", kPort);
        listens = true;
        datagrams = peer.Receive(SizesOf(size, 1400).size());
      });
    });
    ASSERT_TRUE(WaitUntil([&] { return listens.load(); }));
    near_.Run([&] {
      UdpClient client;
      ASSERT_EQ(client->Connect("10.77.0.2", kPort), 1);
      EXPECT_EQ(client->SendMsg(message.data(), static_cast<int>(size)), static_cast<int>(size));
    });
    receiver.join();
    EXPECT_EQ(Sizes(datagrams), SizesOf(size, 1400));
    EXPECT_TRUE(Joined(datagrams) == message);
    ASSERT_FALSE(datagrams.empty());
    EXPECT_EQ(datagrams[0].ip, "10.77.0.1");
  }
  OwnNetwork near_;
  OwnNetwork far_;
};

TEST_F(TwoHosts, AMessageArrivesInSmallDatagrams) {
  Lay(1500);
  Send(3000);
  Send(65536);
}

TEST_F(TwoHosts, AMessageArrivesInTheSameDatagramsOverANarrowPath) {
  Lay(1000);  // the kernel refuses to cut what must be fragmented
  UdpFaults calls;
  Send(65536);
  EXPECT_EQ(calls.sendto.calls, 47);
}

TEST_F(TwoHosts, AMessageArrivesInTheSameDatagramsFromAKernelThatDoesNotCut) {
  Lay(1500);
  UdpFaults faults;
  faults.segmentation.Fail(ENOPROTOOPT, 1000);
  Send(65536);
  EXPECT_EQ(faults.sendto.calls, 47);
}

TEST_F(TwoHosts, GroupsReachBothHosts) {
  Lay(1500);
  ASSERT_TRUE(near_.Ip("route add 224.0.0.0/4 dev cable0"));
  ASSERT_TRUE(far_.Ip("route add 224.0.0.0/4 dev cable1"));
  UdpServer server;
  UdpClient client;
  far_.Run([&] { ASSERT_EQ(server->ConnectMultiCast(kGroup, kPort), 1); });
  near_.Run([&] {
    client->SetLocalAddr("0.0.0.0", 0);
    ASSERT_EQ(client->ConnectMultiCast(kGroup, kPort), 1);
    EXPECT_EQ(client->SendMsg("from near", 9), 9);
  });
  ASSERT_TRUE(server.log_.WaitFor(1));
  EXPECT_EQ(server.log_.All()[0].bytes, "from near");
  EXPECT_EQ(server.log_.All()[0].ip, "10.77.0.1");
  EXPECT_EQ(server.log_.All()[0].port, kPort);
  EXPECT_EQ(server->SendMsg(kGroup, kPort, "from far", 8), 8);
  // The client hears its own message, too.
  ASSERT_TRUE(client.log_.WaitFor(2));
  EXPECT_THAT(client.log_.All(), testing::UnorderedElementsAre("from near", "from far"));
}

}  // namespace
