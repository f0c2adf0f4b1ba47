// Shared connections, their table, and sockets left open.
#include "utility/os/Connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <utility>

#include "tests/support/RawPeer.h"

namespace {

using namespace Tarn::Os;
using namespace tarn_test;

bool IsOpen(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0;
}

struct Ends {
  Ends() {
    int fds[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
    connection = std::make_shared<Connection>(Descriptor(fds[0]));
    peer = RawPeer(fds[1]);
  }
  ConnectionPtr connection;
  RawPeer peer;
};

TEST(Connection, TheLastUserCloses) {
  Ends ends;
  const int fd = ends.connection->Fd();
  ConnectionPtr other = ends.connection;
  ends.connection.reset();
  EXPECT_TRUE(IsOpen(fd));
  other.reset();
  EXPECT_FALSE(IsOpen(fd));
}

TEST(Connection, GenerationsAscend) {
  Ends first;
  Ends second;
  EXPECT_GT(first.connection->Generation(), 0U);
  EXPECT_GT(second.connection->Generation(), first.connection->Generation());
}

TEST(Connection, ShutdownEndsTheStreamAndMarks) {
  Ends ends;
  EXPECT_FALSE(ends.connection->Ending());
  ends.connection->Shutdown();
  EXPECT_TRUE(ends.connection->Ending());
  EXPECT_TRUE(ends.peer.WaitClosed());
}

TEST(Connection, ItsEndIsReportedOnce) {
  Ends ends;
  EXPECT_TRUE(ends.connection->ClaimReport());
  EXPECT_FALSE(ends.connection->ClaimReport());
}

TEST(Connection, AnAbandonedOneStaysOpen) {
  Ends ends;
  const int fd = ends.connection->Fd();
  ends.connection->Abandon();
  ends.connection.reset();
  EXPECT_TRUE(IsOpen(fd));
  close(fd);
}

TEST(ConnectionTable, FindsByDescriptorAndForgets) {
  ConnectionTable table;
  Ends ends;
  const int fd = ends.connection->Fd();
  EXPECT_EQ(table.Find(fd), nullptr);
  table.Insert(ends.connection);
  EXPECT_EQ(table.Find(fd), ends.connection);
  table.MarkAllEnding();
  EXPECT_TRUE(ends.connection->Ending());
  table.Erase(fd);
  table.Erase(fd);
  EXPECT_EQ(table.Find(fd), nullptr);
}

TEST(ConnectionTable, ErasingTheLastReferenceCloses) {
  ConnectionTable table;
  Ends ends;
  const int fd = ends.connection->Fd();
  table.Insert(std::exchange(ends.connection, nullptr));
  EXPECT_TRUE(IsOpen(fd));
  table.Erase(fd);
  EXPECT_FALSE(IsOpen(fd));
}

TEST(ConnectionTable, ClearForgetsEverything) {
  ConnectionTable table;
  Ends one;
  Ends two;
  table.Insert(one.connection);
  table.Insert(two.connection);
  table.Clear();
  EXPECT_EQ(table.Find(one.connection->Fd()), nullptr);
  EXPECT_EQ(one.connection.use_count(), 1);
}

TEST(LeftOpenSockets, ClosesWhatIsStillTheSameSocket) {
  int fds[2] = {-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
  LeftOpenSockets left;
  left.Add(fds[0]);
  left.Add(-1);
  left.CloseAll();
  EXPECT_FALSE(IsOpen(fds[0]));
  close(fds[1]);
}

TEST(LeftOpenSockets, LeavesANumberThatIsSomebodyElsesAlone) {
  int fds[2] = {-1, -1};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fds), 0);
  LeftOpenSockets left;
  left.Add(fds[0]);
  dup2(fds[1], fds[0]);
  left.CloseAll();
  EXPECT_TRUE(IsOpen(fds[0]));
  close(fds[0]);
  close(fds[1]);
}

}  // namespace
