// The download client's own doings, with a stand-in for its TCP client.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <stdexcept>
#include <thread>

#include "tests/DownloadFixtures.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;
using testing::ElementsAre;
using testing::IsEmpty;
using Result = DownloadEvents::Result;

class DownloadClientTest : public DownloadClientFixture {};

TEST_F(DownloadClientTest, AsksForAFileByItsName) {
  Begin();
  EXPECT_THAT(tcp_->sent, ElementsAre("a.bin"));
  EXPECT_EQ(client_->m_bConnected, 1);
}

TEST_F(DownloadClientTest, AsksForAFileInAFolder) {
  ASSERT_TRUE(Down("a.bin", Folder(), "sub"));
  Raise(CONN_SUCCESS);
  EXPECT_THAT(tcp_->sent, ElementsAre("a.bin$^sub"));
}

TEST_F(DownloadClientTest, AsksWithoutAFolderWhenItIsEmpty) {
  ASSERT_TRUE(Down("a.bin", Folder(), ""));
  Raise(CONN_SUCCESS);
  EXPECT_THAT(tcp_->sent, ElementsAre("a.bin"));
}

TEST_F(DownloadClientTest, ConfiguresItsTcpClient) {
  ASSERT_TRUE(Down("a.bin", Folder()));
  EXPECT_EQ(tcp_->maxBufferLen, 1048576);
  EXPECT_EQ(tcp_->procType, PROTOCOL_STRING_SEND);
  EXPECT_EQ(tcp_->user, client_);
  EXPECT_EQ(tcp_->ip, "127.0.0.1");
  EXPECT_EQ(tcp_->port, 4711);
  EXPECT_EQ(tcp_->timeout, -1);
}

TEST_F(DownloadClientTest, StoresWhatComesWithTheHeader) {
  Begin();
  Feed(DownloadStream("0123456789"));
  EXPECT_EQ(ReadFile(Path()), "0123456789");
  EXPECT_THAT(events_.Progress(), ElementsAre(100));
  EXPECT_EQ(events_.ProgressPath(), "a.bin");
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"a.bin", 0}));
}

TEST_F(DownloadClientTest, StoresWhatFollowsTheHeaderWhereverItIsCut) {
  const std::string stream = DownloadStream("0123456789");
  for (size_t cut = 40; cut <= stream.size(); ++cut) {
    Begin();
    Feed(std::string_view(stream).substr(0, cut));
    Feed(std::string_view(stream).substr(cut));
    EXPECT_EQ(ReadFile(Path()), "0123456789") << cut;
    EXPECT_EQ(events_.Codes().back(), 0u);
    ASSERT_EQ(unlink(Path().c_str()), 0);
  }
  EXPECT_EQ(events_.Codes().size(), 11u);
}

TEST_F(DownloadClientTest, StallsWhereverTheHeaderIsCutUntilTheConnectionClosesKept) {
  const std::string stream = DownloadStream("0123456789");
  for (size_t cut = 1; cut < 40; ++cut) {
    Begin();
    Feed(std::string_view(stream).substr(0, cut));
    Feed(std::string_view(stream).substr(cut));
    Feed(stream);
    EXPECT_THAT(Fetched(), IsEmpty()) << cut;
    EXPECT_EQ(events_.Codes().size(), cut - 1);
    Raise(CONN_CLOSED);
  }
  EXPECT_THAT(events_.Codes(), testing::Each(2003u));
  EXPECT_THAT(events_.Progress(), IsEmpty());
}

TEST_F(DownloadClientTest, ReportsTheProgressTruncatedKept) {
  Begin();
  const std::string stream = DownloadStream("abcdefghi");
  Feed(std::string_view(stream).substr(0, 40));
  for (size_t at = 40; at < stream.size(); at += 3)
    Feed(std::string_view(stream).substr(at, 3));
  EXPECT_THAT(events_.Progress(), ElementsAre(33, 66, 100));
}

TEST_F(DownloadClientTest, ReportsAMissingFileAndMakesNone) {
  Begin();
  Feed(MissingFile());
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"a.bin", 2000}));
  EXPECT_THAT(Fetched(), IsEmpty());
  Feed("more");
  Feed(DownloadStream("abc"));
  EXPECT_EQ(events_.Results().size(), 1u);
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, ReportsTheCloseAfterAFailureTooKept) {
  Begin();
  Feed(MissingFile());
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Codes(), ElementsAre(2000u, 2003u));
}

TEST_F(DownloadClientTest, PassesOnWhateverErrorTheHeaderHolds) {
  for (const unsigned int error : {1u, 2001u, 0xFFFFFFFFu}) {
    Begin();
    Feed(DownloadHeaderFor(43, error, Md5Of("abc")) + "abc");
  }
  EXPECT_THAT(events_.Codes(), ElementsAre(1u, 2001u, 0xFFFFFFFFu));
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, ReportsAFileThatCannotBeCreated) {
  ASSERT_EQ(mkdir(Folder().c_str(), 0700), 0);
  ASSERT_EQ(mkdir(Path().c_str(), 0700), 0);
  Begin();
  Feed(DownloadStream("abc"));
  Feed("more");
  EXPECT_THAT(events_.Codes(), ElementsAre(2001u));
  EXPECT_THAT(events_.Progress(), IsEmpty());
}

TEST_F(DownloadClientTest, CreatesNoFileInAFolderThatIsNotThere) {
  ASSERT_TRUE(Down("no/such/a.bin", Folder()));
  Raise(CONN_SUCCESS);
  Feed(DownloadStream("abc"));
  EXPECT_THAT(events_.Codes(), ElementsAre(2001u));
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, NeitherWritesNorDeletesWhatIsNotARegularFile) {
  ASSERT_EQ(mkdir(Folder().c_str(), 0700), 0);
  ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
  Begin();
  Feed(DownloadStream("abc"));
  EXPECT_THAT(events_.Codes(), ElementsAre(2001u));
  EXPECT_THAT(Fetched(), ElementsAre("a.bin"));
}

TEST_F(DownloadClientTest, ReplacesAFileThatIsThere) {
  ASSERT_EQ(mkdir(Folder().c_str(), 0700), 0);
  WriteFile(Path(), "something longer");
  Begin();
  Feed(DownloadStream("abc"));
  EXPECT_EQ(ReadFile(Path()), "abc");
}

TEST_F(DownloadClientTest, DeletesAFileWhoseMd5Differs) {
  Begin();
  Feed(DownloadHeaderFor(43, 0, Md5Of("other")) + "abc");
  EXPECT_THAT(events_.Codes(), ElementsAre(2002u));
  EXPECT_THAT(events_.Progress(), ElementsAre(100));
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, DoesNotReportTheCloseAfterAllBytesCameEvenWhenTheMd5DiffersKept) {
  Begin();
  Feed(DownloadHeaderFor(43, 0, Md5Of("other")) + "abc");
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Codes(), ElementsAre(2002u));
}

TEST_F(DownloadClientTest, ComparesTheMd5AsTextKept) {
  std::string upper = Md5Of("abc");
  for (char& c : upper)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  Begin();
  Feed(DownloadHeaderFor(43, 0, upper) + "abc");
  EXPECT_THAT(events_.Codes(), ElementsAre(2002u));
}

TEST_F(DownloadClientTest, TakesAnMd5OfZerosForAMismatch) {
  Begin();
  Feed(DownloadHeaderFor(43, 0, "") + "abc");
  EXPECT_THAT(events_.Codes(), ElementsAre(2002u));
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, ReportsMoreThanAnnouncedAsAMismatch) {
  Begin();
  Feed(DownloadHeaderFor(43, 0, Md5Of("abcdef")) + "abcdef");
  EXPECT_THAT(events_.Progress(), ElementsAre(200));
  EXPECT_THAT(events_.Codes(), ElementsAre(2002u));
}

TEST_F(DownloadClientTest, KeepsAFileOfMoreThanAnnouncedWhenItsMd5MatchesKept) {
  Begin();
  Feed(DownloadHeaderFor(43, 0, Md5Of("abcdef")) + "abcdef");
  EXPECT_EQ(ReadFile(Path()), "abcdef");
  Feed("ghi");
  EXPECT_EQ(ReadFile(Path()), "abcdef");
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Codes(), ElementsAre(2002u, 2003u));
}

TEST_F(DownloadClientTest, IgnoresWhatFollowsACompleteFile) {
  Begin();
  Feed(DownloadStream("abc"));
  Feed(DownloadStream("def"));
  EXPECT_EQ(ReadFile(Path()), "abc");
  EXPECT_THAT(events_.Codes(), ElementsAre(0u));
}

TEST_F(DownloadClientTest, DoesNotReportACloseAfterACompleteFile) {
  Begin();
  Feed(DownloadStream("abc"));
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Codes(), ElementsAre(0u));
  EXPECT_EQ(client_->m_bConnected, 0);
  EXPECT_EQ(ReadFile(Path()), "abc");
}

TEST_F(DownloadClientTest, DeletesAFileCutShortByAClose) {
  Begin();
  Feed(DownloadStream("0123456789").substr(0, 45));
  EXPECT_EQ(Fetched().size(), 1u);
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"a.bin", 2003}));
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, KeepsAShortFileAtACloseWhenItsMd5MatchesKept) {
  Begin();
  Feed(DownloadHeaderFor(1000, 0, Md5Of("abc")) + "abc");
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
  EXPECT_EQ(ReadFile(Path()), "abc");
}

TEST_F(DownloadClientTest, NeverCompletesAnEmptyFileAndDeletesItAtTheCloseKept) {
  Begin();
  Feed(DownloadStream(""));
  EXPECT_THAT(events_.Results(), IsEmpty());
  EXPECT_THAT(Fetched(), ElementsAre("a.bin"));
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Codes(), ElementsAre(2003u));
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, TakesDataWithoutALengthForMoreThanAnnounced) {
  // 40: an empty file; 39: not even the header; 2 GiB: what a signed length cannot hold.
  for (const unsigned int total : {40u, 39u, 0u, 2147483688u}) {
    Begin();
    Feed(DownloadHeaderFor(total, 0, Md5Of("other")) + "abc");
    EXPECT_THAT(Fetched(), IsEmpty()) << total;
  }
  EXPECT_THAT(events_.Codes(), testing::Each(2002u));
  EXPECT_THAT(events_.Progress(), ElementsAre(INT_MIN, -300, -7, 0));
}

TEST_F(DownloadClientTest, WaitsForTheLastByteOfALongFile) {
  const std::string content = PatternBytes(kBlock);
  const std::string stream = DownloadStream(content);
  Begin();
  // As a full read leaves it, which is a byte shorter than the buffer.
  Feed(std::string_view(stream).substr(0, 40));
  Feed(std::string_view(stream).substr(40, kBlock - 1));
  EXPECT_THAT(events_.Results(), IsEmpty());
  Feed(std::string_view(stream).substr(40 + kBlock - 1));
  EXPECT_THAT(events_.Codes(), ElementsAre(0u));
  EXPECT_THAT(events_.Progress(), ElementsAre(99, 100));
  EXPECT_TRUE(ReadFile(Path()) == content);
}

TEST_F(DownloadClientTest, ReportsAFailedConnect) {
  ASSERT_TRUE(Down("a.bin", Folder()));
  Raise(CONN_FAILED);
  Raise(static_cast<ConnType>(2));
  EXPECT_THAT(events_.Results(), ElementsAre(Result{"a.bin", 1}, Result{"a.bin", 1}));
  EXPECT_EQ(client_->m_bConnected, 0);
}

TEST_F(DownloadClientTest, DoesNotReportAConnectionErrorKept) {
  Begin();
  Feed(DownloadStream("0123456789").substr(0, 45));
  Raise(CONN_ERROR);
  EXPECT_THAT(events_.Results(), IsEmpty());
  EXPECT_EQ(Fetched().size(), 1u);
  IDownloadClient::Delete(std::exchange(client_, nullptr));
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, RefusesWhatItCannotAskFor) {
  char ip[] = "127.0.0.1";
  char empty[] = "";
  EXPECT_FALSE(client_->Down(ip, 4711, nullptr, Folder().c_str(), nullptr));
  EXPECT_FALSE(client_->Down(empty, 4711, "a", Folder().c_str(), nullptr));
  EXPECT_FALSE(client_->Down(nullptr, 4711, "a", Folder().c_str(), nullptr));
  EXPECT_FALSE(client_->Down(ip, 0, "a", Folder().c_str(), nullptr));
  EXPECT_FALSE(client_->Down(ip, 4711, "a", nullptr, nullptr));
  EXPECT_FALSE(client_->Down(ip, 4711, "a", "", nullptr));
  EXPECT_EQ(tcp_->connects, 0);
  tcp_->connectResult = 0;
  EXPECT_FALSE(Down("a", Folder()));
  EXPECT_THAT(events_.Results(), IsEmpty());
}

TEST_F(DownloadClientTest, CreatesOneLevelOfTheLocalFolder) {
  EXPECT_TRUE(Down("a", dir_.File("new")));
  EXPECT_TRUE(Exists(dir_.File("new")));
  EXPECT_FALSE(Down("a", dir_.File("x/y")));
  EXPECT_FALSE(Exists(dir_.File("x")));
}

TEST_F(DownloadClientTest, StripsSlashesAndThenBackslashesOffTheFolderKept) {
  ASSERT_TRUE(Down("a", Folder() + "\\\\//"));
  EXPECT_STREQ(client_->m_localDir.GetData(), Folder().c_str());
  EXPECT_THAT(ListDir(dir_.Path()), ElementsAre("down"));
  EXPECT_FALSE(Down("a", "/"));
}

TEST_F(DownloadClientTest, KeepsTheWholeFolderWhenALongOneIsStripped) {
  // Stripped in place, the text leaves the form for long ones only later.
  const std::string folder = dir_.File(std::string(63 - dir_.Path().size() - 1, 'd'));
  ASSERT_EQ(folder.size(), 63u);
  ASSERT_TRUE(Down("f", folder + "//////"));
  Raise(CONN_SUCCESS);
  Feed(DownloadStream("abc"));
  EXPECT_EQ(ReadFile(folder + "/f"), "abc");
}

TEST_F(DownloadClientTest, DoesNotPingKept) {
  auto* ping = new FakePing;
  IPing::Delete(client_->m_pPing);
  client_->m_pPing = ping;
  ping->result = 0;
  EXPECT_TRUE(Down("a", Folder()));
  EXPECT_THAT(ping->asked, IsEmpty());
}

TEST_F(DownloadClientTest, KeepsNineteenCharactersOfTheAddress) {
  char ip[] = "1234567890123456789ABC";
  EXPECT_TRUE(client_->Down(ip, 4711, "a", Folder().c_str(), nullptr));
  EXPECT_EQ(tcp_->ip, "1234567890123456789");
}

TEST_F(DownloadClientTest, StartsAfreshAfterAFailedDownload) {
  Begin();
  Feed(MissingFile());
  Begin();
  Feed("short");
  Begin();
  Feed(DownloadStream("0123456789").substr(0, 45));
  Begin();
  EXPECT_THAT(Fetched(), IsEmpty());
  EXPECT_EQ(client_->m_len, 0);
  EXPECT_EQ(client_->m_fileLen, 0);
  EXPECT_EQ(client_->m_rate, 0.0);
  EXPECT_EQ(client_->errorcode, 0u);
  Feed(DownloadStream("abc"));
  EXPECT_THAT(events_.Codes(), ElementsAre(2000u, 0u));
  EXPECT_EQ(ReadFile(Path()), "abc");
}

TEST_F(DownloadClientTest, ReportsAnEarlyCloseOfTheNextDownloadToo) {
  Begin();
  Feed(DownloadStream("abc"));
  Begin();
  Raise(CONN_CLOSED);
  EXPECT_THAT(events_.Codes(), ElementsAre(0u, 2003u));
}

TEST_F(DownloadClientTest, DeletesTheFileOfATransferThatTheHostEndsEvenIfItsMd5Matches) {
  Begin();
  Feed(DownloadHeaderFor(1000, 0, Md5Of("abc")) + "abc");
  client_->Clear();
  EXPECT_THAT(Fetched(), IsEmpty());
  EXPECT_EQ(client_->m_pFile, nullptr);
}

TEST_F(DownloadClientTest, ChecksTheOpenFileWhenItIsDeleted) {
  Begin();
  Feed(DownloadHeaderFor(1000, 0, Md5Of("abc")) + "abc");
  IDownloadClient::Delete(std::exchange(client_, nullptr));
  EXPECT_EQ(ReadFile(Path()), "abc");
}

TEST_F(DownloadClientTest, IgnoresWhatComesWhileTheHostEndsTheTransfer) {
  Begin();
  // As the read thread does it until it is joined.
  tcp_->onDisconnect = [this] {
    Feed(DownloadStream("abc"));
    Raise(CONN_CLOSED);
  };
  client_->Clear();
  EXPECT_THAT(Fetched(), IsEmpty());
  EXPECT_THAT(events_.Results(), IsEmpty());
  tcp_->onDisconnect = nullptr;
}

TEST_F(DownloadClientTest, ReportsNoResultWhenTheHostEndsTheTransferMeanwhile) {
  Begin();
  events_.onProgress = [this] { std::thread([this] { client_->Clear(); }).join(); };
  Feed(DownloadStream("abc"));
  EXPECT_THAT(events_.Progress(), ElementsAre(100));
  EXPECT_THAT(events_.Results(), IsEmpty());
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, HoldsNoLockDuringCallbacks) {
  Begin();
  int calls = 0;
  const auto fromAnotherThread = [&] {
    std::thread([this] {
      events_.Register(*client_);
      client_->CloseFile();
    }).join();
    ++calls;
  };
  events_.onProgress = fromAnotherThread;
  events_.onResult = fromAnotherThread;
  Feed(DownloadStream("abc"));
  Raise(CONN_FAILED);
  EXPECT_EQ(calls, 3);
}

TEST_F(DownloadClientTest, IgnoresEmptyDeliveries) {
  Begin();
  client_->OnMessage(nullptr, 5);
  client_->OnMessage("abc", 0);
  client_->OnMessage("abc", -1);
  EXPECT_EQ(client_->m_len, 0);
  Feed(DownloadStream("abc"));
  EXPECT_THAT(events_.Codes(), ElementsAre(0u));
}

TEST_F(DownloadClientTest, WorksWithoutCallbacks) {
  client_->RegisterEvent(nullptr, nullptr, nullptr);
  Begin();
  Feed(DownloadStream("abc"));
  EXPECT_EQ(ReadFile(Path()), "abc");
}

TEST_F(DownloadClientTest, LogsTheStepsOfATransferKept) {
  LogCapture capture;
  ASSERT_TRUE(Down("a.bin", Folder(), "sub"));
  Raise(CONN_SUCCESS);
  Feed(DownloadStream("abc").substr(0, 41));
  Feed("bc");
  Raise(CONN_CLOSED);
  char message[2][200];
  const int lengths[2][4] = {{0, 0, 41}, {1, 3, 2}};
  for (int i = 0; i < 2; ++i) {
    snprintf(message[i], sizeof message[i],
             "CDownloadClient::OnMessage 1111111111111111  errorcode:0 m_maxlen:1048576 m_len:%d "
             "m_fileLen:%d len:%d buffer:%p",
             lengths[i][0], lengths[i][1], lengths[i][2], static_cast<void*>(client_->m_buffer));
  }
  EXPECT_THAT(capture.Messages(" DEBUG "),
              ElementsAre("CDownloadClient::Down 1111111111111111",
                          "CDownloadClient::Clear 1111111111111111",
                          "CDownloadClient::CloseFile 1111111111111111", "CDownloadClient::Connect",
                          "CDownloadClient::OnConnect   1111111111111111",
                          "CDownloadClient::OnConnect  fullFile:a.bin$^sub", message[0],
                          "CDownloadClient::CreateLocalFile 1111111111111111",
                          "CDownloadClient::CalcRate m_len:1  m_fileLen:3  33.333333", message[1],
                          "CDownloadClient::CalcRate m_len:3  m_fileLen:3  100.000000",
                          "CDownloadClient::CloseFile 1111111111111111",
                          "CDownloadClient::OnConnect   1111111111111111"));
}

TEST_F(DownloadClientTest, LogsWhatIsIgnoredAfterAFailure) {
  ASSERT_EQ(mkdir(Folder().c_str(), 0700), 0);
  ASSERT_EQ(mkdir(Path().c_str(), 0700), 0);
  const std::pair<std::string, const char*> failures[] = {
      {DownloadStream("abc"), "errorcode:2001 m_maxlen:1048576 m_len:3 m_fileLen:3 len:4 buffer:"},
      {MissingFile(), "errorcode:2000 m_maxlen:1048576 m_len:40 m_fileLen:0 len:4 buffer:"}};
  for (const auto& [delivery, told] : failures) {
    Begin();
    Feed(delivery);
    LogCapture capture;
    Feed("more");
    const std::vector<std::string> messages = capture.Messages(" DEBUG ");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_THAT(
        messages[0],
        testing::StartsWith(std::string("CDownloadClient::OnMessage 1111111111111111  ") + told));
  }
}

TEST_F(DownloadClientTest, LogsAFolderThatCannotBeMade) {
  LogCapture capture;
  EXPECT_FALSE(Down("a", dir_.File("x/y")));
  EXPECT_THAT(capture.Messages(" DEBUG "),
              ElementsAre("CDownloadClient::Down 1111111111111111",
                          "CDownloadClient::Clear 1111111111111111",
                          "CDownloadClient::CloseFile 1111111111111111",
                          "Failure to create download directory."));
}

TEST_F(DownloadClientTest, LogsAnExceptionFromACallbackKept) {
  Begin();
  events_.onResult = [] { throw std::runtime_error("host"); };
  LogCapture capture;
  Feed(MissingFile());
  ASSERT_EQ(capture.Messages(" DEBUG ").size(), 2u);
  EXPECT_EQ(capture.Messages(" DEBUG ")[1], "CDownloadClient::OnMessage Expection");
}

/// Downloads in a process whose files cannot grow beyond `limit`; 0 when it counted as a mismatch,
/// although the announced MD5 is that of what could be stored.
int DownloadWithFileLimit(CDownloadClient& client, DownloadEvents& events, rlim_t limit,
                          const std::string& stream) {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit size{limit, limit};
  if (setrlimit(RLIMIT_FSIZE, &size) != 0) return 2;
  CDownloadClient::OnMessage(&client, stream.data(), static_cast<int>(stream.size()));
  return events.Codes() == std::vector<unsigned int>{2002u} ? 0 : 1;
}

TEST_F(DownloadClientTest, CountsAShortWriteAsAMismatch) {
  const std::string content = PatternBytes(20000);
  const std::string stream = DownloadHeaderFor(20040, 0, Md5Of(content.substr(0, 4096))) + content;
  Begin();
  EXPECT_EQ(RunInChild([&] { return DownloadWithFileLimit(*client_, events_, 4096, stream); }), 0);
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, CountsAFailedCloseAsAMismatch) {
  const std::string stream = DownloadHeaderFor(60, 0, Md5Of("0123456789")) + "0123456789abcdefghij";
  Begin();
  EXPECT_EQ(RunInChild([&] { return DownloadWithFileLimit(*client_, events_, 10, stream); }), 0);
  EXPECT_THAT(Fetched(), IsEmpty());
}

TEST_F(DownloadClientTest, TakesCallbacksAndUserPointerTogether) {
  struct Host {
    int calls = 0;
    static void OnResult(void* user, const char*, unsigned int) {
      ++static_cast<Host*>(user)->calls;
    }
    static void OnOther(void* user, const char*, unsigned int) { EXPECT_EQ(user, nullptr); }
  } host;
  std::atomic<bool> stop{false};
  std::thread registering([&] {
    while (!stop) {
      client_->RegisterEvent(Host::OnResult, nullptr, &host);
      client_->RegisterEvent(Host::OnOther, nullptr, nullptr);
    }
  });
  for (int i = 0; i < 2000; ++i)
    Raise(CONN_FAILED);
  stop = true;
  registering.join();
}

TEST_F(DownloadClientTest, KeepsItsFieldsInOrder) {
  const auto offset = [this](const void* field) {
    return static_cast<const char*>(field) - reinterpret_cast<const char*>(client_);
  };
  EXPECT_EQ(offset(&client_->m_pTcpClient), 8);
  EXPECT_EQ(offset(&client_->m_pPing), 16);
  EXPECT_EQ(offset(&client_->m_bConnected), 24);
  EXPECT_EQ(offset(&client_->m_szIp), 28);
  EXPECT_EQ(offset(&client_->m_port), 48);
  EXPECT_EQ(offset(&client_->m_onResult), 56);
  EXPECT_EQ(offset(&client_->m_onProgress), 64);
  EXPECT_EQ(offset(&client_->m_pUser), 72);
  EXPECT_EQ(offset(&client_->m_file), 80);
  EXPECT_EQ(offset(&client_->m_subDir), 152);
  EXPECT_EQ(offset(&client_->m_localDir), 224);
  EXPECT_EQ(offset(&client_->m_localPath), 296);
  EXPECT_EQ(offset(&client_->m_szMd5), 368);
  EXPECT_EQ(offset(&client_->m_buffer), 408);
  EXPECT_EQ(offset(&client_->m_maxlen), 416);
  EXPECT_EQ(offset(&client_->m_len), 420);
  EXPECT_EQ(offset(&client_->m_rate), 424);
  EXPECT_EQ(offset(&client_->m_fileLen), 432);
  EXPECT_EQ(offset(&client_->m_pFile), 440);
  EXPECT_EQ(offset(&client_->errorcode), 448);
  EXPECT_EQ(client_->m_maxlen, 1048576);
}

}  // namespace
