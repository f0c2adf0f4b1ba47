// Socket verbs.
#include "utility/os/Socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>

#include "tests/support/RawPeer.h"

namespace {

using namespace Tarn::Os;
using namespace tarn_test;

/// Both ends of a stream, the first one with a small send buffer.
struct Pair {
  Pair() {
    int fds[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    a.Reset(fds[0]);
    b.Reset(fds[1]);
    const int small = 4096;
    setsockopt(fds[0], SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
  }
  Descriptor a;
  Descriptor b;
};

constexpr auto kAlways = [] { return true; };

TEST(Socket, ANewSocketClosesOnExec) {
  const Descriptor fd = OpenStreamSocket();
  ASSERT_TRUE(fd.Valid());
  EXPECT_NE(fcntl(fd.Get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(Socket, LowDescriptorsAreMovedUp) {
  const int status = RunInChild([] {
    close(0);
    const Descriptor fd = OpenStreamSocket();
    if (!fd.Valid() || fd.Get() < 3) return 1;
    struct stat info {};
    return fstat(0, &info) == -1 ? 0 : 2;  // the low one is free again
  });
  EXPECT_EQ(status, 0);
}

TEST(Socket, HighAndInvalidDescriptorsStayAsTheyAre) {
  EXPECT_EQ(AboveStandardStreams(-1), -1);
  EXPECT_EQ(AboveStandardStreams(77), 77);
}

TEST(Socket, SetterErrorsAreNegatedErrorNumbers) {
  EXPECT_EQ(SetNonblocking(-1), -EBADF);
  EXPECT_EQ(SetReuseAddress(-1), -EBADF);
  EXPECT_EQ(SetKeepAlive(-1), -EBADF);
  EXPECT_EQ(SetReceiveBufferSize(-1, 1), -EBADF);
  EXPECT_EQ(SetSendBufferSize(-1, 1), -EBADF);
  EXPECT_EQ(BindPort(-1, 1), -EBADF);
  EXPECT_EQ(Listen(-1, 1), -EBADF);
  EXPECT_EQ(Connect(-1, "127.0.0.1", 1), -EBADF);
  EXPECT_EQ(PendingError(-1), EBADF);
}

TEST(Socket, ProbeSucceedsFailsAndLeavesAReset) {
  RawListener listener;
  EXPECT_EQ(ProbePort("127.0.0.1", listener.Port()), 0);
  RawPeer peer = listener.Accept();
  ASSERT_TRUE(peer.WaitReadable(2000ms));
  char byte = 0;
  EXPECT_EQ(recv(peer.Fd(), &byte, 1, 0), -1);
  EXPECT_EQ(errno, ECONNRESET);
  EXPECT_EQ(ProbePort("127.0.0.1", FreePort()), -ECONNREFUSED);
}

TEST(Socket, TellsThePeersAddress) {
  RawListener listener;
  RawPeer client = RawPeer::Connect(listener.Port());
  RawPeer server = listener.Accept();
  PeerAddress address{};
  ASSERT_EQ(PeerOf(server.Fd(), address), 0);
  EXPECT_STREQ(address.ip, "127.0.0.1");
  EXPECT_EQ(address.port, client.LocalPort());
  EXPECT_EQ(PeerOf(-1, address), -EBADF);
}

TEST(Socket, ReceiveNowNeverBlocks) {
  Pair pair;
  char byte = 0;
  EXPECT_EQ(ReceiveNow(pair.a.Get(), &byte, 1), -EAGAIN);
  ASSERT_EQ(write(pair.b.Get(), "x", 1), 1);
  EXPECT_EQ(ReceiveNow(pair.a.Get(), &byte, 1), 1);
  pair.b.Reset();
  EXPECT_EQ(ReceiveNow(pair.a.Get(), &byte, 1), 0);
}

TEST(Socket, SendAllWaitsForRoom) {
  Pair pair;
  const std::string much = PatternBytes(1 << 20);
  std::string received;
  std::thread reader([&] {
    char block[65536];
    ssize_t count = 0;
    while ((count = read(pair.b.Get(), block, sizeof(block))) > 0) {
      received.append(block, static_cast<size_t>(count));
    }
  });
  const SendResult result =
      SendAll(pair.a.Get(), much.data(), much.size(), SendMode::kNeverBlock, kAlways);
  EXPECT_EQ(result.end, SendResult::End::kAll);
  pair.a.Reset();
  reader.join();
  EXPECT_TRUE(received == much);
}

TEST(Socket, SendAllStopsWhenTold) {
  Pair pair;
  const std::string much(1 << 20, 'x');
  std::atomic<bool> goOn{true};
  std::thread stopper([&] {
    pollfd ready{pair.b.Get(), POLLIN, 0};
    poll(&ready, 1, 5000);
    goOn = false;
  });
  const SendResult result = SendAll(pair.a.Get(), much.data(), much.size(), SendMode::kNeverBlock,
                                    [&] { return goOn.load(); });
  EXPECT_EQ(result.end, SendResult::End::kStopped);
  stopper.join();
}

TEST(Socket, SendAllReportsTheFailureWithoutASignal) {
  std::signal(SIGPIPE, SIG_DFL);
  Pair pair;
  pair.b.Reset();
  const SendResult result = SendAll(pair.a.Get(), "x", 1, SendMode::kNeverBlock, kAlways);
  std::signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(result.end, SendResult::End::kFailed);
  EXPECT_EQ(result.sendResult, -1);
  EXPECT_EQ(result.error, EPIPE);
}

TEST(Socket, SendAllOfNothingIsDoneAtOnce) {
  EXPECT_EQ(SendAll(-1, "", 0, SendMode::kAsIs, kAlways).end, SendResult::End::kAll);
}

TEST(Socket, AcceptGivesABlockingDescriptor) {
  const Descriptor own = OpenStreamSocket();
  ASSERT_EQ(BindPort(own.Get(), 0), 0);
  ASSERT_EQ(Listen(own.Get(), 4), 0);
  sockaddr_in address{};
  socklen_t size = sizeof(address);
  getsockname(own.Get(), reinterpret_cast<sockaddr*>(&address), &size);
  RawPeer client = RawPeer::Connect(ntohs(address.sin_port));
  const Descriptor accepted = Accept(own.Get());
  ASSERT_TRUE(accepted.Valid());
  EXPECT_EQ(fcntl(accepted.Get(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(fcntl(accepted.Get(), F_GETFD) & FD_CLOEXEC, 0);
}

}  // namespace
