// The UDP client against bare sockets.
#include "utility/UdpClient.h"

#include <Tarn/Generic/LocalIP.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <thread>
#include <utility>

#include "tests/UdpFaults.h"
#include "tests/UdpFixtures.h"
#include "tests/support/Capture.h"
#include "tests/support/Slots.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr int kStopLimitMs = 1500;

/// A client of 127.0.0.1 that talks to 127.0.0.2: another host, as far as the client can tell.
struct Pair {
  Pair() : peer("127.0.0.2") {
    client->SetLocalAddr("127.0.0.1", 0);
    connected = client->Connect("127.0.0.2", peer.Port()) == 1;
  }
  RawDatagrams peer;
  UdpClient client;
  bool connected;
};

std::string HostIp() {
  unsigned char bytes[4] = {};
  Tarn::GetLocalIP(reinterpret_cast<char*>(bytes));
  std::string text;
  for (const unsigned char byte : bytes)
    text += (text.empty() ? "" : ".") + std::to_string(byte);
  return text;
}

TEST(UdpClient, ExchangesDatagramsWithItsPeer) {
  Pair pair;
  ASSERT_TRUE(pair.connected);
  EXPECT_EQ(pair.client->SendMsg("question", 8), 8);
  const auto question = pair.peer.Receive();
  ASSERT_TRUE(question);
  EXPECT_EQ(question->bytes, "question");
  EXPECT_EQ(question->ip, "127.0.0.1");
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", question->port, "answer"));
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", question->port, std::string("a\0b", 3)));
  ASSERT_TRUE(pair.client.log_.WaitFor(2));
  EXPECT_THAT(pair.client.log_.All(), ElementsAre("answer", std::string("a\0b", 3)));
}

TEST(UdpClient, ThreeThousandBytesToAnotherHostAreThreeDatagramsKept) {
  Pair pair;
  const std::string message = PatternBytes(3000);
  EXPECT_EQ(pair.client->SendMsg(message.data(), 3000), 3000);
  const auto datagrams = pair.peer.Receive(3);
  EXPECT_THAT(Sizes(datagrams), ElementsAre(1400U, 1400U, 200U));
  EXPECT_EQ(Joined(datagrams), message);
  EXPECT_EQ(pair.client->m_packetLen, 1400);
}

TEST(UdpClient, ThreeThousandBytesToItsOwnAddressAreOneDatagramKept) {
  RawDatagrams peer("127.0.0.1");
  UdpClient client;
  client->SetLocalAddr("127.0.0.1", 0);
  ASSERT_EQ(client->Connect("127.0.0.1", peer.Port()), 1);
  const std::string message = PatternBytes(3000);
  EXPECT_EQ(client->SendMsg(message.data(), 3000), 3000);
  EXPECT_EQ(peer.Receive()->bytes, message);
  EXPECT_EQ(client->m_packetLen, 49152);
}

TEST(UdpClient, TheHostsOwnAddressComesFromGetLocalIpWhenNoneIsSet) {
  RawDatagrams peer(HostIp());
  UdpClient client;
  EXPECT_EQ(client->m_packetLen, 49152);
  ASSERT_EQ(client->Connect(HostIp().c_str(), peer.Port()), 1);
  EXPECT_THAT(BoundTo(client->m_sockfd), HasSubstr(HostIp() + ":"));
  EXPECT_EQ(client->m_packetLen, 49152);
  const std::string message = PatternBytes(3000);
  EXPECT_EQ(client->SendMsg(message.data(), 3000), 3000);
  const auto datagram = peer.Receive();
  ASSERT_TRUE(datagram);
  EXPECT_EQ(datagram->bytes.size(), 3000U);
  EXPECT_EQ(datagram->ip, HostIp());
  ASSERT_TRUE(peer.Send(HostIp(), datagram->port, "x"));
  EXPECT_TRUE(client.log_.WaitFor(1));
}

TEST(UdpClient, MessagesOfEverySizeAreCutAtTheLimit) {
  Pair other;
  RawDatagrams self("127.0.0.1");
  UdpClient toSelf;
  toSelf->SetLocalAddr("127.0.0.1", 0);
  ASSERT_EQ(toSelf->Connect("127.0.0.1", self.Port()), 1);
  for (const int size :
       {1, 1399, 1400, 1401, 2800, 49152, 49153, 64399, 64400, 64401, 65536, 98304, 150000}) {
    const std::string message = PatternBytes(static_cast<size_t>(size));
    EXPECT_EQ(other.client->SendMsg(message.data(), size), size);
    const auto small = SizesOf(message.size(), 1400);
    auto datagrams = other.peer.Receive(small.size());
    EXPECT_EQ(Sizes(datagrams), small);
    EXPECT_TRUE(Joined(datagrams) == message);
    EXPECT_EQ(toSelf->SendMsg(message.data(), size), size);
    const auto large = SizesOf(message.size(), 49152);
    datagrams = self.Receive(large.size());
    EXPECT_EQ(Sizes(datagrams), large);
    EXPECT_TRUE(Joined(datagrams) == message);
  }
}

TEST(UdpClient, AKernelThatCutsDatagramsIsGivenManyAtOnce) {
  UdpFaults faults;
  Pair pair;
  if (SocketOption(pair.client->m_sockfd, SOL_UDP, UDP_SEGMENT) == -1) {
    GTEST_SKIP() << "this kernel does not cut datagrams";
  }
  const std::string message = PatternBytes(65536);
  EXPECT_EQ(pair.client->SendMsg(message.data(), 65536), 65536);
  EXPECT_EQ(Sizes(pair.peer.Receive(47)), SizesOf(65536, 1400));
  EXPECT_EQ(faults.sendmsg.calls, 1);  // 46 datagrams
  EXPECT_EQ(faults.sendto.calls, 1);   // the last one, which is short
}

TEST(UdpClient, AKernelThatDoesNotCutDatagramsIsGivenOneByOne) {
  UdpFaults faults;
  faults.segmentation.Fail(ENOPROTOOPT, INT_MAX);
  Pair pair;
  const std::string message = PatternBytes(65536);
  EXPECT_EQ(pair.client->SendMsg(message.data(), 65536), 65536);
  const auto datagrams = pair.peer.Receive(47);
  EXPECT_EQ(Sizes(datagrams), SizesOf(65536, 1400));
  EXPECT_TRUE(Joined(datagrams) == message);
  EXPECT_EQ(faults.sendmsg.calls, 0);
  EXPECT_EQ(faults.sendto.calls, 47);
}

TEST(UdpClient, ARouteThatRefusesToCutGetsPlainDatagrams) {
  for (const int error : {EINVAL, EIO, EMSGSIZE, EOPNOTSUPP}) {
    UdpFaults faults;
    Pair pair;
    faults.sendmsg.Fail(error, 1);
    const std::string message = PatternBytes(65536);
    EXPECT_EQ(pair.client->SendMsg(message.data(), 65536), 65536);
    const auto datagrams = pair.peer.Receive(47);
    EXPECT_EQ(Sizes(datagrams), SizesOf(65536, 1400));
    EXPECT_TRUE(Joined(datagrams) == message);
  }
}

TEST(UdpClient, WhatASingleDatagramMeetsIsReportedNotWhatMeetsMany) {
  UdpFaults faults;
  Pair pair;
  faults.sendmsg.Fail(EIO, INT_MAX);
  faults.sendto.Fail(ENETUNREACH, INT_MAX);
  const std::string message = PatternBytes(65536);
  StdoutCapture capture;
  EXPECT_EQ(pair.client->SendMsg(message.data(), 65536), -ENETUNREACH);
  EXPECT_THAT(capture.Text(), HasSubstr(" CUdpClient::SendMsg sendto send_ret:-1 errCode: 101 "
                                        "Network is unreachable\r\n"));
}

TEST(UdpClient, AnInterruptedOrFullSocketIsTriedAgainAfterTenMilliseconds) {
  for (const int error : {EAGAIN, EINTR}) {
    UdpFaults faults;
    Pair pair;
    faults.sendto.Fail(error, 5);
    const Stopwatch watch;
    EXPECT_EQ(pair.client->SendMsg("abc", 3), 3);
    EXPECT_GE(watch.ElapsedMs(), 50);
    EXPECT_EQ(pair.peer.Receive()->bytes, "abc");
    faults.sendmsg.Fail(error, 5);
    const std::string message = PatternBytes(5000);
    EXPECT_EQ(pair.client->SendMsg(message.data(), 5000), 5000);
    EXPECT_EQ(Sizes(pair.peer.Receive(4)), SizesOf(5000, 1400));
  }
}

TEST(UdpClient, DisconnectEndsASendToASocketThatStaysFull) {
  UdpFaults faults;
  Pair pair;
  faults.sendto.Fail(EAGAIN, INT_MAX);
  std::atomic<int> result{0};
  std::thread sender([&] { result = pair.client->SendMsg("abc", 3); });
  ASSERT_TRUE(WaitUntil([&] { return faults.sendto.calls > 2; }));
  pair.client->Disconnect();
  sender.join();
  EXPECT_EQ(result, 3);  // counts as sent
}

TEST(UdpClient, ASocketThatStaysFullFromTheStartIsTold) {
  UdpFaults faults;
  Pair pair;
  faults.neverWritable = true;
  StdoutCapture capture;
  EXPECT_EQ(pair.client->SendMsg("abc", 3), -1);
  EXPECT_THAT(capture.Text(),
              HasSubstr(" CUdpClient::SendMsg select error for nSockStatus:0, dst[127.0.0.2:" +
                        std::to_string(pair.peer.Port()) +
                        "], socket: " + std::to_string(pair.client->m_sockfd) + "\r\n"));
}

TEST(UdpClient, SendMsgWithoutAConnectionIsToldKept) {
  UdpClient client;
  StdoutCapture capture;
  EXPECT_EQ(client->SendMsg("abc", 3), -1);
  EXPECT_THAT(capture.Text(), HasSubstr(" CUdpClient::SendMsg error for socket:0\r\n"));
}

TEST(UdpClient, SendMsgRefusesBadArgumentsAndSendsNothingForNothing) {
  Pair pair;
  EXPECT_EQ(pair.client->SendMsg(nullptr, 3), -1);
  EXPECT_EQ(pair.client->SendMsg("abc", -1), -1);
  EXPECT_EQ(pair.client->SendMsg("abc", INT_MIN), -1);
  EXPECT_EQ(pair.client->SendMsg("", 0), 0);
  EXPECT_EQ(pair.client->SendMsg("end", 3), 3);
  EXPECT_EQ(pair.peer.Receive()->bytes, "end");
}

TEST(UdpClient, AnAddressThatIsNoneFailsWhenSending) {
  UdpClient client;
  client->SetLocalAddr("127.0.0.1", 0);
  ASSERT_EQ(client->Connect("nowhere", 9), 1);
  StdoutCapture capture;
  EXPECT_EQ(client->SendMsg("abc", 3), -EACCES);
  EXPECT_THAT(capture.Text(), HasSubstr(" CUdpClient::SendMsg sendto send_ret:-1 errCode: 13 "
                                        "Permission denied\r\n"));
}

TEST(UdpClient, KeepsSixteenCharactersOfAddressesAndTakesNullForEmpty) {
  UdpClient client;
  EXPECT_EQ(client->SetLocalAddr("127.0.0.1 and so on", 0), 1);
  EXPECT_STREQ(client->m_localIp, "127.0.0.1 and so");
  client->SetLocalAddr("127.0.0.1", 0);
  EXPECT_EQ(client->Connect("127.0.0.2.or.more", 9), 1);
  EXPECT_STREQ(client->m_ip, "127.0.0.2.or.mor");
  EXPECT_EQ(client->m_port, 9);
  EXPECT_EQ(client->Connect(nullptr, 9), 1);
  EXPECT_STREQ(client->m_ip, "");
}

TEST(UdpClient, ANullLocalAddressChangesNothing) {
  UdpClient client;
  EXPECT_EQ(client->SetLocalAddr("127.0.0.1", 4000), 1);
  EXPECT_EQ(client->SetLocalAddr(nullptr, 5000), 0);
  EXPECT_STREQ(client->m_localIp, "127.0.0.1");
  EXPECT_EQ(client->m_localPort, 4000);
  EXPECT_EQ(client->GetFreePort(), 4000);
}

TEST(UdpClient, BindsToTheLocalAddressAndPortAndSaysSo) {
  const int port = FreeUdpPort();
  UdpClient client;
  client->SetLocalAddr("127.0.0.3", port);
  StdoutCapture capture;
  ASSERT_EQ(client->Connect("127.0.0.1", 9), 1);
  EXPECT_EQ(BoundTo(client->m_sockfd), "127.0.0.3:" + std::to_string(port));
  EXPECT_THAT(
      capture.Text(),
      HasSubstr(" CUdpClient::InitSocket bind ok, nLocalPort: " + std::to_string(port) + "\r\n"));
}

TEST(UdpClient, WithoutALocalPortThePlatformChooses) {
  UdpClient client;
  client->SetLocalAddr("127.0.0.1", 0);
  EXPECT_EQ(client->GetFreePort(), 0);
  StdoutCapture capture;
  ASSERT_EQ(client->Connect("127.0.0.1", 9), 1);
  EXPECT_GT(client.Port(), 0);
  EXPECT_THAT(capture.Text(), HasSubstr("bind ok, nLocalPort: 0\r\n"));
}

TEST(UdpClient, AFailedBindFailsTheConnectAndDropsTheCallback) {
  UdpClient client;
  client->SetLocalAddr("192.0.2.99", 777);  // not of this host
  client->SetMaxBufferLen(5);
  StdoutCapture capture;
  EXPECT_EQ(client->Connect("127.0.0.1", 9), 0);
  const std::string output = capture.Text();
  EXPECT_THAT(output, HasSubstr(" CUdpClient::InitSocket bind error:99, nLocalPort: 777\r\n"));
  EXPECT_THAT(output, HasSubstr(" CUdpClient::Connect InitSocket error !\r\n"));
  EXPECT_LT(output.find("bind error"), output.find("InitSocket error !"));
  EXPECT_EQ(client->m_sockfd, 0);
  EXPECT_EQ(client->m_onMsg, nullptr);
  EXPECT_EQ(client->m_pUser, nullptr);
  EXPECT_EQ(client->m_maxBufferLen, 102400);
  EXPECT_STREQ(client->m_ip, "");
  EXPECT_EQ(client->m_port, 0);
  EXPECT_STREQ(client->m_localIp, "192.0.2.99");
  EXPECT_EQ(client->m_localPort, 777);
  EXPECT_EQ(client->m_bReading, 0);
}

TEST(UdpClient, SocketOptionsThatFailAreToldAndFailTheConnect) {
  const std::pair<int, const char*> options[] = {
      {SO_RCVBUF, " CUdpClient::InitSocket setsockopt SO_RCVBUF error:105\r\n"},
      {SO_SNDBUF, " CUdpClient::InitSocket setsockopt SO_SNDBUF error:105\r\n"}};
  for (const auto& [option, told] : options) {
    UdpFaults faults;
    UdpClient client;
    faults.setsockoptName = option;
    faults.setsockopt.Fail(ENOBUFS, 1);
    StdoutCapture capture;
    EXPECT_EQ(client->Connect("127.0.0.1", 9), 0);
    EXPECT_THAT(capture.Text(), HasSubstr(told));
    EXPECT_EQ(client->m_sockfd, 0);
  }
  UdpFaults faults;
  UdpClient client;
  faults.setsockoptName = SO_REUSEADDR;
  faults.setsockopt.Fail(ENOBUFS, 1);
  EXPECT_EQ(client->Connect("127.0.0.1", 9), 1);  // nobody is told
}

TEST(UdpClient, AGroupThatCannotBeJoinedIsNoFailureKept) {
  UdpFaults faults;
  UdpClient client;
  faults.setsockoptName = IP_ADD_MEMBERSHIP;
  faults.setsockopt.Fail(ENODEV, 1);
  char group[] = "239.1.2.3";
  client->SetLocalAddr("127.0.0.1", 0);
  StdoutCapture capture;
  EXPECT_EQ(client->ConnectMultiCast(group, FreeUdpPort()), 1);
  EXPECT_EQ(faults.setsockopt.failures, 0);
  EXPECT_THAT(capture.Text(), Not(HasSubstr("error")));
}

TEST(UdpClient, ASocketThatCannotBeHadFailsTheConnect) {
  UdpFaults faults;
  UdpClient client;
  faults.socket.Fail(EMFILE, 1);
  StdoutCapture capture;
  EXPECT_EQ(client->Connect("127.0.0.1", 9), 0);
  EXPECT_THAT(capture.Text(), HasSubstr(" CUdpClient::Connect InitSocket error !\r\n"));
}

TEST(UdpClient, ASocketThatCannotBeMadeNonBlockingIsToldAndFailsTheConnect) {
  UdpFaults faults;
  UdpClient client;
  faults.fcntl.Fail(EINVAL, 1);
  StdoutCapture capture;
  EXPECT_EQ(client->Connect("127.0.0.1", 9), 0);
  EXPECT_THAT(capture.Text(), HasSubstr(" CUdpClient::InitSocket SetNonblocking error:22\r\n"));
}

TEST(UdpClient, AThreadThatCannotBeHadFailsTheConnectWithoutALineKept) {
  UdpFaults faults;
  UdpClient client;
  faults.create.Fail(EAGAIN, 1);
  StdoutCapture capture;
  EXPECT_EQ(client->Connect("127.0.0.1", 9), 0);
  EXPECT_THAT(capture.Text(), Not(HasSubstr("error")));
  EXPECT_EQ(client->m_sockfd, 0);
  EXPECT_EQ(client->m_readThread, 0U);
  EXPECT_EQ(client->m_bReading, 0);
  client.Register();
  EXPECT_EQ(client->Connect("127.0.0.1", 9), 1);
}

TEST(UdpClient, TheSocketHasLargeBuffersAndNonBlockingAsItsOnlyFlagKept) {
  Pair pair;
  const int fd = pair.client->m_sockfd;
  // Twice what is asked for, within the host's own limits.
  RawDatagrams reference;
  const int large = 8 << 20;
  setsockopt(reference.Fd(), SOL_SOCKET, SO_RCVBUF, &large, sizeof(large));
  setsockopt(reference.Fd(), SOL_SOCKET, SO_SNDBUF, &large, sizeof(large));
  for (const int option : {SO_RCVBUF, SO_SNDBUF}) {
    EXPECT_EQ(SocketOption(fd, SOL_SOCKET, option),
              SocketOption(reference.Fd(), SOL_SOCKET, option));
  }
  EXPECT_EQ(SocketOption(fd, SOL_SOCKET, SO_REUSEADDR), 1);
  fcntl(fd, F_SETFL, O_NONBLOCK | O_ASYNC);
  EXPECT_EQ(pair.client->SetNonblocking(), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_NONBLOCK | O_ASYNC), O_NONBLOCK);
  EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST(UdpClient, TheReadThreadGoesByItsCreatorsNameKept) {
  std::thread([] {
    pthread_setname_np(pthread_self(), "creator");
    UdpClient client;
    ASSERT_EQ(client->Connect("127.0.0.1", 9), 1);
    const auto names = ThreadNames();
    EXPECT_EQ(std::count(names.begin(), names.end(), "creator"), 2);
  }).join();
}

TEST(UdpClient, EmptyDatagramsAndAMissingCallbackDeliverNothing) {
  Pair pair;
  const int port = pair.client.Port();
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", port, ""));
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", port, "one"));
  ASSERT_TRUE(pair.client.log_.WaitFor(1));
  pair.client->RegisterEvent(nullptr, nullptr);
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", port, "unheard"));
  ASSERT_TRUE(WaitUntil([&] { return pair.client->m_dataLen == 7; }));
  pair.client.Register();
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", port, "two"));
  ASSERT_TRUE(pair.client.log_.WaitFor(2));
  EXPECT_THAT(pair.client.log_.All(), ElementsAre("one", "two"));
}

TEST(UdpClient, DatagramsOfOtherSendersArriveTooKept) {
  Pair pair;
  RawDatagrams stranger("127.0.0.4");
  ASSERT_TRUE(stranger.Send("127.0.0.1", pair.client.Port(), "hello"));
  ASSERT_TRUE(pair.client.log_.WaitFor(1));
  EXPECT_THAT(pair.client.log_.All(), ElementsAre("hello"));
}

TEST(UdpClient, ADatagramMayFillTheBufferAndIsCutBeyond) {
  RawDatagrams peer;
  UdpClient client;
  client->SetLocalAddr("127.0.0.1", 0);
  client->SetMaxBufferLen(100);
  ASSERT_EQ(client->Connect("127.0.0.1", peer.Port()), 1);
  const std::string bytes = PatternBytes(101);
  ASSERT_TRUE(peer.Send("127.0.0.1", client.Port(), bytes.substr(0, 100)));
  ASSERT_TRUE(peer.Send("127.0.0.1", client.Port(), bytes));
  ASSERT_TRUE(client.log_.WaitFor(2));
  EXPECT_THAT(client.log_.All(), ElementsAre(bytes.substr(0, 100), bytes.substr(0, 100)));
}

TEST(UdpClient, ABufferKeepsItsCapacityWhateverIsSetLater) {
  RawDatagrams peer;
  UdpClient client;
  client->SetLocalAddr("127.0.0.1", 0);
  client->SetMaxBufferLen(10);
  ASSERT_EQ(client->Connect("127.0.0.1", peer.Port()), 1);
  ASSERT_TRUE(peer.Send("127.0.0.1", client.Port(), "first"));
  ASSERT_TRUE(client.log_.WaitFor(1));
  for (const int later : {INT_MAX, 4, 0, -1, INT_MIN}) {
    client->SetMaxBufferLen(later);
    ASSERT_TRUE(peer.Send("127.0.0.1", client.Port(), std::string(60000, 'x')));
  }
  client->SetMaxBufferLen(INT_MAX);
  ASSERT_TRUE(peer.Send("127.0.0.1", client.Port(), "last"));
  ASSERT_TRUE(WaitUntil([&] { return client.log_.All().back() == "last"; }));
  for (const std::string& each : client.log_.All())
    EXPECT_LE(each.size(), 10U);
}

TEST(UdpClient, ABufferThatCannotBeHadEndsTheReaderAndLeavesTheFlagSetKept) {
  RawDatagrams peer;
  UdpClient client;
  client->SetMaxBufferLen(-1);
  const int threads = LiveThreads();
  EXPECT_EQ(client->Connect("127.0.0.1", peer.Port()), 1);
  EXPECT_TRUE(WaitUntil([&] { return LiveThreads() == threads; }));
  EXPECT_EQ(client->m_sockfd, 0);
  EXPECT_EQ(client->m_maxBufferLen, 102400);
  EXPECT_EQ(client->m_bReading, 1);
  {
    StdoutCapture capture;
    EXPECT_EQ(client->SendMsg("abc", 3), -1);
  }
  client->SetLocalAddr("127.0.0.1", 0);
  client.Register();
  ASSERT_EQ(client->Connect("127.0.0.1", peer.Port()), 1);
  ASSERT_TRUE(peer.Send("127.0.0.1", client.Port(), "works again"));
  EXPECT_TRUE(client.log_.WaitFor(1));
}

TEST(UdpClient, DisconnectKeepsWhatWasSetSinceTheReaderEndedWithoutABuffer) {
  UdpClient client;
  client->SetMaxBufferLen(-1);
  const int threads = LiveThreads();
  ASSERT_EQ(client->Connect("127.0.0.1", 9), 1);
  ASSERT_TRUE(WaitUntil([&] { return LiveThreads() == threads; }));
  client.Register();
  client->SetMaxBufferLen(5);
  const StdoutCapture quiet;
  client->Disconnect();
  EXPECT_EQ(client->m_bReading, 0);
  EXPECT_EQ(client->m_readThread, 0U);
  EXPECT_NE(client->m_onMsg, nullptr);
  EXPECT_EQ(client->m_maxBufferLen, 5);
}

TEST(UdpClient, ErrorsOfReadingAreIgnoredAndDoNotKeepAProcessorBusyKept) {
  UdpFaults faults;
  Pair pair;
  faults.recvfrom.Fail(ENOMEM, INT_MAX);
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", pair.client.Port(), "x"));
  ASSERT_TRUE(WaitUntil([&] { return faults.recvfrom.failures < INT_MAX - 2; }));
  const int before = faults.recvfrom.calls;
  const Stopwatch watch;
  ASSERT_TRUE(WaitUntil([&] { return watch.ElapsedMs() > 200; }));
  const int calls = faults.recvfrom.calls - before;
  // One every ten milliseconds.
  EXPECT_LE(calls, watch.ElapsedMs() / 10 + 2);
  faults.recvfrom.failures = 0;
  EXPECT_TRUE(pair.client.log_.WaitFor(1));
}

TEST(UdpClient, DisconnectTakesASecondAtMostAndResetsAllButTheLocalAddressKept) {
  Pair pair;
  pair.client->SetMaxBufferLen(77);
  const Stopwatch watch;
  std::string output;
  {
    StdoutCapture capture;
    pair.client->Disconnect();
    output = capture.Text();
  }
  EXPECT_LT(watch.ElapsedMs(), AtMost(kStopLimitMs));
  EXPECT_THAT(output, HasSubstr(" CUdpClient::Disconnect closesocket\r\n"));
  EXPECT_EQ(pair.client->m_sockfd, 0);
  EXPECT_EQ(pair.client->m_bReading, 0);
  EXPECT_EQ(pair.client->m_readThread, 0U);
  EXPECT_EQ(pair.client->m_maxBufferLen, 102400);
  EXPECT_EQ(pair.client->m_buffer, nullptr);
  EXPECT_EQ(pair.client->m_dataLen, 0);
  EXPECT_EQ(pair.client->m_onMsg, nullptr);
  EXPECT_EQ(pair.client->m_pUser, nullptr);
  EXPECT_STREQ(pair.client->m_ip, "");
  EXPECT_EQ(pair.client->m_port, 0);
  EXPECT_STREQ(pair.client->m_localIp, "127.0.0.1");
  EXPECT_EQ(pair.client->m_packetLen, 1400);
}

TEST(UdpClient, DisconnectIsToldEvenWhenThereIsNothingToCloseKept) {
  StdoutCapture capture;
  {
    UdpClient client;
    client->Disconnect();
    EXPECT_NE(client->m_onMsg, nullptr);
    EXPECT_THAT(capture.Text(), HasSubstr("CUdpClient::Disconnect closesocket"));
  }
  const std::string output = capture.Text();
  EXPECT_NE(output.find("closesocket"), output.rfind("closesocket"));  // the destructor's
  EXPECT_NE(fcntl(0, F_GETFD), -1);  // the standard input is still open
}

TEST(UdpClient, ANewConnectionNeedsTheCallbackAgainKept) {
  Pair pair;
  pair.client->Disconnect();
  ASSERT_EQ(pair.client->Connect("127.0.0.2", pair.peer.Port()), 1);
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", pair.client.Port(), "unheard"));
  ASSERT_TRUE(WaitUntil([&] { return pair.client->m_dataLen == 7; }));
  pair.client.Register();
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", pair.client.Port(), "heard"));
  ASSERT_TRUE(pair.client.log_.WaitFor(1));
  EXPECT_THAT(pair.client.log_.All(), ElementsAre("heard"));
}

TEST(UdpClient, ASecondConnectEndsTheFirstWithoutALineAndKeepsTheCallback) {
  Pair pair;
  RawDatagrams next("127.0.0.3");
  const int firstPort = pair.client.Port();
  const int descriptors = OpenDescriptors();
  std::string output;
  {
    StdoutCapture capture;
    ASSERT_EQ(pair.client->Connect("127.0.0.3", next.Port()), 1);
    output = capture.Text();
  }
  EXPECT_THAT(output, Not(HasSubstr("closesocket")));
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(pair.client->SendMsg("abc", 3), 3);
  EXPECT_EQ(next.Receive()->bytes, "abc");
  ASSERT_TRUE(next.Send("127.0.0.1", pair.client.Port(), "to the second"));
  ASSERT_TRUE(pair.client.log_.WaitFor(1));
  EXPECT_NE(pair.client.Port(), firstPort);
}

TEST(UdpClient, DisconnectAndDeleteRightAfterConnectWork) {
  RawDatagrams peer;
  for (int i = 0; i < 2; ++i) {
    UdpClient client;
    ASSERT_EQ(client->Connect("127.0.0.1", peer.Port()), 1);
    const Stopwatch watch;
    std::thread([&] { client->Disconnect(); }).join();
    EXPECT_LT(watch.ElapsedMs(), AtMost(kStopLimitMs));
    EXPECT_EQ(client->m_sockfd, 0);
  }
  UdpClient running;
  ASSERT_EQ(running->Connect("127.0.0.1", peer.Port()), 1);
}

TEST(UdpClient, DisconnectEndsWhileDatagramsKeepComing) {
  Pair pair;
  const int port = pair.client.Port();
  std::atomic<bool> goOn{true};
  std::thread flood([&] {
    while (goOn)
      pair.peer.Send("127.0.0.1", port, "again and again");
  });
  EXPECT_TRUE(pair.client.log_.WaitFor(10));
  const Stopwatch watch;
  pair.client->Disconnect();
  EXPECT_LT(watch.ElapsedMs(), AtMost(kStopLimitMs));
  goOn = false;
  flood.join();
}

TEST(UdpClient, DeletingTheClientInItsCallbackIsSafe) {
  struct Context {
    IUdpClient* client;
    std::atomic<bool> done{false};
  } context{IUdpClient::Create()};
  RawDatagrams peer;
  context.client->SetLocalAddr("127.0.0.1", 0);
  context.client->RegisterEvent(&context, [](void* user, const char* data, int) {
    auto* self = static_cast<Context*>(user);
    IUdpClient::Delete(self->client);
    EXPECT_STREQ(data, "bye");
    self->done = true;
  });
  ASSERT_EQ(context.client->Connect("127.0.0.1", peer.Port()), 1);
  ASSERT_EQ(context.client->SendMsg("from where", 10), 10);
  const int port = peer.Receive()->port;
  ASSERT_TRUE(peer.Send("127.0.0.1", port, "bye"));
  peer.Send("127.0.0.1", port, "unheard");
  EXPECT_TRUE(WaitUntil([&] { return context.done.load(); }));
}

TEST(UdpClient, ConnectingAnewInItsCallbackIsSafe) {
  Pair pair;
  std::atomic<int> results{0};
  pair.client.onMessage_ = [&] {
    if (results == 0) results += pair.client->Connect("127.0.0.2", pair.peer.Port());
  };
  pair.client.Register();  // from here on the running thread sees it
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", pair.client.Port(), "first"));
  ASSERT_TRUE(WaitUntil([&] { return results == 1; }));
  ASSERT_TRUE(pair.peer.Send("127.0.0.1", pair.client.Port(), "second"));
  ASSERT_TRUE(pair.client.log_.WaitFor(2));
  pair.client->Disconnect();
}

TEST(UdpClient, ManyThreadsMaySendAndRegisterWhileItReads) {
  Pair pair;
  const int port = pair.client.Port();
  constexpr int kEach = 60;
  std::vector<std::thread> senders;
  for (int i = 0; i < 3; ++i) {
    senders.emplace_back([&] {
      const std::string message = PatternBytes(4000);
      for (int k = 0; k < kEach; ++k) {
        EXPECT_EQ(pair.client->SendMsg(message.data(), 4000), 4000);
        pair.client.Register();
        pair.peer.Send("127.0.0.1", port, "x");
      }
    });
  }
  EXPECT_EQ(pair.peer.Receive(3 * 3 * kEach).size(), 3U * 3U * kEach);
  for (auto& sender : senders)
    sender.join();
  EXPECT_TRUE(pair.client.log_.WaitFor(3 * kEach));
}

TEST(UdpClient, SendersMeetDisconnectWithoutHarm) {
  Pair pair;
  std::atomic<bool> goOn{true};
  std::atomic<int> odd{0};
  int connected = 0;
  {
    const StdoutCapture quiet;
    std::thread sender([&] {
      const std::string message = PatternBytes(100000);
      while (goOn) {
        const int result = pair.client->SendMsg(message.data(), 100000);
        if (result != 100000 && result != -1) odd = result;
      }
    });
    for (int i = 0; i < 2; ++i) {
      pair.client->Disconnect();
      connected += pair.client->Connect("127.0.0.2", pair.peer.Port());
    }
    goOn = false;
    sender.join();
  }
  EXPECT_EQ(odd, 0);
  EXPECT_EQ(connected, 2);
}

TEST(UdpClient, SendsNothingBeforeItsSocketIsBound) {
  UdpFaults faults;
  RawDatagrams peer("127.0.0.2");
  UdpClient client;
  client->SetLocalAddr("127.0.0.1", 0);
  int early = 0;
  faults.beforeBind = [&] { early = client->SendMsg("early", 5); };
  StdoutCapture capture;
  EXPECT_EQ(client->Connect("127.0.0.2", peer.Port()), 1);
  EXPECT_EQ(early, -1);
  EXPECT_THAT(capture.Text(), HasSubstr(" CUdpClient::SendMsg error for socket:0\r\n"));
}

// The fields in their order; programs that look at them in a debugger rely on it.
TEST(UdpClient, TheFieldsStandInTheirOrder) {
  UdpClient client;
  const CUdpClient& c = *client.client_;
  const void* const fields[] = {&c.m_sockfd,    &c.m_maxBufferLen, &c.m_ip,         &c.m_port,
                                &c.m_localIp,   &c.m_localPort,    &c.m_buffer,     &c.m_dataLen,
                                &c.m_packetLen, &c.m_bReading,     &c.m_readThread, &c.m_pUser,
                                &c.m_onMsg,     &c.m_bMultiCast};
  EXPECT_TRUE(std::is_sorted(std::begin(fields), std::end(fields)));
}

TEST(UdpClient, TheSlotsStandInTheirOrder) {
  EXPECT_EQ(SlotOf(&IUdpClient::RegisterEvent), 2U);
  EXPECT_EQ(SlotOf(&IUdpClient::Connect), 3U);
  EXPECT_EQ(SlotOf(&IUdpClient::SetLocalAddr), 4U);
  EXPECT_EQ(SlotOf(&IUdpClient::ConnectMultiCast), 5U);
  EXPECT_EQ(SlotOf(&IUdpClient::Disconnect), 6U);
  EXPECT_EQ(SlotOf(&IUdpClient::SendMsg), 7U);
  EXPECT_EQ(SlotOf(&IUdpClient::SetMaxBufferLen), 8U);
}

TEST(UdpClient, ConnectMultiCastGoesThroughConnect) {
  struct Asked : CUdpClient {
    int Connect(const char* ip, int port) override {
      asked = std::string(ip) + ":" + std::to_string(port);
      return 7;
    }
    std::string asked;
  } client;
  char group[] = "239.1.2.3";
  EXPECT_EQ(client.ConnectMultiCast(group, 5007), 7);
  EXPECT_EQ(client.asked, "239.1.2.3:5007");
  EXPECT_EQ(client.m_bMultiCast, 1);
  const StdoutCapture quiet;
  client.Disconnect();
}

TEST(UdpClient, AFreshClientHasItsDefaults) {
  UdpClient client;
  EXPECT_EQ(client->m_sockfd, 0);
  EXPECT_EQ(client->m_maxBufferLen, 102400);
  EXPECT_STREQ(client->m_ip, "");
  EXPECT_EQ(client->m_port, 0);
  EXPECT_STREQ(client->m_localIp, "");
  EXPECT_EQ(client->m_localPort, 0);
  EXPECT_EQ(client->GetFreePort(), 0);
  EXPECT_EQ(client->m_buffer, nullptr);
  EXPECT_EQ(client->m_dataLen, 0);
  EXPECT_EQ(client->m_packetLen, 49152);
  EXPECT_EQ(client->m_bReading, 0);
  EXPECT_EQ(client->m_readThread, 0U);
  EXPECT_EQ(client->m_bMultiCast, 0);
}

TEST(UdpClient, DeleteIgnoresNull) {
  IUdpClient::Delete(nullptr);
}

}  // namespace
