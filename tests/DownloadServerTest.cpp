// The download server's own doings, with a stand-in for its TCP server and made-up connection ids.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <thread>

#include "tests/DownloadFixtures.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;
using testing::ElementsAre;
using testing::IsEmpty;

// Hosts see this record through the public header.
static_assert(offsetof(_DownRequest, file) == 0);
static_assert(offsetof(_DownRequest, cid) == 256);
static_assert(sizeof(_DownRequest) == 260);

class DownloadServerTest : public DownloadServerFixture {};

TEST_F(DownloadServerTest, SendsTheHeaderAndTheFile) {
  Put("a.bin", "0123456789");
  Connect(7);
  Ask(7, "a.bin");
  Serve();
  EXPECT_EQ(tcp_->sent,
            (Messages{{7, DownloadHeaderFor(50, 0, Md5Of("0123456789"))}, {7, "0123456789"}}));
}

TEST_F(DownloadServerTest, AnswersAMissingFileByTheHeaderAlone) {
  EXPECT_EQ(Answer("none"), MissingFile());
  EXPECT_EQ(tcp_->sent.size(), 1u);
  EXPECT_THAT(tcp_->removed, IsEmpty());
}

TEST_F(DownloadServerTest, SendsAnEmptyFileByTheHeaderAlone) {
  Put("empty", "");
  EXPECT_EQ(Answer("empty"), DownloadHeaderFor(40, 0, Md5Of("")));
  EXPECT_EQ(tcp_->sent.size(), 1u);
}

TEST_F(DownloadServerTest, TakesAtMost255CharactersOfARequestKept) {
  const std::string name(255, 'n');
  Put(name, "long name");
  EXPECT_EQ(Answer(name + "cut"), DownloadStream("long name"));
}

TEST_F(DownloadServerTest, TakesARequestUpToItsFirstNul) {
  Put("a", "content");
  EXPECT_EQ(Answer(std::string_view("a\0b", 3)), DownloadStream("content"));
}

TEST_F(DownloadServerTest, TakesNullDataForAnEmptyRequest) {
  Connect(7);
  server_.OnMessage(3, 7, nullptr, 5);
  server_.OnMessage(3, 7, "abc", -1);
  Serve();
  EXPECT_EQ(tcp_->sent, (Messages{{7, MissingFile()}, {7, MissingFile()}}));
}

TEST_F(DownloadServerTest, SendsBlocksOfAMegabyteWithAPauseAfterEach) {
  const std::string content = PatternBytes(2 * kBlock + 5);
  Put("a", content);
  const Stopwatch watch;
  EXPECT_EQ(Answer("a"), DownloadStream(content));
  EXPECT_GE(watch.ElapsedMs(), 300);
  ASSERT_EQ(tcp_->sent.size(), 4u);
  EXPECT_EQ(tcp_->sent[1].second.size(), kBlock);
  EXPECT_EQ(tcp_->sent[2].second.size(), kBlock);
  EXPECT_EQ(tcp_->sent[3].second.size(), 5u);
}

TEST_F(DownloadServerTest, SendsExactlyOneBlockAsOne) {
  MakeSparseFile(Root() + "/a", kBlock);
  Connect(7);
  Ask(7, "a");
  Serve();
  ASSERT_EQ(tcp_->sent.size(), 2u);
  EXPECT_EQ(tcp_->sent[1].second, std::string(kBlock, '\0'));
}

TEST_F(DownloadServerTest, NeverSendsMoreThanAnnouncedOfAGrowingFile) {
  Put("a", "0123456789");
  tcp_->onSend = [this](size_t count) {
    if (count == 1) Put("a", std::string(3 * kBlock, 'g'));
    return 1;
  };
  Answer("a");
  ASSERT_EQ(tcp_->sent.size(), 2u);
  EXPECT_EQ(tcp_->sent[1].second.size(), 10u);
}

TEST_F(DownloadServerTest, EndsAtTheEndOfAFileThatHasShrunk) {
  Put("a", "0123456789");
  tcp_->onSend = [this](size_t) {
    Put("a", "");
    return 1;
  };
  EXPECT_EQ(Answer("a"), DownloadHeaderFor(50, 0, Md5Of("0123456789")));
}

TEST_F(DownloadServerTest, StopsAtTheFirstFailedBlock) {
  MakeSparseFile(Root() + "/a", 5 * kBlock);
  tcp_->onSend = [](size_t count) { return count < 3 ? 1 : -1; };
  Answer("a");
  EXPECT_EQ(tcp_->sent.size(), 3u);
}

TEST_F(DownloadServerTest, StopsWhenTheConnectionGoes) {
  MakeSparseFile(Root() + "/a", 5 * kBlock);
  tcp_->onSend = [this](size_t count) {
    if (count == 3) server_.OnDisconnect(0, 7);
    return 1;
  };
  Answer("a");
  EXPECT_EQ(tcp_->sent.size(), 3u);
}

TEST_F(DownloadServerTest, NeverContinuesAFileInAnotherConnectionOfTheSameNumber) {
  MakeSparseFile(Root() + "/a", 5 * kBlock);
  tcp_->onSend = [this](size_t count) {
    if (count == 2) {
      server_.OnDisconnect(0, 7);
      Connect(7);
    }
    return 1;
  };
  Connect(7);
  Ask(7, "a");
  Serve();
  EXPECT_EQ(tcp_->sent.size(), 2u);
  EXPECT_TRUE(server_.IsExistLink(7));
}

TEST_F(DownloadServerTest, WaitsInTheDisconnectForASendInProgress) {
  MakeSparseFile(Root() + "/a", 5 * kBlock);
  std::atomic<bool> sending{false};
  std::atomic<bool> sent{false};
  std::atomic<bool> returned{false};
  tcp_->onSend = [&](size_t count) {
    if (count == 2) {
      sending = true;
      std::this_thread::sleep_for(100ms);
      EXPECT_FALSE(returned);
      sent = true;
    }
    return 1;
  };
  Connect(7);
  Ask(7, "a");
  std::thread worker([this] { Serve(); });
  EXPECT_TRUE(WaitUntil([&] { return sending.load(); }));
  server_.OnDisconnect(0, 7);
  returned = true;
  EXPECT_TRUE(sent);
  worker.join();
  EXPECT_EQ(tcp_->sent.size(), 2u);
}

TEST_F(DownloadServerTest, ServesNoRequestOfAConnectionThatIsGone) {
  Put("a", "content");
  Connect(7);
  Ask(7, "a");
  server_.OnDisconnect(0, 7);
  Serve();
  EXPECT_THAT(tcp_->sent, IsEmpty());
}

TEST_F(DownloadServerTest, ServesNoRequestToAnotherConnectionOfTheSameNumber) {
  Put("a", "content");
  Connect(7);
  Ask(7, "a");
  server_.OnDisconnect(0, 7);
  Connect(7);
  Serve();
  EXPECT_THAT(tcp_->sent, IsEmpty());
  // The same without a disconnect event.
  Ask(7, "a");
  Connect(7);
  Serve();
  EXPECT_THAT(tcp_->sent, IsEmpty());
  EXPECT_EQ(server_.m_links, std::list<unsigned int>{7});
}

TEST_F(DownloadServerTest, IgnoresRequestsOfUnknownConnections) {
  Ask(99, "a");
  EXPECT_TRUE(Queue().IsDequeEmpty());
}

TEST_F(DownloadServerTest, ServesTheRequestsOfOneConnectionInTheirOrder) {
  Put("a", "first");
  Connect(7);
  Ask(7, "a");
  Ask(7, "none");
  Serve();
  ASSERT_EQ(tcp_->sent.size(), 3u);
  EXPECT_EQ(tcp_->sent[1].second, "first");
  EXPECT_EQ(tcp_->sent[2].second, MissingFile());
}

TEST_F(DownloadServerTest, LetsAtMost1024RequestsOfAConnectionWait) {
  Connect(7);
  Connect(8);
  for (int i = 0; i < 1500; ++i)
    Ask(7, "none");
  Ask(8, "none");
  EXPECT_EQ(Queue().GetLength(), 1025);
  Serve();
  EXPECT_EQ(tcp_->sent.size(), 1025u);
  Ask(7, "none");
  EXPECT_EQ(Queue().GetLength(), 1);
}

TEST_F(DownloadServerTest, PutsAllWorkersToRequestsThatCameAtOnce) {
  struct SlowTcpServer : FakeTcpServer {
    std::atomic<int> sends{0};
    std::atomic<bool> goOn{false};
    int SendMsg(int, const char*, int) override {
      ++sends;
      return WaitUntil([this] { return goOn.load(); }, 20000ms) ? 1 : -1;
    }
  };
  auto* tcp = new SlowTcpServer;
  ITcpServer::Delete(server_.m_pTcpServer);
  server_.m_pTcpServer = tcp;
  for (unsigned int cid = 1; cid <= 6; ++cid) {
    Connect(cid);
    Ask(cid, "none");
  }
  Queue().Stop();
  ASSERT_TRUE(Queue().Start(3));
  EXPECT_TRUE(WaitUntil([&] { return tcp->sends == 3; }));
  tcp->goOn = true;
  EXPECT_TRUE(WaitUntil([&] { return tcp->sends == 6; }));
  server_.Stop();
  EXPECT_TRUE(Queue().IsDequeEmpty());
}

TEST_F(DownloadServerTest, KnowsItsConnections) {
  EXPECT_FALSE(server_.IsExistLink(7));
  Connect(7);
  Connect(8);
  EXPECT_TRUE(server_.IsExistLink(7));
  server_.OnDisconnect(0, 7);
  EXPECT_FALSE(server_.IsExistLink(7));
  EXPECT_TRUE(server_.IsExistLink(8));
}

TEST_F(DownloadServerTest, ServesARequestThatCameWithoutAMessage) {
  Put("a", "content");
  Connect(7);
  auto* request = new _DownRequest;
  snprintf(request->file, sizeof request->file, "a");
  request->cid = 7;
  CDownloadServer::OnDownProc(&server_, request);
  EXPECT_EQ(tcp_->sent.size(), 2u);
  CDownloadServer::OnDownProc(&server_, new _DownRequest);
  CDownloadServer::OnDownProc(&server_, nullptr);
  EXPECT_EQ(tcp_->sent.size(), 2u);
}

TEST_F(DownloadServerTest, LogsConnectsAndDisconnectsKept) {
  LogCapture capture;
  char ip[] = "10.1.2.3";
  CDownloadServer::OnConnect(&server_, 11, 12, ip);
  CDownloadServer::OnDisconnect(&server_, 0, 12);
  CDownloadServer::OnDisconnect(&server_, 0, 12);
  EXPECT_THAT(capture.Messages(" ERROR "),
              ElementsAre("ConnectorLogs  CDownloadServer::OnConnect sid:11 cid:12 ip:10.1.2.3",
                          "ConnectorLogs  CDownloadServer::OnDisconnect sid:0 cid:12"));
}

TEST_F(DownloadServerTest, LogsTheStepsOfATransferKept) {
  Put("a", "content");
  Connect(7);
  LogCapture capture;
  CDownloadServer::OnMessage(&server_, 3, 7, "a", 1);
  Serve();
  EXPECT_THAT(
      capture.Messages(" DEBUG "),
      ElementsAre(
          "CDonwnloadServer::OnMessage  222222222222222222222",
          "CDownloadServer::SendFile  22222222222222222222222222222 cid:7 req->file:a",
          "CDownloadServer::SendFile   22222222222222222222222222222 send over  !!!!!!!!!!!!1"));
}

TEST_F(DownloadServerTest, LogsARequestThatLeavesTheRootLikeAMissingFileKept) {
  Connect(7);
  for (const std::string text : {"none", "../secret"}) {
    LogCapture capture;
    Ask(7, text);
    Serve();
    EXPECT_THAT(
        capture.Messages(" DEBUG "),
        ElementsAre(
            "CDonwnloadServer::OnMessage  222222222222222222222",
            "CDownloadServer::SendFile  22222222222222222222222222222 cid:7 req->file:" + text,
            "CDownloadServer::SendFile  22222222222222222222222222222 fp is null "
            "!!!!!!!!!!!!1"));
  }
}

TEST_F(DownloadServerTest, ShowsControlBytesOfARequestInItsLog) {
  Connect(7);
  LogCapture capture;
  Ask(7, "a\n1 ERROR forged\x1B[2J\x7F\xE6\x96\x87");
  Serve();
  ASSERT_EQ(capture.Messages(" DEBUG ").size(), 3u);
  EXPECT_EQ(capture.Messages(" DEBUG ")[1],
            "CDownloadServer::SendFile  22222222222222222222222222222 cid:7 req->file:"
            "a\\x0A1 ERROR forged\\x1B[2J\\x7F\xE6\x96\x87");
}

TEST_F(DownloadServerTest, ConfiguresTheTcpServerAtEveryStart) {
  server_.Stop();
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(server_.Start(4712 + round, 0));
    EXPECT_EQ(tcp_->startedPort, 4712 + round);
    EXPECT_EQ(tcp_->maxBufferLen, 1048576);
    EXPECT_EQ(tcp_->procType, PROTOCOL_STRING_RECV);
    EXPECT_EQ(tcp_->user, &server_);
    EXPECT_NE(tcp_->onConnect, nullptr);
    EXPECT_NE(tcp_->onDisconnect, nullptr);
    EXPECT_NE(tcp_->onMessage, nullptr);
    EXPECT_TRUE(server_.Stop());
    EXPECT_EQ(tcp_->stops, round + 2);
  }
}

TEST_F(DownloadServerTest, RefusesANegativeNumberOfWorkers) {
  server_.Stop();
  tcp_->startedPort = 0;
  EXPECT_FALSE(server_.Start(4711, -1));
  EXPECT_EQ(tcp_->startedPort, 0);
}

TEST_F(DownloadServerTest, StopsItsWorkersWhenTheTcpServerDoesNotStart) {
  server_.Stop();
  tcp_->startResult = 0;
  EXPECT_FALSE(server_.Start(4711, 2));
  EXPECT_FALSE(server_.m_pDeque->IsWorking());
  EXPECT_EQ(server_.m_bStarted, 0);
  tcp_->startResult = 1;
  EXPECT_TRUE(server_.Start(4711, 2));
}

TEST_F(DownloadServerTest, RefusesASecondStartAndGoesOn) {
  tcp_->startedPort = 0;
  EXPECT_FALSE(server_.Start(4712, 1));
  EXPECT_EQ(tcp_->startedPort, 0);
  EXPECT_EQ(server_.m_bStarted, 1);
  EXPECT_TRUE(server_.Stop());
  EXPECT_EQ(tcp_->stops, 1);
}

TEST_F(DownloadServerTest, StopsOnlyWhatWasStartedKept) {
  EXPECT_TRUE(server_.Stop());
  EXPECT_TRUE(server_.Stop());
  EXPECT_EQ(tcp_->stops, 1);
}

TEST_F(DownloadServerTest, DropsConnectionsAndRequestsAtStop) {
  Put("a", "content");
  Connect(7);
  Ask(7, "a");
  Ask(7, "a");
  server_.Stop();
  EXPECT_TRUE(Queue().IsDequeEmpty());
  EXPECT_THAT(server_.m_links, IsEmpty());
  ASSERT_TRUE(server_.Start(4711, 0));
  Connect(7);
  Serve();
  EXPECT_THAT(tcp_->sent, IsEmpty());
}

TEST_F(DownloadServerTest, BeginsNoRequestWhileItStops) {
  Put("a", "content");
  Connect(7);
  Ask(7, "a");
  tcp_->onStop = [this] { Serve(); };
  server_.Stop();
  EXPECT_THAT(tcp_->sent, IsEmpty());
}

TEST_F(DownloadServerTest, StopsReadingALongFileAtStop) {
  // Hashing it would take many seconds.
  MakeSparseFile(Root() + "/long", 4294967255u);
  Connect(7);
  Ask(7, "long");
  std::thread worker([this] { Serve(); });
  EXPECT_TRUE(WaitUntil([this] { return Queue().IsDequeEmpty(); }));
  const Stopwatch watch;
  server_.Stop();
  worker.join();
  EXPECT_LT(watch.ElapsedMs(), AtMost(1500));
  EXPECT_THAT(tcp_->sent, IsEmpty());
}

TEST_F(DownloadServerTest, StopsReadingALongFileForAConnectionThatIsGone) {
  MakeSparseFile(Root() + "/long", 4294967255u);
  Connect(7);
  Ask(7, "long");
  std::thread worker([this] { Serve(); });
  EXPECT_TRUE(WaitUntil([this] { return Queue().IsDequeEmpty(); }));
  const Stopwatch watch;
  server_.OnDisconnect(0, 7);
  worker.join();
  EXPECT_LT(watch.ElapsedMs(), AtMost(1500));
  EXPECT_THAT(tcp_->sent, IsEmpty());
}

TEST_F(DownloadServerTest, HandlesEventsAndRequestsOfSeveralThreadsAtOnce) {
  server_.Stop();
  Put("a", "content");
  // The stand-in's own record is not for several threads.
  struct CountingTcpServer : FakeTcpServer {
    std::atomic<size_t> count{0};
    int SendMsg(int, const char*, int) override { return static_cast<int>(++count); }
  };
  auto* tcp = new CountingTcpServer;
  ITcpServer::Delete(server_.m_pTcpServer);
  server_.m_pTcpServer = tcp;
  ASSERT_TRUE(server_.Start(4711, 4));
  std::vector<std::thread> threads;
  for (unsigned int base : {1000u, 2000u}) {
    threads.emplace_back([this, base] {
      for (unsigned int i = 0; i < 300; ++i) {
        const unsigned int cid = base + i % 3;
        Connect(cid);
        Ask(cid, "none");
        Ask(cid, "a");
        if (i % 2 == 0) server_.OnDisconnect(0, cid);
      }
    });
  }
  for (int i = 0; i < 50; ++i)
    server_.SetPath(Root().c_str());
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_TRUE(WaitUntil([tcp] { return tcp->count > 0; }));
  server_.Stop();
  EXPECT_THAT(server_.m_links, IsEmpty());
}

TEST(DownRequest, IsZeroButForTheConnectionId) {
  const _DownRequest request;
  EXPECT_EQ(request.cid, 0xFFFFFFFFu);
  EXPECT_EQ(std::string(request.file, sizeof request.file), std::string(256, '\0'));
}

TEST_F(DownloadServerTest, KeepsItsFieldsInOrder) {
  const auto offset = [this](const void* field) {
    return static_cast<const char*>(field) - reinterpret_cast<const char*>(&server_);
  };
  EXPECT_EQ(offset(&server_.m_pTcpServer), 8);
  EXPECT_EQ(offset(&server_.m_pDeque), 16);
  EXPECT_EQ(offset(&server_.m_bStarted), 24);
  EXPECT_EQ(offset(&server_.m_root), 32);
  EXPECT_EQ(offset(&server_.m_blockLen), 104);
  EXPECT_EQ(offset(&server_.m_links), 112);
  EXPECT_EQ(offset(&server_.m_lock), 136);
  EXPECT_EQ(server_.m_blockLen, 1048576);
  EXPECT_STREQ(server_.m_pDeque->GetDequeName(), "CDownloadServer_deque");
}

}  // namespace
