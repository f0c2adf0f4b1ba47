// The upload client's own doings, with a stand-in for its TCP client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>

#include "tests/UploadFixtures.h"
#include "tests/support/FailingNew.h"
#include "utility/os/ThreadOwner.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;
using testing::ElementsAre;
using testing::IsEmpty;
using Result = UploadEvents::Result;

class UploadClientTest : public TransferFixture {
 protected:
  UploadClientTest() : client_(new CUploadClient), tcp_(new FakeTcpClient) {
    ITcpClient::Delete(client_->m_pTcpClient);
    client_->m_pTcpClient = tcp_;
    events_.Register(*client_);
  }
  ~UploadClientTest() override { IUploadClient::Delete(client_); }

  bool Upload(const std::string& path) {
    char ip[] = "127.0.0.1";
    return client_->Upload(ip, 4711, path.c_str());
  }
  bool UploadContent(const std::string& content) {
    WriteFile(Path(), content);
    return Upload(Path());
  }
  bool UploadSparse(uint64_t length) {
    MakeSparseFile(Path(), length);
    return Upload(Path());
  }
  void Raise(ConnType type) { CUploadClient::OnConnect(client_, type); }
  void Answer(const std::string& line) {
    CUploadClient::OnMessage(client_, line.c_str(), static_cast<int>(line.size()));
  }
  [[nodiscard]] std::string Path() const { return dir_.File("a.txt"); }

  const TempDir dir_;
  UploadEvents events_;
  CUploadClient* client_;  // null once a case has deleted it
  FakeTcpClient* tcp_;     // owned by client_
};

TEST_F(UploadClientTest, SendsAFiftyByteHeaderAndThenTheFile) {
  ASSERT_TRUE(UploadContent("0123456789"));
  Raise(CONN_SUCCESS);
  const std::string header = UploadHeaderFor(60, Md5Of("0123456789"), ".txt");
  EXPECT_THAT(tcp_->sent, ElementsAre(header, "0123456789"));
  EXPECT_THAT(events_.Progress(), ElementsAre(100));
  EXPECT_EQ(events_.ProgressPath(), Path());
  EXPECT_THAT(events_.Results(), IsEmpty());
}

TEST_F(UploadClientTest, ConfiguresItsTcpClient) {
  ASSERT_TRUE(UploadContent("x"));
  EXPECT_EQ(tcp_->maxBufferLen, 524288);
  EXPECT_EQ(tcp_->procType, PROTOCOL_STRING_RECV);
  EXPECT_EQ(tcp_->user, client_);
  EXPECT_EQ(tcp_->ip, "127.0.0.1");
  EXPECT_EQ(tcp_->port, 4711);
  EXPECT_EQ(tcp_->timeout, -1);
}

TEST_F(UploadClientTest, EndsAnEarlierTransferFirst) {
  EXPECT_FALSE(Upload(dir_.File("missing")));
  EXPECT_EQ(tcp_->disconnects, 1);
  EXPECT_EQ(tcp_->connects, 0);
}

TEST_F(UploadClientTest, RefusesWhatIsNotARegularFile) {
  ASSERT_EQ(mkfifo(dir_.File("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(Upload(dir_.File("missing")));
  EXPECT_FALSE(Upload(dir_.Path()));
  EXPECT_FALSE(Upload(dir_.File("fifo")));
  char ip[] = "127.0.0.1";
  EXPECT_FALSE(client_->Upload(ip, 4711, nullptr));
  EXPECT_EQ(tcp_->connects, 0);
  EXPECT_THAT(events_.Results(), IsEmpty());
}

TEST_F(UploadClientTest, RefusesAFileWhoseTotalDoesNotFitTheHeader) {
  EXPECT_FALSE(UploadSparse(4294967246u));
  EXPECT_EQ(tcp_->connects, 0);
  EXPECT_THAT(events_.Results(), IsEmpty());
}

TEST_F(UploadClientTest, AcceptsTheLongestFileThatFits) {
  EXPECT_TRUE(UploadSparse(4294967245u));
}

TEST_F(UploadClientTest, RefusesAnEmptyAddressAndPortZero) {
  WriteFile(Path(), "x");
  char empty[] = "";
  char ip[] = "127.0.0.1";
  EXPECT_FALSE(client_->Upload(empty, 4711, Path().c_str()));
  EXPECT_FALSE(client_->Upload(nullptr, 4711, Path().c_str()));
  EXPECT_FALSE(client_->Upload(ip, 0, Path().c_str()));
  EXPECT_EQ(tcp_->connects, 0);
  EXPECT_THAT(events_.Results(), IsEmpty());
}

TEST_F(UploadClientTest, PingsTheServerForHalfASecondAndRefusesWhenThatFails) {
  auto* ping = new FakePing;
  IPing::Delete(client_->m_pPing);
  client_->m_pPing = ping;
  ASSERT_TRUE(UploadContent("x"));
  EXPECT_THAT(ping->asked, ElementsAre(std::pair<std::string, unsigned int>("127.0.0.1", 500)));
  EXPECT_EQ(tcp_->connects, 1);
  ping->result = 0;
  EXPECT_FALSE(UploadContent("x"));
  EXPECT_EQ(ping->asked.size(), 2u);
  EXPECT_EQ(tcp_->connects, 1);
  EXPECT_THAT(events_.Results(), IsEmpty());
}

TEST_F(UploadClientTest, CountsAsConnectingOnceItIsConnected) {
  client_->m_bConnected = 1;
  EXPECT_TRUE(client_->Connect());
  EXPECT_EQ(tcp_->connects, 0);
}

TEST_F(UploadClientTest, HoldsNoFileAfterARefusedUpload) {
  const int before = OpenDescriptors();
  WriteFile(Path(), "x");
  char empty[] = "";
  EXPECT_FALSE(client_->Upload(empty, 4711, Path().c_str()));
  tcp_->connectResult = 0;
  EXPECT_FALSE(Upload(Path()));
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(UploadClientTest, KeepsNineteenCharactersOfTheAddressKept) {
  WriteFile(Path(), "x");
  char ip[] = "1234567890123456789ABC";
  EXPECT_TRUE(client_->Upload(ip, 4711, Path().c_str()));
  EXPECT_EQ(tcp_->ip, "1234567890123456789");
}

TEST_F(UploadClientTest, CutsTheExtensionToFourteenBytesOnTheWireKept) {
  WriteFile(dir_.File("a.123456789012345678901"), "x");
  ASSERT_TRUE(Upload(dir_.File("a.123456789012345678901")));
  EXPECT_STREQ(client_->m_szExt, ".123456789012345678");
  Raise(CONN_SUCCESS);
  ASSERT_EQ(tcp_->sent.size(), 2u);
  EXPECT_EQ(tcp_->sent[0].substr(36), ".1234567890123");
}

TEST_F(UploadClientTest, SendsAnEmptyExtensionForAPathWithoutADot) {
  const std::string path = dir_.File("plain");
  ASSERT_EQ(path.find('.'), std::string::npos);
  WriteFile(path, "x");
  ASSERT_TRUE(Upload(path));
  Raise(CONN_SUCCESS);
  ASSERT_EQ(tcp_->sent.size(), 2u);
  EXPECT_EQ(tcp_->sent[0].substr(36), std::string(14, '\0'));
}

TEST_F(UploadClientTest, PausesBeforeTheFirstByteAndAfterEveryBlockKept) {
  ASSERT_TRUE(UploadContent("x"));
  long header = 0;
  const Stopwatch watch;
  tcp_->onSend = [&](size_t count) {
    if (count == 1) header = watch.ElapsedMs();
    return 1;
  };
  Raise(CONN_SUCCESS);
  EXPECT_GE(header, 50);
  EXPECT_GE(watch.ElapsedMs(), header + 100);
  EXPECT_LT(watch.ElapsedMs(), AtMost(1500));
}

TEST_F(UploadClientTest, ReportsTheProgressBeforeEachBlockKept) {
  ASSERT_TRUE(UploadSparse(2 * kBlock + kBlock / 2));
  std::vector<size_t> seen;
  tcp_->onSend = [&](size_t) {
    seen.push_back(events_.Progress().size());
    return 1;
  };
  Raise(CONN_SUCCESS);
  EXPECT_THAT(events_.Progress(), ElementsAre(40, 80, 100));
  EXPECT_THAT(seen, ElementsAre(0u, 1u, 2u, 3u));
}

TEST_F(UploadClientTest, FailsAfterAWholeFileOfFullBlocksKept) {
  ASSERT_TRUE(UploadSparse(kBlock));
  Raise(CONN_SUCCESS);
  ASSERT_EQ(tcp_->sent.size(), 2u);
  EXPECT_EQ(tcp_->sent[1].size(), kBlock);
  EXPECT_THAT(events_.Progress(), ElementsAre(100));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"", false, "", 2003}));
}

TEST_F(UploadClientTest, FailsAfterAFileLessThan50BytesBelowABlockKept) {
  ASSERT_TRUE(UploadSparse(kBlock - 49));
  Raise(CONN_SUCCESS);
  EXPECT_EQ(tcp_->sent.size(), 2u);
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
}

TEST_F(UploadClientTest, DoesNotFailAfterAFile50BytesBelowABlock) {
  ASSERT_TRUE(UploadSparse(kBlock - 50));
  Raise(CONN_SUCCESS);
  EXPECT_EQ(tcp_->sent.size(), 2u);
  EXPECT_THAT(events_.Codes(), IsEmpty());
}

TEST_F(UploadClientTest, FailsAfterTheHeaderOfAnEmptyFileKept) {
  ASSERT_TRUE(UploadContent(""));
  Raise(CONN_SUCCESS);
  EXPECT_THAT(tcp_->sent, ElementsAre(UploadHeaderFor(50, Md5Of(""), ".txt")));
  EXPECT_THAT(events_.Progress(), IsEmpty());
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"", false, "", 2003}));
}

TEST_F(UploadClientTest, LogsTheStepsOfATransfer) {
  ASSERT_TRUE(UploadSparse(kBlock));
  LogCapture capture;
  Raise(CONN_SUCCESS);
  EXPECT_THAT(capture.Messages(" DEBUG "),
              ElementsAre("Send file start.", "Read file error.", "Send file end."));
}

TEST_F(UploadClientTest, LogsAFailedSend) {
  ASSERT_TRUE(UploadContent("x"));
  tcp_->onSend = [](size_t) { return -1; };
  LogCapture capture;
  Raise(CONN_SUCCESS);
  EXPECT_THAT(capture.Messages(" DEBUG "),
              ElementsAre("Send file start.", "Send file error.", "Send file end."));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"", false, "", 2003}));
}

TEST_F(UploadClientTest, StopsAtTheFirstFailedSend) {
  ASSERT_TRUE(UploadSparse(3 * kBlock));
  tcp_->onSend = [](size_t count) { return count < 3 ? 1 : -1; };
  Raise(CONN_SUCCESS);
  EXPECT_EQ(tcp_->sent.size(), 3u);
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
}

TEST_F(UploadClientTest, ReportsASendThatClosesTheConnectionTwiceKept) {
  ASSERT_TRUE(UploadSparse(3 * kBlock));
  tcp_->onSend = [this](size_t count) {
    if (count < 2) return 1;
    Raise(CONN_CLOSED);
    return -1;
  };
  Raise(CONN_SUCCESS);
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u, 2003u));
}

TEST_F(UploadClientTest, StopsBetweenBlocksWhenTheConnectionCloses) {
  ASSERT_TRUE(UploadSparse(5 * kBlock));
  tcp_->onSend = [this](size_t count) {
    // As the read thread does it while the loop runs.
    if (count == 3) std::thread([this] { Raise(CONN_CLOSED); }).join();
    return 1;
  };
  Raise(CONN_SUCCESS);
  EXPECT_EQ(tcp_->sent.size(), 3u);
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
}

TEST_F(UploadClientTest, LeavesTheFileOfTheRunningLoopAloneWhenTheConnectionCloses) {
  ASSERT_TRUE(UploadContent("0123456789"));
  tcp_->onSend = [this](size_t count) {
    if (count == 1) {
      Raise(CONN_ERROR);
      Raise(CONN_FAILED);
      client_->m_bConnected = 1;
    }
    return 1;
  };
  Raise(CONN_SUCCESS);
  ASSERT_EQ(tcp_->sent.size(), 2u);
  EXPECT_EQ(tcp_->sent[1], "0123456789");
}

TEST_F(UploadClientTest, DoesNotReportACloseAfterEverythingWasSentKept) {
  ASSERT_TRUE(UploadContent("x"));
  Raise(CONN_SUCCESS);
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Results(), IsEmpty());
  EXPECT_EQ(client_->m_bConnected, 0);
}

TEST_F(UploadClientTest, ReportsAnEarlyCloseOfTheNextUploadToo) {
  ASSERT_TRUE(UploadContent("x"));
  Raise(CONN_SUCCESS);
  ASSERT_TRUE(UploadContent("y"));
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
}

TEST_F(UploadClientTest, ReportsACloseThatComesBeforeTheConnectedEventOnce) {
  ASSERT_TRUE(UploadContent("x"));
  Raise(CONN_CLOSED);
  Raise(CONN_SUCCESS);
  EXPECT_THAT(tcp_->sent, IsEmpty());
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"", false, "", 2003}));
}

TEST_F(UploadClientTest, ReportsAFailedConnectKept) {
  const int before = OpenDescriptors();
  ASSERT_TRUE(UploadContent("x"));
  Raise(CONN_FAILED);
  Raise(static_cast<ConnType>(2));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"", false, "", 1}, Result{"", false, "", 1}));
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(UploadClientTest, DoesNotReportAConnectionErrorKept) {
  ASSERT_TRUE(UploadContent("x"));
  Raise(CONN_ERROR);
  EXPECT_THAT(events_.Results(), IsEmpty());
}

TEST_F(UploadClientTest, NeverSendsMoreThanAnnouncedOfAGrowingFile) {
  ASSERT_TRUE(UploadContent("0123456789"));
  tcp_->onSend = [this](size_t count) {
    if (count == 1) WriteFile(Path(), std::string(3 * kBlock, 'g'));
    return 1;
  };
  Raise(CONN_SUCCESS);
  ASSERT_EQ(tcp_->sent.size(), 2u);
  EXPECT_EQ(tcp_->sent[1].size(), 10u);
}

TEST_F(UploadClientTest, FailsWhenTheFileHasShrunk) {
  ASSERT_TRUE(UploadContent("0123456789"));
  tcp_->onSend = [this](size_t) {
    EXPECT_EQ(truncate(Path().c_str(), 0), 0);
    return 1;
  };
  Raise(CONN_SUCCESS);
  EXPECT_EQ(tcp_->sent.size(), 1u);
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
}

TEST_F(UploadClientTest, SendsNoBlockOfAnUploadThatTheHostHasEnded) {
  ASSERT_TRUE(UploadContent("x"));
  client_->DisConnect();
  Raise(CONN_SUCCESS);
  EXPECT_EQ(client_->m_bConnected, 0);
  EXPECT_THAT(tcp_->sent, IsEmpty());
  EXPECT_THAT(events_.Results(), IsEmpty());
}

TEST_F(UploadClientTest, ReportsNoSendThatFailsBecauseTheHostEndsTheTransfer) {
  ASSERT_TRUE(UploadSparse(5 * kBlock));
  tcp_->onSend = [this](size_t count) {
    if (count < 3) return 1;
    client_->DisConnect();
    return -1;
  };
  Raise(CONN_SUCCESS);
  EXPECT_EQ(tcp_->sent.size(), 3u);
  EXPECT_THAT(events_.Results(), IsEmpty());
}

TEST_F(UploadClientTest, HandsTheAnswerToTheHost) {
  ASSERT_TRUE(UploadContent("x"));
  Answer("{\"err\":0,\"file\":\"20240305.txt\"}");
  EXPECT_THAT(events_.Results(), ElementsAre(Result{Path(), true, "20240305.txt", 0}));
}

TEST_F(UploadClientTest, PassesOnWhateverCodeTheAnswerHolds) {
  Answer("{\"err\":2002,\"file\":\"f\"}");
  Answer("{\"err\":-1,\"file\":\"f\"}");
  EXPECT_THAT(events_.Codes(), ElementsAre(2002u, 4294967295u));
}

TEST_F(UploadClientTest, TakesAMissingOrMistypedCodeForZero) {
  for (const char* line : {"{\"file\":\"f\"}", "{\"err\":\"5\",\"file\":\"f\"}",
                           "{\"err\":true,\"file\":\"f\"}", "{\"err\":{},\"file\":\"f\"}"}) {
    Answer(line);
  }
  EXPECT_THAT(events_.Results(), testing::Each(Result{"", true, "f", 0}));
  EXPECT_EQ(events_.Results().size(), 4u);
}

TEST_F(UploadClientTest, TakesAMissingOrMistypedNameForEmpty) {
  for (const char* line : {"{\"err\":3}", "{\"err\":3,\"file\":4}", "{\"err\":3,\"file\":null}",
                           "{\"err\":3,\"file\":[\"f\"]}"}) {
    Answer(line);
  }
  EXPECT_THAT(events_.Results(), testing::Each(Result{"", true, "", 3}));
  EXPECT_EQ(events_.Results().size(), 4u);
}

TEST_F(UploadClientTest, ReportsAnAnswerThatIsNotJsonWithAnEmptyNameAndNoLogLineKept) {
  LogCapture capture;
  for (const char* line : {"no json", "", "[1,2]", "5", "{\"err\":", "\"file\""})
    Answer(line);
  CUploadClient::OnMessage(client_, nullptr, 3);
  EXPECT_THAT(events_.Results(), testing::Each(Result{"", true, "", 0}));
  EXPECT_EQ(events_.Results().size(), 7u);
  EXPECT_THAT(capture.Messages(" DEBUG "), IsEmpty());
}

TEST_F(UploadClientTest, CutsTheStoredNameTo255Characters) {
  std::string name(255, 'n');
  name += "cut";
  Answer("{\"err\":0,\"file\":\"" + name + "\"}");
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"", true, name.substr(0, 255), 0}));
}

TEST_F(UploadClientTest, LogsAnAnswerForWhoseParsingMemoryIsShort) {
  LogCapture capture;
  const std::string line = "{\"err\":9,\t\"file\":\"" + std::string(150, 'n') + "\"}";
  {
    const FailingNew failing(1, 100);
    Answer(line);
    EXPECT_EQ(failing.Failed(), 1);
  }
  std::string shown = line;
  shown.replace(shown.find('\t'), 1, "\\x09");
  EXPECT_THAT(capture.Messages(" DEBUG "),
              ElementsAre("CUploadClient 解析JSON失败，内容为:" + shown));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"", true, "", 0}));
}

TEST_F(UploadClientTest, ReportsAnAnswerEvenWhenNoMemoryIsLeft) {
  const std::string line = "{\"err\":9,\"file\":\"" + std::string(150, 'n') + "\"}";
  {
    const FailingNew failing(2, 100);
    Answer(line);
    EXPECT_EQ(failing.Failed(), 2);
  }
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"", true, "", 0}));
}

TEST_F(UploadClientTest, WorksWithoutCallbacks) {
  client_->RegisterEvent(nullptr, nullptr, nullptr);
  ASSERT_TRUE(UploadContent(""));
  Raise(CONN_SUCCESS);
  Raise(CONN_CLOSED);
  Raise(CONN_FAILED);
  Answer("{}");
  EXPECT_EQ(tcp_->sent.size(), 1u);
}

TEST_F(UploadClientTest, TakesCallbacksAndUserPointerTogether) {
  struct Host {
    int calls = 0;
    static void OnResult(void* user, const char*, const char*, unsigned int) {
      ++static_cast<Host*>(user)->calls;
    }
    static void OnOther(void* user, const char*, const char*, unsigned int) {
      EXPECT_EQ(user, nullptr);
    }
  } host;
  std::atomic<bool> stop{false};
  std::thread registering([&] {
    while (!stop) {
      client_->RegisterEvent(Host::OnResult, nullptr, &host);
      client_->RegisterEvent(Host::OnOther, nullptr, nullptr);
    }
  });
  for (int i = 0; i < 2000; ++i)
    Answer("{}");
  stop = true;
  registering.join();
}

/// Raises the connected event on a thread that the stand-in's Disconnect joins, as the real one
/// does.
class UploadSelfCallTest : public UploadClientTest {
 protected:
  void RaiseOnThread() {
    tcp_->onDisconnect = [this] { Tarn::Os::JoinThread(thread_); };
    ASSERT_EQ(Tarn::Os::StartThread(thread_, Run, this, "connect"), 0);
  }
  static void* Run(void* test) {
    auto* self = static_cast<UploadSelfCallTest*>(test);
    CUploadClient::OnConnect(self->client_, CONN_SUCCESS);
    self->ended_ = true;
    return nullptr;
  }

  Tarn::Os::ThreadHandle thread_{0};
  std::atomic<bool> ended_{false};
};

TEST_F(UploadSelfCallTest, SurvivesItsDeletionInTheProgressCallback) {
  ASSERT_TRUE(UploadSparse(3 * kBlock));
  events_.onProgress = [this] { IUploadClient::Delete(client_); };
  RaiseOnThread();
  EXPECT_TRUE(WaitUntil([this] { return ended_.load(); }));
  client_ = nullptr;
  EXPECT_THAT(events_.Progress(), ElementsAre(33));
}

TEST_F(UploadSelfCallTest, SurvivesItsDeletionInTheResultCallback) {
  ASSERT_TRUE(UploadContent(""));
  events_.onResult = [this] { IUploadClient::Delete(client_); };
  RaiseOnThread();
  EXPECT_TRUE(WaitUntil([this] { return ended_.load(); }));
  client_ = nullptr;
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
}

TEST_F(UploadSelfCallTest, LeavesTheFileOfAnUploadBegunInTheProgressCallbackAlone) {
  WriteFile(dir_.File("next"), "next content");
  ASSERT_TRUE(UploadSparse(3 * kBlock));
  events_.onProgress = [this] {
    if (tcp_->connects > 1) return;
    EXPECT_TRUE(Upload(dir_.File("next")));
  };
  RaiseOnThread();
  EXPECT_TRUE(WaitUntil([this] { return ended_.load(); }));
  EXPECT_EQ(tcp_->sent.size(), 1u);
  tcp_->sent.clear();
  tcp_->onDisconnect = nullptr;
  Raise(CONN_SUCCESS);
  ASSERT_EQ(tcp_->sent.size(), 2u);
  EXPECT_EQ(tcp_->sent[1], "next content");
}

TEST_F(UploadSelfCallTest, LeavesTheFileOfAnUploadBegunInTheFailureCallbackAlone) {
  ASSERT_TRUE(UploadContent("content"));
  events_.onResult = [this] {
    if (tcp_->connects > 1) return;
    EXPECT_TRUE(Upload(Path()));
  };
  Raise(CONN_FAILED);
  Raise(CONN_SUCCESS);
  ASSERT_EQ(tcp_->sent.size(), 2u);
  EXPECT_EQ(tcp_->sent[1], "content");
}

TEST_F(UploadClientTest, KeepsItsFieldsInOrder) {
  const auto offset = [this](const void* field) {
    return static_cast<const char*>(field) - reinterpret_cast<const char*>(client_);
  };
  EXPECT_EQ(offset(&client_->m_pTcpClient), 8);
  EXPECT_EQ(offset(&client_->m_pPing), 16);
  EXPECT_EQ(offset(&client_->m_bConnected), 24);
  EXPECT_EQ(offset(&client_->m_szIp), 28);
  EXPECT_EQ(offset(&client_->m_port), 48);
  EXPECT_EQ(offset(&client_->m_blockLen), 52);
  EXPECT_EQ(offset(&client_->m_progress), 56);
  EXPECT_EQ(offset(&client_->m_onResult), 64);
  EXPECT_EQ(offset(&client_->m_onProgress), 72);
  EXPECT_EQ(offset(&client_->m_pUser), 80);
  EXPECT_EQ(offset(&client_->m_errorPath), 88);
  EXPECT_EQ(offset(&client_->m_localPath), 160);
  EXPECT_EQ(offset(&client_->m_szExt), 232);
  EXPECT_EQ(offset(&client_->m_pFile), 256);
  EXPECT_EQ(client_->m_blockLen, 1048576);
}

}  // namespace
