// Downloads over real connections: client against server, and each against a bare socket.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <thread>

#include "tests/DownloadFixtures.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;
using testing::ElementsAre;
using testing::IsEmpty;
using Result = DownloadEvents::Result;

struct DeleteServer {
  void operator()(IDownloadServer* server) const { IDownloadServer::Delete(server); }
};
struct DeleteClient {
  void operator()(IDownloadClient* client) const { IDownloadClient::Delete(client); }
};
using ServerPtr = std::unique_ptr<IDownloadServer, DeleteServer>;
using ClientPtr = std::unique_ptr<IDownloadClient, DeleteClient>;

class DownloadTest : public TransferFixture {
 protected:
  void StartServer(int workers = 2) {
    ASSERT_TRUE(server_->SetPath(dir_.File("root").c_str()));
    port_ = FreePort();
    ASSERT_TRUE(server_->Start(port_, workers));
  }
  void Put(const std::string& name, const std::string& content) {
    WriteFile(dir_.File("root/" + name), content);
  }
  bool Down(IDownloadClient& client, const std::string& file, const char* subDir = nullptr) {
    char ip[] = "127.0.0.1";
    return client.Down(ip, port_, file.c_str(), dir_.File("down").c_str(), subDir);
  }
  /// Begins the download of a.bin from a bare socket, up to the request.
  RawPeer DownFrom(RawListener& listener, IDownloadClient& client) {
    port_ = listener.Port();
    RawPeer peer;
    std::thread accepting([&] { peer = listener.AcceptSpeaker(); });
    EXPECT_TRUE(Down(client, "a.bin"));
    accepting.join();
    EXPECT_EQ(peer.Receive(7), "a.bin\r\n");
    return peer;
  }
  /// Fetches files of these sizes with as many clients.
  void FetchAtOnce(const std::vector<size_t>& sizes) {
    struct Fetch {
      ClientPtr client{IDownloadClient::Create()};
      DownloadEvents events;
      std::string name;
      std::string content;
    };
    std::deque<Fetch> fetches(sizes.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < sizes.size(); ++i) {
      Fetch& fetch = fetches[i];
      fetch.name = "file" + std::to_string(i);
      fetch.content = PatternBytes(sizes[i], static_cast<unsigned>(i));
      Put(fetch.name, fetch.content);
      fetch.events.Register(*fetch.client);
      threads.emplace_back([this, &fetch] { EXPECT_TRUE(Down(*fetch.client, fetch.name)); });
    }
    for (std::thread& thread : threads)
      thread.join();
    for (Fetch& fetch : fetches) {
      EXPECT_TRUE(fetch.events.WaitForResults(1, 30000ms)) << fetch.content.size();
      EXPECT_THAT(fetch.events.Codes(), ElementsAre(0u)) << fetch.content.size();
      EXPECT_TRUE(Fetched(fetch.name) == fetch.content) << fetch.content.size();
    }
    // Each takes up to a second to go.
    threads.clear();
    for (Fetch& fetch : fetches)
      threads.emplace_back([&fetch] { fetch.client.reset(); });
    for (std::thread& thread : threads)
      thread.join();
  }
  [[nodiscard]] std::string Fetched(const std::string& name) const {
    return ReadFile(dir_.File("down/" + name));
  }
  [[nodiscard]] std::vector<std::string> FetchedNames() const { return ListDir(dir_.File("down")); }

  const TempDir dir_;
  DownloadEvents events_;
  ServerPtr server_{IDownloadServer::Create()};
  int port_ = 0;
};

TEST_F(DownloadTest, FetchesASmallFile) {
  StartServer();
  Put("a.bin", "0123456789");
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  ASSERT_TRUE(Down(*client, "a.bin"));
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"a.bin", 0}));
  EXPECT_EQ(events_.Progress().back(), 100);
  EXPECT_EQ(Fetched("a.bin"), "0123456789");
}

TEST_F(DownloadTest, FetchesAFileOfAFolder) {
  StartServer();
  ASSERT_EQ(mkdir(dir_.File("root/sub").c_str(), 0700), 0);
  Put("sub/a.bin", "in sub");
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  ASSERT_TRUE(Down(*client, "a.bin", "sub"));
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Codes(), ElementsAre(0u));
  EXPECT_EQ(Fetched("a.bin"), "in sub");
}

TEST_F(DownloadTest, FetchesFilesOfTellingSizes) {
  StartServer(4);
  std::vector<size_t> sizes{1, kBlock - 41, kBlock - 40, kBlock - 39, kBlock - 1};
  for (const size_t size : {kBlock, kBlock + 1, 2 * kBlock, 2 * kBlock + kBlock / 2})
    sizes.push_back(size);
  FetchAtOnce(sizes);
}

TEST_F(DownloadTest, ReportsAMissingFileAndMakesNone) {
  StartServer();
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  ASSERT_TRUE(Down(*client, "none"));
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"none", 2000}));
  EXPECT_THAT(FetchedNames(), IsEmpty());
}

TEST_F(DownloadTest, ReportsAnEmptyFileOnlyWhenTheServerCloses) {
  StartServer();
  Put("empty", "");
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  ASSERT_TRUE(Down(*client, "empty"));
  EXPECT_TRUE(WaitUntil([this] { return FetchedNames().size() == 1; }));
  EXPECT_FALSE(events_.WaitForResults(1, 200ms));
  server_.reset();
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
  EXPECT_THAT(FetchedNames(), IsEmpty());
}

TEST_F(DownloadTest, ReportsARefusedConnection) {
  port_ = FreePort();
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  ASSERT_TRUE(Down(*client, "a.bin"));
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"a.bin", 1}));
}

TEST_F(DownloadTest, FetchesSixtyFourFilesAtOnceWithFourWorkers) {
  StartServer(4);
  std::vector<size_t> sizes;
  for (size_t i = 0; i < 64; ++i)
    sizes.push_back(10000 + 1000 * i);
  FetchAtOnce(sizes);
}

TEST_F(DownloadTest, ServesOneAfterTheOtherWithOneWorker) {
  StartServer(1);
  MakeSparseFile(dir_.File("root/long"), 20 * kBlock);
  Put("short", "x");
  RawPeer first = RawPeer::Connect(port_);
  ASSERT_TRUE(first.Send("long\r\n"));
  ASSERT_EQ(first.Receive(41).size(), 41u);
  RawPeer second = RawPeer::Connect(port_);
  ASSERT_TRUE(second.Send("short\r\n"));
  EXPECT_FALSE(second.WaitReadable(300ms));
  std::thread reading([&] { first.Receive(20 * kBlock - 1, 20000ms); });
  EXPECT_EQ(second.Receive(41, 20000ms), DownloadStream("x"));
  reading.join();
}

TEST_F(DownloadTest, ServesOthersWhileAClientThatAskedWithThemDoesNotRead) {
  StartServer(2);
  MakeSparseFile(dir_.File("root/long"), 20 * kBlock);
  Put("short", "x");
  RawPeer idle = RawPeer::Connect(port_, 4096);
  RawPeer other = RawPeer::Connect(port_);
  ASSERT_TRUE(idle.Send("long\r\n"));
  ASSERT_TRUE(other.Send("short\r\n"));
  EXPECT_EQ(other.Receive(41), DownloadStream("x"));
  // The other worker only now has something to do.
  ASSERT_TRUE(other.Send("short\r\nshort\r\n"));
  EXPECT_EQ(other.Receive(82), DownloadStream("x") + DownloadStream("x"));
}

TEST_F(DownloadTest, KeepsRequestsWaitingWithoutWorkersKept) {
  StartServer(0);
  Put("a", "x");
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send("a\r\n"));
  EXPECT_FALSE(peer.WaitReadable(200ms));
  EXPECT_TRUE(server_->Stop());
}

TEST_F(DownloadTest, PutsTheHeaderAndTheFileOnTheWire) {
  StartServer();
  Put("a.bin", "0123456789");
  RawPeer peer = RawPeer::Connect(port_);
  for (const char byte : std::string("a.bin\r\n"))
    ASSERT_TRUE(peer.Send({byte}));
  EXPECT_EQ(peer.Receive(50), DownloadHeaderFor(50, 0, Md5Of("0123456789")) + "0123456789");
  EXPECT_FALSE(peer.WaitReadable(200ms));
}

TEST_F(DownloadTest, AnswersSeveralRequestsOfOneConnection) {
  StartServer(1);
  Put("a", "first");
  Put("b", "second");
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send("a\r\nnone\r\n\r\nb\r\n"));
  const std::string expected =
      DownloadStream("first") + MissingFile() + MissingFile() + DownloadStream("second");
  EXPECT_EQ(peer.Receive(expected.size()), expected);
  ASSERT_TRUE(peer.Send("a\r\n"));
  EXPECT_EQ(peer.Receive(45), DownloadStream("first"));
}

TEST_F(DownloadTest, NeverReadsOutsideTheRoot) {
  StartServer();
  WriteFile(dir_.File("secret"), "secret");
  ASSERT_EQ(mkdir(dir_.File("root/sub").c_str(), 0700), 0);
  ASSERT_EQ(symlink("..", dir_.File("root/sub/up").c_str()), 0);
  RawPeer peer = RawPeer::Connect(port_);
  for (const std::string& text :
       {std::string("../secret"), std::string("secret$^.."), std::string("/../secret"),
        dir_.File("secret"), std::string("secret$^") + dir_.Path(), std::string("sub/../../secret"),
        std::string("sub/up/../../secret"), std::string("../secret$^sub/up"),
        std::string("..\\secret"), std::string("%2e%2e%2fsecret"), std::string("..\0/secret", 10),
        std::string("/etc/passwd")}) {
    ASSERT_TRUE(peer.Send(text + "\r\n"));
    EXPECT_EQ(peer.Receive(40), MissingFile()) << text;
  }
  EXPECT_FALSE(peer.WaitReadable(100ms));
}

TEST_F(DownloadTest, SurvivesRequestsOfAllBytesAndLengths) {
  StartServer(4);
  Put("a", "x");
  std::mt19937 generator(1);
  RawPeer peer = RawPeer::Connect(port_);
  std::string all;
  for (int i = 0; i < 200; ++i)
    all += PatternBytes(generator() % 600, static_cast<unsigned>(i)) + (i % 3 == 0 ? "\r\n" : "$^");
  ASSERT_TRUE(peer.Send(all + "\r\n"));
  RawPeer other = RawPeer::Connect(port_);
  ASSERT_TRUE(other.Send("a\r\n"));
  EXPECT_EQ(other.Receive(41), DownloadStream("x"));
}

TEST_F(DownloadTest, ClosesAConnectionWhoseRequestHasNoEnd) {
  StartServer();
  RawPeer peer = RawPeer::Connect(port_);
  peer.Send(std::string(2 * kBlock, 'x'));
  EXPECT_TRUE(peer.WaitClosed());
}

TEST_F(DownloadTest, StoresWhatABarePeerSends) {
  RawListener listener;
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  RawPeer peer = DownFrom(listener, *client);
  ASSERT_TRUE(peer.Send(DownloadHeaderFor(50, 0, Md5Of("0123456789"))));
  EXPECT_TRUE(WaitUntil([this] { return FetchedNames().size() == 1; }));
  for (const char byte : std::string("0123456789"))
    ASSERT_TRUE(peer.Send({byte}));
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Codes(), ElementsAre(0u));
  EXPECT_EQ(Fetched("a.bin"), "0123456789");
}

TEST_F(DownloadTest, StallsOnAShortFirstDeliveryUntilTheCloseKept) {
  RawListener listener;
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  RawPeer peer = DownFrom(listener, *client);
  {
    LogCapture capture;
    ASSERT_TRUE(peer.Send(DownloadStream("abc").substr(0, 39)));
    ASSERT_TRUE(WaitUntil([&] {
      const auto messages = capture.Messages(" DEBUG ");
      return !messages.empty() && messages.back().find(" len:39 ") != std::string::npos;
    }));
  }
  ASSERT_TRUE(peer.Send(DownloadStream("abc").substr(39)));
  EXPECT_FALSE(events_.WaitForResults(1, 200ms));
  peer.Close();
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
  EXPECT_THAT(FetchedNames(), IsEmpty());
}

TEST_F(DownloadTest, LeavesNoFileWhereverAPeerDies) {
  RawListener listener;
  std::mt19937 generator(1);
  const std::string content = PatternBytes(3 * kBlock);
  const std::string stream = DownloadStream(content);
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  for (size_t round = 1; round <= 8; ++round) {
    RawPeer peer = DownFrom(listener, *client);
    const size_t sent = round == 1 ? 0 : 40 + generator() % (stream.size() - 41);
    ASSERT_TRUE(peer.Send(stream.substr(0, sent)));
    if (round % 2 == 0) {
      peer.Reset();
    } else {
      peer.Close();
    }
    ASSERT_TRUE(events_.WaitForResults(round)) << sent;
    EXPECT_THAT(FetchedNames(), IsEmpty()) << sent;
  }
  EXPECT_THAT(events_.Codes(), testing::Each(2003u));
}

TEST_F(DownloadTest, GoesOnServingWhereverAPeerDies) {
  StartServer(4);
  const std::string content = PatternBytes(2 * kBlock);
  Put("a", content);
  const std::string stream = DownloadStream(content);
  std::mt19937 generator(1);
  for (int round = 0; round < 12; ++round) {
    RawPeer peer = RawPeer::Connect(port_, 4096);
    ASSERT_TRUE(peer.Send("a\r\n"));
    const size_t wanted = round % 4 == 0 ? 0 : generator() % (stream.size() / 4);
    EXPECT_TRUE(peer.Receive(wanted) == stream.substr(0, wanted));
    if (round % 2 == 0) peer.Reset();
  }
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send("a\r\n"));
  EXPECT_TRUE(peer.Receive(stream.size(), 20000ms) == stream);
}

TEST_F(DownloadTest, NeverContinuesAFileInAnotherClientsConnection) {
  StartServer(2);
  MakeSparseFile(dir_.File("root/zeros"), 10 * kBlock);
  Put("a", "mine");
  const std::string expected = DownloadStream("mine");
  for (int round = 0; round < 5; ++round) {
    RawPeer first = RawPeer::Connect(port_);
    ASSERT_TRUE(first.Send("zeros\r\n"));
    ASSERT_EQ(first.Receive(41).size(), 41u);
    first.Reset();
    // The descriptor number of the first is free by the time that this one is accepted, or soon.
    RawPeer second = RawPeer::Connect(port_);
    EXPECT_FALSE(second.WaitReadable(130ms)) << round;
    ASSERT_TRUE(second.Send("a\r\n"));
    ASSERT_EQ(second.Receive(expected.size()), expected) << round;
  }
}

TEST_F(DownloadTest, SharesOneRootAmongManyAtOnce) {
  StartServer(4);
  const std::string content = PatternBytes(100000);
  Put("a", content);
  const std::string stream = DownloadStream(content);
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      RawPeer peer = RawPeer::Connect(port_);
      EXPECT_TRUE(peer.Send("a\r\n"));
      EXPECT_TRUE(peer.Receive(stream.size()) == stream);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

TEST_F(DownloadTest, ServesAgainAfterStopAndStart) {
  StartServer();
  Put("a", "content");
  RawPeer old = RawPeer::Connect(port_);
  ASSERT_TRUE(old.Send("a\r\n"));
  ASSERT_EQ(old.Receive(47).size(), 47u);
  server_->Stop();
  ASSERT_TRUE(server_->Start(port_, 1));
  EXPECT_TRUE(old.WaitClosed());
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send("a\r\n"));
  EXPECT_EQ(peer.Receive(47), DownloadStream("content"));
}

TEST_F(DownloadTest, ServesAfterAFailedStart) {
  const RawListener occupied;
  ASSERT_TRUE(server_->SetPath(dir_.File("root").c_str()));
  {
    const StdoutCapture quiet;
    EXPECT_FALSE(server_->Start(occupied.Port(), 1));
  }
  StartServer();
  Put("a", "content");
  RawPeer peer = RawPeer::Connect(port_);
  ASSERT_TRUE(peer.Send("a\r\n"));
  EXPECT_EQ(peer.Receive(47), DownloadStream("content"));
}

TEST_F(DownloadTest, StopsAtOnceAfterTheStart) {
  const Stopwatch watch;
  StartServer(4);
  EXPECT_TRUE(server_->Stop());
  EXPECT_LT(watch.ElapsedMs(), AtMost(3500));
}

TEST_F(DownloadTest, StopsWhileClientsDoNotRead) {
  StartServer(4);
  MakeSparseFile(dir_.File("root/zeros"), 20 * kBlock);
  std::vector<RawPeer> peers;
  for (int i = 0; i < 6; ++i) {
    peers.push_back(RawPeer::Connect(port_, 4096));
    ASSERT_TRUE(peers.back().Send("zeros\r\nzeros\r\n"));
  }
  // Four workers are busy with at least two of the peers, which ask twice each.
  EXPECT_TRUE(WaitUntil(
      [&] {
        return std::count_if(peers.begin(), peers.end(),
                             [](RawPeer& peer) { return peer.WaitReadable(0ms); }) >= 2;
      },
      20000ms));
  // By now the workers stand in their sends.
  std::this_thread::sleep_for(500ms);
  const Stopwatch watch;
  EXPECT_TRUE(server_->Stop());
  EXPECT_LT(watch.ElapsedMs(), AtMost(3500));
}

TEST_F(DownloadTest, EndsATransferOnDelete) {
  StartServer();
  MakeSparseFile(dir_.File("root/zeros"), 20 * kBlock);
  ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  ASSERT_TRUE(Down(*client, "zeros"));
  EXPECT_TRUE(WaitUntil([this] { return !events_.Progress().empty(); }));
  const Stopwatch watch;
  client.reset();
  EXPECT_LT(watch.ElapsedMs(), AtMost(2500));
  EXPECT_THAT(events_.Codes(), IsEmpty());
  EXPECT_THAT(FetchedNames(), IsEmpty());
}

TEST_F(DownloadTest, MayBeDeletedRightAfterTheDownloadBegan) {
  StartServer();
  Put("a.bin", PatternBytes(1000));
  for (int round = 0; round < 3; ++round) {
    ClientPtr client(IDownloadClient::Create());
    ASSERT_TRUE(Down(*client, "a.bin"));
    const Stopwatch watch;
    client.reset();
    EXPECT_LT(watch.ElapsedMs(), AtMost(2500));
  }
}

TEST_F(DownloadTest, BeginsTheNextDownloadWhileOneRuns) {
  StartServer();
  MakeSparseFile(dir_.File("root/zeros"), 20 * kBlock);
  Put("a.bin", "content");
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  ASSERT_TRUE(Down(*client, "zeros"));
  EXPECT_TRUE(WaitUntil([this] { return !events_.Progress().empty(); }));
  ASSERT_TRUE(Down(*client, "a.bin"));
  ASSERT_TRUE(events_.WaitForResults(1));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"a.bin", 0}));
  EXPECT_THAT(FetchedNames(), ElementsAre("a.bin"));
}

TEST_F(DownloadTest, MayBeUsedForTheNextFileInTheResultCallback) {
  StartServer();
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  for (const char* name : {"a", "b", "c"})
    Put(name, name);
  std::deque<std::string> left{"b", "c"};
  events_.onResult = [&] {
    if (left.empty()) return;
    const std::string next = left.front();
    left.pop_front();
    EXPECT_TRUE(Down(*client, next));
  };
  ASSERT_TRUE(Down(*client, "a"));
  ASSERT_TRUE(events_.WaitForResults(3));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"a", 0}, Result{"b", 0}, Result{"c", 0}));
  EXPECT_THAT(FetchedNames(), ElementsAre("a", "b", "c"));
}

TEST_F(DownloadTest, MayBeDeletedInTheProgressCallback) {
  StartServer();
  MakeSparseFile(dir_.File("root/zeros"), 20 * kBlock);
  IDownloadClient* client = IDownloadClient::Create();
  events_.Register(*client);
  std::atomic<bool> deleted{false};
  events_.onProgress = [&] {
    IDownloadClient::Delete(client);
    deleted = true;
  };
  ASSERT_TRUE(Down(*client, "zeros"));
  EXPECT_TRUE(WaitUntil([&] { return deleted.load(); }));
  EXPECT_EQ(events_.Progress().size(), 1u);
  EXPECT_THAT(FetchedNames(), IsEmpty());
}

TEST_F(DownloadTest, MayBeDeletedInTheResultCallback) {
  StartServer();
  Put("a", "content");
  IDownloadClient* client = IDownloadClient::Create();
  events_.Register(*client);
  std::atomic<bool> deleted{false};
  events_.onResult = [&] {
    IDownloadClient::Delete(client);
    deleted = true;
  };
  ASSERT_TRUE(Down(*client, "a"));
  EXPECT_TRUE(WaitUntil([&] { return deleted.load(); }));
  EXPECT_EQ(Fetched("a"), "content");
}

TEST_F(DownloadTest, MayRetryInTheCallbackOfAFailedConnect) {
  port_ = FreePort();
  const ClientPtr client(IDownloadClient::Create());
  events_.Register(*client);
  std::atomic<int> tries{1};
  events_.onResult = [&] {
    if (tries++ >= 3) return;
    EXPECT_TRUE(Down(*client, "a"));
  };
  ASSERT_TRUE(Down(*client, "a"));
  ASSERT_TRUE(events_.WaitForResults(3));
  EXPECT_TRUE(WaitUntil([&] { return tries == 4; }));
  EXPECT_THAT(events_.Codes(), ElementsAre(1u, 1u, 1u));
}

TEST(Download, IgnoresTheDeletionOfNull) {
  IDownloadClient::Delete(nullptr);
  IDownloadServer::Delete(nullptr);
}

TEST(Download, KeepsItsVirtualOperationsInOrder) {
  EXPECT_EQ(SlotOf(&IDownloadClient::RegisterEvent), 2u);
  EXPECT_EQ(SlotOf(&IDownloadClient::Down), 3u);
  EXPECT_EQ(SlotOf(&IDownloadServer::Start), 2u);
  EXPECT_EQ(SlotOf(&IDownloadServer::Stop), 3u);
  EXPECT_EQ(SlotOf(&IDownloadServer::SetPath), 4u);
}

}  // namespace
