// The UDP server against bare sockets.
#include "utility/UdpServer.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
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

/// Starts on a free port, whatever other programs do.
int StartAnywhere(UdpServer& server) {
  const int port = FreeUdpPort();
  EXPECT_EQ(server->Start(port), 1);
  return port;
}

TEST(UdpServer, DeliversEveryDatagramWithItsSender) {
  UdpServer server;
  const int port = StartAnywhere(server);
  RawDatagrams first("127.0.0.1");
  RawDatagrams second("127.0.0.99");
  ASSERT_TRUE(first.Send("127.0.0.1", port, "one"));
  ASSERT_TRUE(server.log_.WaitFor(1));
  ASSERT_TRUE(second.Send("127.0.0.5", port, std::string("t\0wo", 4)));
  ASSERT_TRUE(server.log_.WaitFor(2));
  const auto all = server.log_.All();
  EXPECT_EQ(all[0].bytes, "one");
  EXPECT_EQ(all[0].ip, "127.0.0.1");
  EXPECT_EQ(all[0].port, first.Port());
  EXPECT_EQ(all[1].bytes, std::string("t\0wo", 4));
  EXPECT_EQ(all[1].ip, "127.0.0.99");
  EXPECT_EQ(all[1].port, second.Port());
}

TEST(UdpServer, TheAddressGivenToTheCallbackMayBeWrittenOver) {
  UdpServer server;
  server->RegisterEvent(&server, [](void* user, char* ip, int port, const char*, int) {
    static_cast<UdpServer*>(user)->log_.Add({ip, port, ""});
    std::memset(ip, 'x', 30);
  });
  const int port = StartAnywhere(server);
  RawDatagrams peer;
  for (const std::string bytes : {"one", "two"})
    ASSERT_TRUE(peer.Send("127.0.0.1", port, bytes));
  ASSERT_TRUE(server.log_.WaitFor(2));
  EXPECT_EQ(server.log_.All()[1].ip, "127.0.0.1");
}

TEST(UdpServer, AnswersToAnyAddressFromItsPort) {
  UdpServer server;
  const int port = StartAnywhere(server);
  RawDatagrams peer("127.0.0.7");
  EXPECT_EQ(server->SendMsg("127.0.0.7", peer.Port(), "hello", 5), 5);
  const auto datagram = peer.Receive();
  ASSERT_TRUE(datagram);
  EXPECT_EQ(datagram->bytes, "hello");
  EXPECT_EQ(datagram->port, port);
}

TEST(UdpServer, MayAnswerInTheCallback) {
  UdpServer server;
  server.onMessage_ = [&] {
    const Datagram question = server.log_.All().back();
    server->SendMsg(question.ip.c_str(), question.port, question.bytes.data(),
                    static_cast<int>(question.bytes.size()));
  };
  const int port = StartAnywhere(server);
  RawDatagrams peer;
  for (const std::string bytes : {"one", "two"}) {
    ASSERT_TRUE(peer.Send("127.0.0.1", port, bytes));
    EXPECT_EQ(peer.Receive()->bytes, bytes);
  }
}

TEST(UdpServer, CutsMessagesAtALimitThatTheAddressDecidesKept) {
  UdpServer server;
  server->SetLocalIP("127.0.0.1");
  StartAnywhere(server);
  RawDatagrams self("127.0.0.1");
  RawDatagrams other("127.0.0.2");
  for (const int size : {1, 1400, 1401, 3000, 49152, 65536, 100000}) {
    const std::string message = PatternBytes(static_cast<size_t>(size));
    EXPECT_EQ(server->SendMsg("127.0.0.1", self.Port(), message.data(), size), size);
    const auto large = SizesOf(message.size(), 49152);
    auto datagrams = self.Receive(large.size());
    EXPECT_EQ(Sizes(datagrams), large);
    EXPECT_TRUE(Joined(datagrams) == message);
    EXPECT_EQ(server->SendMsg("127.0.0.2", other.Port(), message.data(), size), size);
    const auto small = SizesOf(message.size(), 1400);
    datagrams = other.Receive(small.size());
    EXPECT_EQ(Sizes(datagrams), small);
    EXPECT_TRUE(Joined(datagrams) == message);
  }
}

TEST(UdpServer, WithoutALocalAddressTheHostsOwnDecides) {
  UdpServer server;
  StartAnywhere(server);
  const std::string own = HostAddress().text;
  RawDatagrams self(own);
  const std::string message = PatternBytes(3000);
  EXPECT_EQ(server->SendMsg(own.c_str(), self.Port(), message.data(), 3000), 3000);
  EXPECT_EQ(self.Receive()->bytes.size(), 3000U);
  // The same address in other words is another one to the library.
  const std::string padded = own + " ";
  EXPECT_EQ(server->SendMsg(padded.c_str(), self.Port(), message.data(), 3000), 3000);
  EXPECT_THAT(Sizes(self.Receive(3)), ElementsAre(1400U, 1400U, 200U));
}

TEST(UdpServer, ListensOnAllAddressesOrOnTheOneThatIsSet) {
  UdpServer server;
  const int port = StartAnywhere(server);
  EXPECT_EQ(BoundTo(server->m_sockfd), "0.0.0.0:" + std::to_string(port));
  server->Stop();
  server->SetLocalIP("127.0.0.9");
  ASSERT_EQ(server->Start(port), 1);
  EXPECT_EQ(BoundTo(server->m_sockfd), "127.0.0.9:" + std::to_string(port));
}

TEST(UdpServer, KeepsSixteenCharactersOfAddressesAndIgnoresANullOne) {
  UdpServer server;
  server->SetLocalIP("127.0.0.1 and so on");
  EXPECT_STREQ(server->m_localIp, "127.0.0.1 and so");
  server->SetLocalIP(nullptr);
  EXPECT_STREQ(server->m_localIp, "127.0.0.1 and so");
  EXPECT_EQ(server->ConnectMultiCast("239.192.100.100.1", FreeUdpPort()), 1);
  EXPECT_STREQ(server->m_groupIp, "239.192.100.100.");
  server->Stop();
  EXPECT_EQ(server->ConnectMultiCast(nullptr, FreeUdpPort()), 1);
  EXPECT_STREQ(server->m_groupIp, "");
}

TEST(UdpServer, StartOnARunningServerReturnsOneAndChangesNothingKept) {
  UdpServer server;
  const int port = StartAnywhere(server);
  const int fd = server->m_sockfd;
  EXPECT_EQ(server->Start(FreeUdpPort()), 1);
  EXPECT_EQ(server->m_sockfd, fd);
  EXPECT_EQ(server->m_port, port);
  RawDatagrams peer;
  ASSERT_TRUE(peer.Send("127.0.0.1", port, "x"));
  EXPECT_TRUE(server.log_.WaitFor(1));
}

TEST(UdpServer, IsWorkingFromStartToStop) {
  UdpServer server;
  EXPECT_EQ(server->IsWorking(), 0);
  StartAnywhere(server);
  EXPECT_EQ(server->IsWorking(), 1);
  server->Stop();
  EXPECT_EQ(server->IsWorking(), 0);
}

TEST(UdpServer, StopTakesASecondAtMostAndResetsAllButTheLocalAddressKept) {
  UdpServer server;
  server->SetLocalIP("127.0.0.1");
  server->SetMaxBufferLen(1000);
  ASSERT_EQ(server->ConnectMultiCast("239.1.2.3", FreeUdpPort()), 1);
  const Stopwatch watch;
  StdoutCapture capture;
  server->Stop();
  EXPECT_LT(watch.ElapsedMs(), AtMost(kStopLimitMs));
  EXPECT_EQ(capture.Text(), "");
  EXPECT_EQ(server->m_sockfd, 0);
  EXPECT_EQ(server->m_port, 0);
  EXPECT_EQ(server->m_readThread, 0U);
  EXPECT_EQ(server->m_maxBufferLen, 10485760);
  EXPECT_EQ(server->m_buffer, nullptr);
  EXPECT_EQ(server->m_onMsg, nullptr);
  EXPECT_EQ(server->m_pUser, nullptr);
  EXPECT_STREQ(server->m_groupIp, "");
  EXPECT_STREQ(server->m_localIp, "127.0.0.1");
  EXPECT_EQ(server->m_bMultiCast, 1);
}

TEST(UdpServer, ARestartNeedsTheCallbackAgainKept) {
  UdpServer server;
  const int port = StartAnywhere(server);
  server->Stop();
  ASSERT_EQ(server->Start(port), 1);
  RawDatagrams peer;
  server->SetMaxBufferLen(10485760);
  ASSERT_TRUE(peer.Send("127.0.0.1", port, "unheard"));
  server->Stop();
  server.Register();
  ASSERT_EQ(server->Start(port), 1);
  ASSERT_TRUE(peer.Send("127.0.0.1", port, "heard"));
  ASSERT_TRUE(server.log_.WaitFor(1));
  EXPECT_EQ(server.log_.All()[0].bytes, "heard");
}

TEST(UdpServer, StopOfAStoppedServerKeepsTheCallback) {
  UdpServer server;
  server->SetMaxBufferLen(1000);
  server->Stop();
  EXPECT_NE(server->m_onMsg, nullptr);
  EXPECT_EQ(server->m_maxBufferLen, 1000);
}

TEST(UdpServer, AFailedBindFailsTheStartAndDropsTheCallback) {
  UdpServer server;
  server->SetLocalIP("192.0.2.99");  // not of this host
  server->SetMaxBufferLen(1000);
  StdoutCapture capture;
  EXPECT_EQ(server->Start(777), 0);
  EXPECT_THAT(capture.Text(), HasSubstr(" CUdpServer::InitSocket bind failed. port:777 "
                                        "error:99\r\n"));
  EXPECT_EQ(server->m_sockfd, 0);
  EXPECT_EQ(server->m_port, 0);
  EXPECT_EQ(server->m_onMsg, nullptr);
  EXPECT_EQ(server->m_maxBufferLen, 10485760);
  EXPECT_EQ(server->IsWorking(), 0);
}

TEST(UdpServer, SocketOptionsThatFailAreToldAndFailTheStartKept) {
  const std::pair<int, const char*> options[] = {
      {SO_REUSEADDR, " setsockopt failed.\r\n"},
      {SO_RCVBUF, " CUdpServer::InitSocket setsockopt SO_RCVBUF error:105\r\n"},
      {SO_SNDBUF, " CUdpServer::InitSocket setsockopt SO_SNDBUF error:105\r\n"}};
  for (const auto& [option, told] : options) {
    const int port = FreeUdpPort();
    UdpFaults faults;
    UdpServer server;
    faults.setsockoptName = option;
    faults.setsockopt.Fail(ENOBUFS, 1);
    StdoutCapture capture;
    EXPECT_EQ(server->Start(port), 0);
    EXPECT_THAT(capture.Text(), HasSubstr(told));
    EXPECT_EQ(server->m_sockfd, 0);
  }
}

TEST(UdpServer, AGroupThatCannotBeJoinedIsNoFailureKept) {
  UdpFaults faults;
  UdpServer server;
  faults.setsockoptName = IP_ADD_MEMBERSHIP;
  faults.setsockopt.Fail(ENODEV, 1);
  StdoutCapture capture;
  EXPECT_EQ(server->ConnectMultiCast("239.1.2.3", FreeUdpPort()), 1);
  EXPECT_EQ(faults.setsockopt.failures, 0);
  EXPECT_EQ(capture.Text(), "");
}

TEST(UdpServer, ASocketThatCannotBeMadeNonBlockingFailsTheStartWithoutALineKept) {
  UdpFaults faults;
  UdpServer server;
  faults.fcntl.Fail(EINVAL, 1);
  StdoutCapture capture;
  EXPECT_EQ(server->Start(FreeUdpPort()), 0);
  EXPECT_EQ(capture.Text(), "");
}

TEST(UdpServer, ASocketThatCannotBeHadIsTold) {
  UdpFaults faults;
  UdpServer server;
  faults.socket.Fail(EMFILE, 1);
  StdoutCapture capture;
  EXPECT_EQ(server->Start(9), 0);
  EXPECT_THAT(capture.Text(), HasSubstr(" CUdpServer::InitSocket socket create failed.\r\n"));
}

TEST(UdpServer, AThreadThatCannotBeHadFailsTheStart) {
  UdpFaults faults;
  UdpServer server;
  faults.create.Fail(EAGAIN, 1);
  EXPECT_EQ(server->Start(FreeUdpPort()), 0);
  EXPECT_EQ(server->m_readThread, 0U);
  EXPECT_EQ(server->IsWorking(), 0);
  EXPECT_EQ(server->m_buffer, nullptr);
  EXPECT_EQ(server->Start(FreeUdpPort()), 1);
}

TEST(UdpServer, ABufferThatCannotBeHadFailsTheStart) {
  UdpServer server;
  server->SetMaxBufferLen(-1);
  EXPECT_EQ(server->Start(FreeUdpPort()), 0);
  EXPECT_EQ(server->m_maxBufferLen, 10485760);
  EXPECT_EQ(server->Start(FreeUdpPort()), 1);
}

TEST(UdpServer, TheSocketHasLargeBuffersAndNonBlockingAsItsOnlyFlagKept) {
  UdpServer server;
  StartAnywhere(server);
  const int fd = server->m_sockfd;
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
  EXPECT_EQ(server->SetNonblocking(), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_NONBLOCK | O_ASYNC), O_NONBLOCK);
  EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST(UdpServer, EmptyDatagramsAreNotDeliveredKept) {
  UdpServer server;
  const int port = StartAnywhere(server);
  RawDatagrams peer;
  ASSERT_TRUE(peer.Send("127.0.0.1", port, ""));
  ASSERT_TRUE(peer.Send("127.0.0.1", port, "one"));
  ASSERT_TRUE(server.log_.WaitFor(1));
  EXPECT_EQ(server.log_.All()[0].bytes, "one");
}

TEST(UdpServer, ADatagramMayFillTheBufferAndIsCutBeyondKept) {
  UdpServer server;
  server->SetMaxBufferLen(100);
  const int port = StartAnywhere(server);
  RawDatagrams peer;
  const std::string bytes = PatternBytes(101);
  ASSERT_TRUE(peer.Send("127.0.0.1", port, bytes.substr(0, 100)));
  ASSERT_TRUE(peer.Send("127.0.0.1", port, bytes));
  ASSERT_TRUE(server.log_.WaitFor(2));
  for (const Datagram& each : server.log_.All())
    EXPECT_EQ(each.bytes, bytes.substr(0, 100));
}

TEST(UdpServer, ABufferKeepsItsCapacityWhateverIsSetLater) {
  UdpServer server;
  server->SetMaxBufferLen(10);
  const int port = StartAnywhere(server);
  RawDatagrams peer;
  for (const int later : {INT_MAX, 4, 0, -1, INT_MIN}) {
    server->SetMaxBufferLen(later);
    ASSERT_TRUE(peer.Send("127.0.0.1", port, std::string(60000, 'x')));
  }
  server->SetMaxBufferLen(INT_MAX);
  ASSERT_TRUE(peer.Send("127.0.0.1", port, "last"));
  ASSERT_TRUE(WaitUntil([&] {
    const auto all = server.log_.All();
    return !all.empty() && all.back().bytes == "last";
  }));
  for (const Datagram& each : server.log_.All())
    EXPECT_LE(each.bytes.size(), 10U);
}

TEST(UdpServer, SendMsgRefusesBadArgumentsAndAStoppedServerSendsNothing) {
  UdpServer server;
  StdoutCapture capture;
  EXPECT_EQ(server->SendMsg("127.0.0.1", 9, "abc", 3), -1);
  const int port = StartAnywhere(server);
  EXPECT_EQ(server->SendMsg(nullptr, port, "abc", 3), -1);
  EXPECT_EQ(server->SendMsg("127.0.0.1", port, nullptr, 3), -1);
  EXPECT_EQ(server->SendMsg("127.0.0.1", port, "abc", -1), -1);
  EXPECT_EQ(server->SendMsg("127.0.0.1", port, "", 0), 0);
  server->Stop();
  EXPECT_EQ(server->SendMsg("127.0.0.1", port, "abc", 3), -1);
  EXPECT_EQ(capture.Text(), "");
}

TEST(UdpServer, ASocketThatIsFullForAMillisecondIsNotWaitedForKept) {
  UdpFaults faults;
  UdpServer server;
  StartAnywhere(server);
  faults.neverWritable = true;
  StdoutCapture capture;
  EXPECT_EQ(server->SendMsg("127.0.0.1", 9, "abc", 3), -1);
  EXPECT_EQ(capture.Text(), "");
}

TEST(UdpServer, AFailedSendIsToldAndReturnsTheErrorNumber) {
  UdpServer server;
  StartAnywhere(server);
  StdoutCapture capture;
  EXPECT_EQ(server->SendMsg("nowhere", 9, "abc", 3), -EACCES);
  EXPECT_THAT(capture.Text(), HasSubstr(" CUdpServer::SendMsg sendto send_ret:-1 errCode: 13\r\n"));
}

TEST(UdpServer, StopEndsASendToASocketThatStaysFull) {
  UdpFaults faults;
  UdpServer server;
  StartAnywhere(server);
  faults.sendto.Fail(EAGAIN, INT_MAX);
  std::atomic<int> result{0};
  std::thread sender([&] { result = server->SendMsg("127.0.0.1", 9, "abc", 3); });
  ASSERT_TRUE(WaitUntil([&] { return faults.sendto.calls > 2; }));
  server->Stop();
  sender.join();
  EXPECT_EQ(result, 3);  // counts as sent
}

TEST(UdpServer, StopAndDeleteRightAfterStartWork) {
  for (int i = 0; i < 2; ++i) {
    UdpServer server;
    StartAnywhere(server);
    const Stopwatch watch;
    std::thread([&] { server->Stop(); }).join();
    EXPECT_LT(watch.ElapsedMs(), AtMost(kStopLimitMs));
    EXPECT_EQ(server->m_sockfd, 0);
  }
  UdpServer running;
  StartAnywhere(running);
}

TEST(UdpServer, TheDescriptorIsFreeAgainAfterStop) {
  UdpServer server;
  const int port = StartAnywhere(server);
  const int fd = server->m_sockfd;
  server->Stop();
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  RawDatagrams next("127.0.0.1", port);
  EXPECT_TRUE(next.Valid());
}

TEST(UdpServer, DeletingTheServerInItsCallbackIsSafe) {
  struct Context {
    IUdpServer* server;
    std::atomic<bool> done{false};
  } context{IUdpServer::Create()};
  context.server->RegisterEvent(&context, [](void* user, char* ip, int, const char* data, int) {
    auto* self = static_cast<Context*>(user);
    IUdpServer::Delete(self->server);
    EXPECT_STREQ(data, "bye");
    EXPECT_STREQ(ip, "127.0.0.1");
    self->done = true;
  });
  const int port = FreeUdpPort();
  ASSERT_EQ(context.server->Start(port), 1);
  RawDatagrams peer;
  ASSERT_TRUE(peer.Send("127.0.0.1", port, "bye"));
  peer.Send("127.0.0.1", port, "unheard");
  EXPECT_TRUE(WaitUntil([&] { return context.done.load(); }));
}

TEST(UdpServer, RestartingInItsCallbackIsSafe) {
  UdpServer server;
  const int next = FreeUdpPort();
  std::atomic<int> restarted{0};
  server.onMessage_ = [&] {
    if (restarted != 0) return;
    server->Stop();
    server.Register();
    restarted = server->Start(next);
  };
  const int port = StartAnywhere(server);
  RawDatagrams peer;
  ASSERT_TRUE(peer.Send("127.0.0.1", port, "first"));
  ASSERT_TRUE(WaitUntil([&] { return restarted == 1; }));
  ASSERT_TRUE(peer.Send("127.0.0.1", next, "second"));
  EXPECT_TRUE(server.log_.WaitFor(2));
}

TEST(UdpServer, ManyThreadsMaySendAndRegisterWhileItReads) {
  UdpServer server;
  server->SetLocalIP("127.0.0.1");
  const int port = StartAnywhere(server);
  RawDatagrams peer("127.0.0.2");
  constexpr int kEach = 60;
  std::vector<std::thread> senders;
  for (int i = 0; i < 3; ++i) {
    senders.emplace_back([&] {
      const std::string message = PatternBytes(4000);
      for (int k = 0; k < kEach; ++k) {
        EXPECT_EQ(server->SendMsg("127.0.0.2", peer.Port(), message.data(), 4000), 4000);
        server.Register();
        server->SetLocalIP("127.0.0.1");
        peer.Send("127.0.0.1", port, "x");
      }
    });
  }
  EXPECT_EQ(peer.Receive(3 * 3 * kEach).size(), 3U * 3U * kEach);
  for (auto& sender : senders)
    sender.join();
  EXPECT_TRUE(server.log_.WaitFor(3 * kEach));
}

TEST(UdpServer, SendsNothingBeforeItsSocketIsBound) {
  const int port = FreeUdpPort();
  UdpFaults faults;
  UdpServer server;
  int early = 0;
  faults.beforeBind = [&] { early = server->SendMsg("127.0.0.1", port, "early", 5); };
  EXPECT_EQ(server->Start(port), 1);
  EXPECT_EQ(early, -1);
}

TEST(UdpServer, TwoServersAtOnce) {
  UdpServer one;
  UdpServer two;
  const int first = StartAnywhere(one);
  const int second = StartAnywhere(two);
  RawDatagrams peer;
  ASSERT_TRUE(peer.Send("127.0.0.1", first, "to one"));
  ASSERT_TRUE(peer.Send("127.0.0.1", second, "to two"));
  ASSERT_TRUE(one.log_.WaitFor(1) && two.log_.WaitFor(1));
  EXPECT_EQ(one.log_.All()[0].bytes, "to one");
  EXPECT_EQ(two.log_.All()[0].bytes, "to two");
}

TEST(UdpServer, ItsOwnClientTalksToIt) {
  UdpServer server;
  server.onMessage_ = [&] {
    const Datagram question = server.log_.All().back();
    server->SendMsg(question.ip.c_str(), question.port, "yes", 3);
  };
  const int port = StartAnywhere(server);
  UdpClient client;
  client->SetLocalAddr("127.0.0.1", 0);
  ASSERT_EQ(client->Connect("127.0.0.1", port), 1);
  EXPECT_EQ(client->SendMsg("there?", 6), 6);
  ASSERT_TRUE(client.log_.WaitFor(1));
  EXPECT_EQ(client.log_.All()[0], "yes");
}

// The fields in their order; programs that look at them in a debugger rely on it.
TEST(UdpServer, TheFieldsStandInTheirOrder) {
  UdpServer server;
  const CUdpServer& s = *server.server_;
  const void* const fields[] = {&s.m_bReading, &s.m_sockfd,     &s.m_buffer, &s.m_maxBufferLen,
                                &s.m_onMsg,    &s.m_pUser,      &s.m_port,   &s.m_readThread,
                                &s.m_localIp,  &s.m_bMultiCast, &s.m_groupIp};
  EXPECT_TRUE(std::is_sorted(std::begin(fields), std::end(fields)));
}

TEST(UdpServer, TheSlotsStandInTheirOrder) {
  EXPECT_EQ(SlotOf(&IUdpServer::RegisterEvent), 2U);
  EXPECT_EQ(SlotOf(&IUdpServer::Start), 3U);
  EXPECT_EQ(SlotOf(&IUdpServer::SetLocalIP), 4U);
  EXPECT_EQ(SlotOf(&IUdpServer::ConnectMultiCast), 5U);
  EXPECT_EQ(SlotOf(&IUdpServer::Stop), 6U);
  EXPECT_EQ(SlotOf(&IUdpServer::SendMsg), 7U);
  EXPECT_EQ(SlotOf(&IUdpServer::SetMaxBufferLen), 8U);
  EXPECT_EQ(SlotOf(&IUdpServer::IsWorking), 9U);
}

TEST(UdpServer, ConnectMultiCastGoesThroughStart) {
  struct Asked : CUdpServer {
    int Start(int port) override {
      asked = std::string(m_groupIp) + ":" + std::to_string(port);
      return 7;
    }
    std::string asked;
  } server;
  EXPECT_EQ(server.ConnectMultiCast("239.1.2.3", 5007), 7);
  EXPECT_EQ(server.asked, "239.1.2.3:5007");
  EXPECT_EQ(server.m_bMultiCast, 1);
}

TEST(UdpServer, AFreshServerHasItsDefaults) {
  UdpServer server;
  EXPECT_EQ(server->IsWorking(), 0);
  EXPECT_EQ(server->m_sockfd, 0);
  EXPECT_EQ(server->m_buffer, nullptr);
  EXPECT_EQ(server->m_maxBufferLen, 10485760);
  EXPECT_EQ(server->m_port, 0);
  EXPECT_EQ(server->m_readThread, 0U);
  EXPECT_STREQ(server->m_localIp, "");
  EXPECT_EQ(server->m_bMultiCast, 0);
  EXPECT_STREQ(server->m_groupIp, "");
}

TEST(UdpServer, DeleteIgnoresNull) {
  IUdpServer::Delete(nullptr);
}

}  // namespace
