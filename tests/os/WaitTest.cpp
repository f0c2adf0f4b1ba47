// Waiting for one descriptor.
#include "utility/os/Wait.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <thread>

#include "tests/support/RawPeer.h"
#include "tests/support/Support.h"
#include "utility/os/Handle.h"

namespace Tarn::Os {
namespace {

using namespace tarn_test;

class Pipe {
 public:
  Pipe() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    reader = Descriptor(ends[0]);
    writer = Descriptor(ends[1]);
  }
  void Put() const { EXPECT_EQ(write(writer.Get(), "x", 1), 1); }
  void Fill() const {
    const char block[4096] = {};
    while (write(writer.Get(), block, sizeof(block)) > 0) {
    }
  }
  Descriptor reader;
  Descriptor writer;
};

TEST(WaitTest, ReportsWhatCanBeRead) {
  const Pipe pipe;
  pipe.Put();
  EXPECT_EQ(WaitReadable(pipe.reader.Get(), 0), WaitResult::kReady);
}

TEST(WaitTest, TimesOutAfterTheGivenTime) {
  const Pipe pipe;
  const Stopwatch watch;
  EXPECT_EQ(WaitReadable(pipe.reader.Get(), 60), WaitResult::kTimeout);
  EXPECT_GE(watch.ElapsedMs(), 59);
}

TEST(WaitTest, ANegativeTimeDoesNotWait) {
  const Pipe pipe;
  const Stopwatch watch;
  EXPECT_EQ(WaitReadable(pipe.reader.Get(), -1), WaitResult::kTimeout);
  EXPECT_LT(watch.ElapsedMs(), AtMost(1000));
}

TEST(WaitTest, TheEndOfAStreamIsReady) {
  Pipe pipe;
  pipe.writer.Reset();
  EXPECT_EQ(WaitReadable(pipe.reader.Get(), 0), WaitResult::kReady);
}

TEST(WaitTest, ReportsRoomForWriting) {
  const Pipe pipe;
  EXPECT_EQ(WaitWritable(pipe.writer.Get(), 0), WaitResult::kReady);
  pipe.Fill();
  EXPECT_EQ(WaitWritable(pipe.writer.Get(), 10), WaitResult::kTimeout);
}

TEST(WaitTest, RefusesWhatIsNotADescriptor) {
  errno = 0;
  EXPECT_EQ(WaitReadable(-1, 1000), WaitResult::kFailed);
  EXPECT_EQ(errno, EBADF);
  int number = -1;
  {
    const Pipe pipe;
    number = pipe.reader.Get();
  }
  errno = 0;
  EXPECT_EQ(WaitReadable(number, 1000), WaitResult::kFailed);
  EXPECT_EQ(errno, EBADF);
}

TEST(WaitTest, TakesDescriptorsAboveOneThousandAndTwentyThree) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur < 1600) GTEST_SKIP() << "the limit of descriptors is too low";
  const Pipe pipe;
  pipe.Put();
  const Descriptor high(fcntl(pipe.reader.Get(), F_DUPFD_CLOEXEC, 1500));
  ASSERT_GE(high.Get(), 1500);
  EXPECT_EQ(WaitReadable(high.Get(), 0), WaitResult::kReady);
}

// A thread in `wait` that is sent a signal until it is through.
template <typename Body>
void Interrupt(Body wait, const std::function<void()>& afterFirst) {
  struct sigaction action {};
  struct sigaction old {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, &old), 0);
  std::atomic<bool> done{false};
  std::thread thread([&] {
    wait();
    done = true;
  });
  int signals = 0;
  EXPECT_TRUE(WaitUntil([&] {
    if (!done) pthread_kill(thread.native_handle(), SIGUSR1);
    if (++signals == 5) afterFirst();
    return done.load();
  }));
  thread.join();
  sigaction(SIGUSR1, &old, nullptr);
}

TEST(WaitTest, ASignalEndsAWait) {
  const Pipe pipe;
  WaitResult result = WaitResult::kReady;
  Interrupt([&] { result = WaitReadable(pipe.reader.Get(), 20000); }, [] {});
  EXPECT_EQ(result, WaitResult::kInterrupted);
}

TEST(WaitTest, AConnectIsWaitedForThroughSignals) {
  const Pipe pipe;
  pipe.Fill();
  WaitResult result = WaitResult::kFailed;
  Interrupt([&] { result = WaitConnected(pipe.writer.Get(), 20000); },
            [&] {
              char block[65536];
              while (read(pipe.reader.Get(), block, sizeof(block)) > 0) {
              }
            });
  EXPECT_EQ(result, WaitResult::kReady);
}

TEST(WaitTest, AConnectTimesOut) {
  const Pipe pipe;
  pipe.Fill();
  const Stopwatch watch;
  EXPECT_EQ(WaitConnected(pipe.writer.Get(), 60), WaitResult::kTimeout);
  EXPECT_GE(watch.ElapsedMs(), 59);
  EXPECT_EQ(WaitConnected(pipe.writer.Get(), -5), WaitResult::kTimeout);
}

TEST(WaitTest, ARefusedConnectIsReady) {
  const int port = FreePort();
  const Descriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
    GTEST_SKIP() << "somebody listens there by now";
  }
  EXPECT_EQ(WaitConnected(fd.Get(), 2000), WaitResult::kReady);
}

TEST(WaitTest, OutOfBandDataIsExceptional) {
  RawListener listener;
  const RawPeer client = RawPeer::Connect(listener.Port());
  const RawPeer server = listener.Accept();
  ASSERT_TRUE(server.Valid());
  ASSERT_EQ(send(client.Fd(), "!", 1, MSG_OOB), 1);
  WaitResult result = WaitResult::kReady;
  EXPECT_TRUE(WaitUntil(
      [&] {
        result = WaitConnected(server.Fd(), 10);
        return result == WaitResult::kExceptional;
      },
      1000ms))
      << static_cast<int>(result);
}

}  // namespace
}  // namespace Tarn::Os
