// Uploads over real connections: client against server, and each against a bare socket.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>
#include <thread>

#include "tests/UploadFixtures.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

// {"err":0,"file":"NAME"} CR LF with a name of 20 digits and ".txt".
constexpr size_t kAnswerBytes = 45;

struct DeleteServer {
  void operator()(IUploadServer* server) const { IUploadServer::Delete(server); }
};
struct DeleteClient {
  void operator()(IUploadClient* client) const { IUploadClient::Delete(client); }
};
using ServerPtr = std::unique_ptr<IUploadServer, DeleteServer>;
using ClientPtr = std::unique_ptr<IUploadClient, DeleteClient>;

class UploadTest : public TransferFixture {
 protected:
  void StartServer() {
    ASSERT_TRUE(server_->SetPath(dir_.File("up").c_str()));
    port_ = FreePort();
    ASSERT_TRUE(server_->Start(port_));
  }
  bool Upload(IUploadClient& client, const std::string& path) {
    char ip[] = "127.0.0.1";
    return client.Upload(ip, port_, path.c_str());
  }
  std::string FileWith(const std::string& name, const std::string& content) {
    WriteFile(dir_.File(name), content);
    return dir_.File(name);
  }
  [[nodiscard]] std::vector<std::string> StoredNames() const { return StoredIn(dir_); }
  [[nodiscard]] std::string Stored(const std::string& name) const {
    return ReadFile(dir_.File("up\\" + name));
  }

  const TempDir dir_;
  UploadEvents events_;
  ServerPtr server_{IUploadServer::Create()};
  int port_ = 0;
};

TEST_F(UploadTest, StoresASmallFileAndNamesItToTheHost) {
  StartServer();
  const ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  const std::string path = FileWith("a.txt", "0123456789");
  ASSERT_TRUE(Upload(*client, path));
  ASSERT_TRUE(events_.WaitForResults(1));
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_THAT(StoredNames()[0], MatchesRegex("[0-9]{20}\\.txt"));
  EXPECT_EQ(Stored(StoredNames()[0]), "0123456789");
  EXPECT_THAT(events_.Results(),
              ElementsAre(UploadEvents::Result{path, true, StoredNames()[0], 0}));
  EXPECT_THAT(events_.Progress(), ElementsAre(100));
}

TEST_F(UploadTest, StoresAFileOfSeveralBlocks) {
  StartServer();
  const ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  const std::string content = PatternBytes(2 * kBlock + kBlock / 2);
  ASSERT_TRUE(Upload(*client, FileWith("a.bin", content)));
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Codes(), ElementsAre(0u));
  EXPECT_THAT(events_.Progress(), ElementsAre(40, 80, 100));
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_EQ(Stored(StoredNames()[0]), content);
}

TEST_F(UploadTest, StoresTwoUploadsAtOnce) {
  StartServer();
  UploadEvents otherEvents;
  const ClientPtr client(IUploadClient::Create());
  const ClientPtr other(IUploadClient::Create());
  events_.Register(*client);
  otherEvents.Register(*other);
  ASSERT_TRUE(Upload(*client, FileWith("a.one", "content one")));
  ASSERT_TRUE(Upload(*other, FileWith("b.two", "content two!")));
  ASSERT_TRUE(events_.WaitForResults(1));
  ASSERT_TRUE(otherEvents.WaitForResults(1));
  EXPECT_EQ(Stored(events_.Results()[0].storedName), "content one");
  EXPECT_EQ(Stored(otherEvents.Results()[0].storedName), "content two!");
}

TEST_F(UploadTest, AnswersABarePeerWithOneLine) {
  StartServer();
  RawPeer peer = RawPeer::Connect(port_);
  for (const char byte : UploadStream("hello", ".txt"))
    ASSERT_TRUE(peer.Send({byte}));
  const std::string answer = peer.Receive(kAnswerBytes);
  EXPECT_THAT(answer, MatchesRegex("\\{\"err\":0,\"file\":\"[0-9]{20}\\.txt\"\\}\r\n"));
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_EQ(Stored(StoredNames()[0]), "hello");
}

TEST_F(UploadTest, KeepsTheConnectionOpenAndIgnoresItAfterTheAnswer) {
  StartServer();
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send(UploadStream("hello", ".txt")));
  ASSERT_EQ(peer.Receive(kAnswerBytes).size(), kAnswerBytes);
  ASSERT_TRUE(peer.Send(UploadStream("second", ".txt") + std::string(kBlock, 'x')));
  EXPECT_FALSE(peer.WaitReadable(300ms));
  EXPECT_EQ(StoredNames().size(), 1u);
}

TEST_F(UploadTest, ClosesAConnectionAfterAMismatch) {
  StartServer();
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send(UploadHeaderFor(55, Md5Of("other"), ".txt") + "hello"));
  EXPECT_THAT(peer.ReceiveAll(), MatchesRegex("\\{\"err\":0,\"file\":\"[0-9]{20}\\.txt\"\\}\r\n"));
  EXPECT_TRUE(peer.WaitClosed());
  EXPECT_THAT(StoredNames(), IsEmpty());
}

TEST_F(UploadTest, ClosesAConnectionThatAnnouncesTooLittleWithoutAnAnswer) {
  StartServer();
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send(UploadHeaderFor(49, Md5Of(""), ".txt")));
  EXPECT_EQ(peer.ReceiveAll(), "");
  EXPECT_TRUE(peer.WaitClosed());
}

TEST_F(UploadTest, LeavesNoFileWhenAConnectionClosesAfterHalfTheData) {
  StartServer();
  const std::string content = PatternBytes(100000);
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send(UploadStream(content, ".bin").substr(0, 50000)));
  EXPECT_TRUE(WaitUntil([this] { return StoredNames().size() == 1; }));
  peer.Close();
  EXPECT_TRUE(WaitUntil([this] { return StoredNames().empty(); }));
}

TEST_F(UploadTest, PutsTheHeaderAndTheFileOnTheWire) {
  RawListener listener;
  port_ = listener.Port();
  const ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  RawPeer peer;
  std::thread accepting([&] { peer = listener.AcceptSpeaker(); });
  const std::string path = FileWith("a.txt", "0123456789");
  EXPECT_TRUE(Upload(*client, path));
  accepting.join();
  EXPECT_EQ(peer.Receive(60), UploadStream("0123456789", ".txt"));
  ASSERT_TRUE(peer.Send("{\"err\":0,\"file\":\"any\"}\r\n{\"err\":8}\r\n"));
  ASSERT_TRUE(events_.WaitForResults(2));
  EXPECT_THAT(events_.Results(), ElementsAre(UploadEvents::Result{path, true, "any", 0},
                                             UploadEvents::Result{path, true, "", 8}));
}

TEST_F(UploadTest, ReportsARefusedConnection) {
  port_ = FreePort();
  const ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  ASSERT_TRUE(Upload(*client, FileWith("a.txt", "x")));
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Results(), ElementsAre(UploadEvents::Result{"", false, "", 1}));
}

TEST_F(UploadTest, ReportsAConnectionThatClosesBeforeTheEnd) {
  RawListener listener;
  port_ = listener.Port();
  const ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  std::thread accepting([&] { listener.AcceptSpeaker().Receive(50); });
  MakeSparseFile(dir_.File("long.bin"), 30 * kBlock);
  EXPECT_TRUE(Upload(*client, dir_.File("long.bin")));
  accepting.join();
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Codes(), testing::Each(2003u));
  EXPECT_LT(events_.Progress().size(), 30u);
}

TEST_F(UploadTest, DoesNotTellTheHostOfAMismatchKept) {
  StartServer();
  const ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  const std::string path = FileWith("a.bin", PatternBytes(kBlock + 1000));
  // The first block has been read, the second one changes.
  events_.onProgress = [&] { WriteFile(path, PatternBytes(kBlock + 1000, 2)); };
  ASSERT_TRUE(Upload(*client, path));
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_TRUE(WaitUntil([this] { return StoredNames().empty(); }));
  EXPECT_FALSE(events_.WaitForResults(2, 300ms));
  EXPECT_THAT(events_.Codes(), ElementsAre(0u));
}

TEST_F(UploadTest, WorksAgainAfterStopAndStart) {
  StartServer();
  server_->Stop();
  ASSERT_TRUE(server_->Start(port_));
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send(UploadStream("hello", ".txt")));
  EXPECT_EQ(peer.Receive(kAnswerBytes).size(), kAnswerBytes);
}

TEST_F(UploadTest, WorksAgainAfterAFailedStart) {
  const RawListener occupied;
  ASSERT_TRUE(server_->SetPath(dir_.File("up").c_str()));
  {
    const StdoutCapture quiet;
    EXPECT_FALSE(server_->Start(occupied.Port()));
  }
  StartServer();
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send(UploadStream("hello", ".txt")));
  EXPECT_EQ(peer.Receive(kAnswerBytes).size(), kAnswerBytes);
}

TEST_F(UploadTest, RefusesASecondStartAndGoesOn) {
  StartServer();
  {
    const StdoutCapture quiet;
    EXPECT_FALSE(server_->Start(port_));
    EXPECT_FALSE(server_->Start(FreePort()));
  }
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send(UploadStream("hello", ".txt")));
  EXPECT_EQ(peer.Receive(kAnswerBytes).size(), kAnswerBytes);
}

TEST_F(UploadTest, DeletesAFileInReceiptAtStop) {
  StartServer();
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send(UploadStream("0123456789", ".txt").substr(0, 55)));
  EXPECT_TRUE(WaitUntil([this] { return StoredNames().size() == 1; }));
  EXPECT_TRUE(server_->Stop());
  EXPECT_THAT(StoredNames(), IsEmpty());
}

TEST_F(UploadTest, StopsAtOnceAfterTheStart) {
  const Stopwatch watch;
  StartServer();
  EXPECT_TRUE(server_->Stop());
  EXPECT_LT(watch.ElapsedMs(), AtMost(2500));
}

TEST_F(UploadTest, StopsWhileClientsUpload) {
  StartServer();
  std::vector<std::thread> peers;
  for (int i = 0; i < 4; ++i) {
    peers.emplace_back([this] {
      RawPeer peer = RawPeer::Connect(port_);
      const std::string content = PatternBytes(kBlock);
      peer.Send(UploadHeaderFor(4000000000u, "", ".bin") + content);
      for (int block = 0; block < 3 && peer.Valid(); ++block)
        peer.Send(content);
    });
  }
  EXPECT_TRUE(WaitUntil([this] { return !StoredNames().empty(); }));
  const Stopwatch watch;
  EXPECT_TRUE(server_->Stop());
  EXPECT_LT(watch.ElapsedMs(), AtMost(2500));
  EXPECT_THAT(StoredNames(), IsEmpty());
  server_.reset();
  for (std::thread& peer : peers)
    peer.join();
}

TEST_F(UploadTest, EndsATransferOnDelete) {
  StartServer();
  ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  MakeSparseFile(dir_.File("long.bin"), 100 * kBlock);
  ASSERT_TRUE(Upload(*client, dir_.File("long.bin")));
  EXPECT_TRUE(
      WaitUntil([this] { return events_.Progress().size() > 1 || !events_.Codes().empty(); }));
  const Stopwatch watch;
  client.reset();
  EXPECT_LT(watch.ElapsedMs(), AtMost(2500));
  EXPECT_THAT(events_.Codes(), IsEmpty());
  EXPECT_TRUE(WaitUntil([this] { return StoredNames().empty(); }));
}

TEST_F(UploadTest, EndsATransferToAServerThatDoesNotReadOnDelete) {
  RawListener listener;
  port_ = listener.Port();
  ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  RawPeer peer;
  std::thread accepting([&] { peer = listener.AcceptSpeaker(); });
  MakeSparseFile(dir_.File("long.bin"), 100 * kBlock);
  EXPECT_TRUE(Upload(*client, dir_.File("long.bin")));
  accepting.join();
  // The loop stands in a send as soon as the progress stays where it is for several pauses.
  size_t last = 0;
  EXPECT_TRUE(WaitUntil(
      [&] {
        std::this_thread::sleep_for(400ms);
        return std::exchange(last, events_.Progress().size()) == events_.Progress().size() &&
               last > 0;
      },
      20000ms));
  const Stopwatch watch;
  client.reset();
  EXPECT_LT(watch.ElapsedMs(), AtMost(2500));
}

TEST_F(UploadTest, MayBeDeletedRightAfterTheUploadBegan) {
  StartServer();
  for (int round = 0; round < 3; ++round) {
    ClientPtr client(IUploadClient::Create());
    events_.Register(*client);
    MakeSparseFile(dir_.File("long.bin"), 100 * kBlock);
    ASSERT_TRUE(Upload(*client, dir_.File("long.bin")));
    const Stopwatch watch;
    client.reset();
    EXPECT_LT(watch.ElapsedMs(), AtMost(2500));
  }
}

TEST_F(UploadTest, MayBeUsedForTheNextFileInTheResultCallback) {
  StartServer();
  const ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  std::deque<std::string> left{FileWith("b.txt", "second"), FileWith("c.txt", "third")};
  events_.onResult = [&] {
    if (left.empty()) return;
    const std::string next = left.front();
    left.pop_front();
    EXPECT_TRUE(Upload(*client, next));
  };
  ASSERT_TRUE(Upload(*client, FileWith("a.txt", "first")));
  ASSERT_TRUE(events_.WaitForResults(3));
  std::vector<std::string> stored;
  for (const UploadEvents::Result& result : events_.Results()) {
    stored.push_back(Stored(result.storedName));
  }
  EXPECT_THAT(stored, ElementsAre("first", "second", "third"));
}

TEST_F(UploadTest, MayBeDeletedInTheResultCallback) {
  StartServer();
  IUploadClient* client = IUploadClient::Create();
  events_.Register(*client);
  std::atomic<bool> deleted{false};
  events_.onResult = [&] {
    IUploadClient::Delete(client);
    deleted = true;
  };
  ASSERT_TRUE(Upload(*client, FileWith("a.txt", "content")));
  EXPECT_TRUE(WaitUntil([&] { return deleted.load(); }));
}

TEST_F(UploadTest, MayBeDeletedInTheProgressCallback) {
  StartServer();
  IUploadClient* client = IUploadClient::Create();
  events_.Register(*client);
  std::atomic<bool> deleted{false};
  events_.onProgress = [&] {
    IUploadClient::Delete(client);
    deleted = true;
  };
  ASSERT_TRUE(Upload(*client, FileWith("a.bin", std::string(3 * kBlock, 'x'))));
  EXPECT_TRUE(WaitUntil([&] { return deleted.load(); }));
  EXPECT_TRUE(WaitUntil([this] { return StoredNames().empty(); }));
  EXPECT_THAT(events_.Progress(), ElementsAre(33));
}

TEST_F(UploadTest, MayRetryInTheCallbackOfAFailedConnect) {
  port_ = FreePort();
  const ClientPtr client(IUploadClient::Create());
  events_.Register(*client);
  const std::string path = FileWith("a.txt", "x");
  std::atomic<int> tries{1};
  events_.onResult = [&] {
    if (tries++ >= 3) return;
    EXPECT_TRUE(Upload(*client, path));
  };
  ASSERT_TRUE(Upload(*client, path));
  ASSERT_TRUE(events_.WaitForResults(3));
  EXPECT_TRUE(WaitUntil([&] { return tries == 4; }));
  EXPECT_THAT(events_.Codes(), ElementsAre(1u, 1u, 1u));
}

TEST_F(UploadTest, HoldsLittleMemoryForIdleConnections) {
  rlimit files{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
  files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
  StartServer();
  const auto residentKiB = [] {
    const std::string status = ReadFile("/proc/self/status");
    return std::stol(status.substr(status.find("VmRSS:") + 6));
  };
  const long before = residentKiB();
  std::vector<RawPeer> peers;
  for (int i = 0; i < 1024; ++i)
    peers.push_back(RawPeer::Connect(port_));
  for (RawPeer& peer : peers)
    ASSERT_TRUE(peer.Valid());
  // Each has sent something, so that the server has a record of all of them by the last answer.
  for (size_t i = 0; i < 1023; ++i)
    ASSERT_TRUE(peers[i].Send("x"));
  ASSERT_TRUE(peers.back().Send(UploadStream("hello", ".txt")));
  ASSERT_EQ(peers.back().Receive(kAnswerBytes).size(), kAnswerBytes);
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const long limitKiB = 4 * 16 * 1024;  // the sanitizers add their own
#else
  const long limitKiB = 16 * 1024;
#endif
  EXPECT_LT(residentKiB() - before, limitKiB);
}

TEST(Upload, IgnoresTheDeletionOfNull) {
  IUploadClient::Delete(nullptr);
  IUploadServer::Delete(nullptr);
}

TEST(Upload, KeepsItsVirtualOperationsInOrder) {
  EXPECT_EQ(SlotOf(&IUploadClient::RegisterEvent), 2u);
  EXPECT_EQ(SlotOf(&IUploadClient::Upload), 3u);
  EXPECT_EQ(SlotOf(&IUploadServer::Start), 2u);
  EXPECT_EQ(SlotOf(&IUploadServer::Stop), 3u);
  EXPECT_EQ(SlotOf(&IUploadServer::SetPath), 4u);
}

}  // namespace
