// The upload server's own doings, with a stand-in for its TCP server and made-up connection ids.
#include <Tarn/Generic/DateTime.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <set>
#include <thread>

#include "tests/UploadFixtures.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

// Hosts see this record through the public header.
static_assert(offsetof(_UpRequest, name) == 0);
static_assert(offsetof(_UpRequest, path) == 256);
static_assert(offsetof(_UpRequest, cid) == 512);
static_assert(offsetof(_UpRequest, header) == 520);
static_assert(offsetof(_UpRequest, received) == 528);
static_assert(offsetof(_UpRequest, expected) == 532);
static_assert(offsetof(_UpRequest, file) == 536);
static_assert(offsetof(_UpRequest, md5) == 544);
static_assert(offsetof(_UpRequest, ext) == 584);
static_assert(sizeof(_UpRequest) == 608);

class UploadServerTest : public TransferFixture {
 protected:
  UploadServerTest() : tcp_(new FakeTcpServer) {
    ITcpServer::Delete(server_.m_pTcpServer);
    server_.m_pTcpServer = tcp_;
    server_.SetPath(dir_.File("up").c_str());
  }

  void Connect(unsigned int cid) {
    char ip[] = "127.0.0.1";
    server_.OnConnect(3, cid, ip);
  }
  void Feed(unsigned int cid, std::string_view bytes) {
    server_.OnMessage(3, cid, bytes.data(), static_cast<int>(bytes.size()));
  }
  [[nodiscard]] std::vector<std::string> StoredNames() const { return StoredIn(dir_); }
  [[nodiscard]] std::string Stored(const std::string& name) const {
    return ReadFile(dir_.File("up\\" + name));
  }
  [[nodiscard]] static std::string AnswerFor(const std::string& name) {
    return "{\"err\":0,\"file\":\"" + name + "\"}";
  }

  const TempDir dir_;
  CUploadServer server_;
  FakeTcpServer* tcp_;  // owned by server_
};

TEST_F(UploadServerTest, StoresAFileBesideTheFolderAfterABackslashKept) {
  Connect(7);
  Feed(7, UploadStream("0123456789", ".txt"));
  const std::vector<std::string> names = StoredNames();
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(Stored(names[0]), "0123456789");
  EXPECT_THAT(tcp_->sent, ElementsAre(std::pair(7, AnswerFor(names[0]))));
  EXPECT_THAT(tcp_->removed, IsEmpty());
  EXPECT_THAT(ListDir(dir_.File("up")), IsEmpty());
}

TEST_F(UploadServerTest, NamesTheFileByLocalTimeAndThreeDigits) {
  const std::string before = Today("%Y%m%d%H%M%S");
  Connect(7);
  Feed(7, UploadStream("x", ".tar.gz"));
  const std::string after = Today("%Y%m%d%H%M%S");
  const std::vector<std::string> names = StoredNames();
  ASSERT_EQ(names.size(), 1u);
  EXPECT_THAT(names[0], MatchesRegex("[0-9]{20}\\.tar\\.gz"));
  EXPECT_GE(names[0].substr(0, 14), before);
  EXPECT_LE(names[0].substr(0, 14), after);
}

TEST_F(UploadServerTest, AcceptsTheHeaderCutAnywhere) {
  const std::string stream = UploadStream("payload", ".bin");
  for (size_t cut = 1; cut < stream.size(); ++cut) {
    const auto cid = static_cast<unsigned int>(cut);
    Connect(cid);
    Feed(cid, std::string_view(stream).substr(0, cut));
    Feed(cid, std::string_view(stream).substr(cut));
    ASSERT_EQ(tcp_->sent.size(), cut) << "cut at " << cut;
  }
  for (const std::string& name : StoredNames())
    EXPECT_EQ(Stored(name), "payload");
  EXPECT_EQ(StoredNames().size(), stream.size() - 1);
}

TEST_F(UploadServerTest, TakesA49ByteDeliveryFollowedByAFullRead) {
  const std::string content = PatternBytes(kBlock - 2);
  const std::string stream = UploadStream(content, ".bin");
  Connect(7);
  Feed(7, std::string_view(stream).substr(0, 49));
  Feed(7, std::string_view(stream).substr(49));
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_EQ(Stored(StoredNames()[0]), content);
}

TEST_F(UploadServerTest, WritesDataOfManyDeliveriesInOrder) {
  const std::string content = PatternBytes(100000);
  const std::string stream = UploadStream(content, ".bin");
  Connect(7);
  for (size_t at = 0; at < stream.size(); at += 777) {
    Feed(7, std::string_view(stream).substr(at, 777));
  }
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_EQ(Stored(StoredNames()[0]), content);
  EXPECT_EQ(tcp_->sent.size(), 1u);
}

TEST_F(UploadServerTest, IgnoresWhateverFollowsACompleteUpload) {
  Connect(7);
  Feed(7, UploadStream("one", ".txt"));
  Feed(7, UploadStream("second", ".txt"));
  Feed(7, std::string(2 * kBlock, 'x'));
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_EQ(Stored(StoredNames()[0]), "one");
  EXPECT_EQ(tcp_->sent.size(), 1u);
  EXPECT_THAT(tcp_->removed, IsEmpty());
  EXPECT_EQ(server_.m_requests.size(), 1u);
}

TEST_F(UploadServerTest, KeepsACompleteFileAtDisconnect) {
  Connect(7);
  Feed(7, UploadStream("content", ".txt"));
  server_.OnDisconnect(0, 7);
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_EQ(Stored(StoredNames()[0]), "content");
  EXPECT_THAT(server_.m_requests, IsEmpty());
}

TEST_F(UploadServerTest, DropsAConnectionThatAnnouncesLessThanTheHeader) {
  for (const unsigned int total : {0u, 49u}) {
    Connect(total + 10);
    Feed(total + 10, UploadHeaderFor(total, Md5Of(""), ".txt") + "data");
  }
  EXPECT_THAT(tcp_->removed, ElementsAre(10, 59));
  EXPECT_THAT(tcp_->sent, IsEmpty());
  EXPECT_THAT(server_.m_requests, IsEmpty());
  EXPECT_THAT(StoredNames(), IsEmpty());
}

TEST_F(UploadServerTest, DeletesAFileWhoseMd5DiffersAndDropsItsConnectionAfterTheAnswer) {
  Connect(7);
  Feed(7, UploadHeaderFor(53, Md5Of("other"), ".txt") + "abc");
  EXPECT_THAT(StoredNames(), IsEmpty());
  ASSERT_EQ(tcp_->sent.size(), 1u);
  EXPECT_THAT(tcp_->sent[0].second, MatchesRegex("\\{\"err\":0,\"file\":\"[0-9]{20}\\.txt\"\\}"));
  EXPECT_THAT(tcp_->removed, ElementsAre(7));
  EXPECT_THAT(server_.m_requests, IsEmpty());
}

TEST_F(UploadServerTest, ComparesTheMd5AsTextKept) {
  std::string upper = Md5Of("abc");
  for (char& c : upper)
    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  Connect(7);
  Feed(7, UploadHeaderFor(53, upper, ".txt") + "abc");
  EXPECT_THAT(tcp_->removed, ElementsAre(7));
}

TEST_F(UploadServerTest, DeletesAFileCutShortByADisconnect) {
  const std::string stream = UploadStream("0123456789", ".txt");
  Connect(7);
  Feed(7, stream.substr(0, 55));
  ASSERT_EQ(StoredNames().size(), 1u);
  server_.OnDisconnect(0, 7);
  EXPECT_THAT(StoredNames(), IsEmpty());
  EXPECT_THAT(tcp_->sent, IsEmpty());
  EXPECT_THAT(server_.m_requests, IsEmpty());
}

TEST_F(UploadServerTest, KeepsAShortFileAtDisconnectWhenItsMd5MatchesKept) {
  Connect(7);
  Feed(7, UploadHeaderFor(1000, Md5Of("abc"), ".txt") + "abc");
  server_.OnDisconnect(0, 7);
  EXPECT_EQ(StoredNames().size(), 1u);
}

TEST_F(UploadServerTest, NeitherAnswersNorDropsAnEmptyFileUntilTheDisconnectKept) {
  Connect(7);
  Feed(7, UploadStream("", ".txt"));
  EXPECT_THAT(tcp_->sent, IsEmpty());
  EXPECT_THAT(tcp_->removed, IsEmpty());
  EXPECT_EQ(StoredNames().size(), 1u);
  server_.OnDisconnect(0, 7);
  EXPECT_EQ(StoredNames().size(), 1u);
}

TEST_F(UploadServerTest, NeverCompletesWhenMoreThanAnnouncedComesKept) {
  Connect(7);
  Feed(7, UploadHeaderFor(53, Md5Of("abc"), ".txt") + "abcdef");
  Feed(7, "ghi");
  EXPECT_THAT(tcp_->sent, IsEmpty());
  server_.OnDisconnect(0, 7);
  EXPECT_THAT(StoredNames(), IsEmpty());
}

TEST_F(UploadServerTest, CountsAnExtensionWithASlashAsNotCreated) {
  Connect(7);
  Feed(7, UploadStream("abc", ".d/../../x"));
  EXPECT_THAT(StoredNames(), IsEmpty());
  ASSERT_EQ(tcp_->sent.size(), 1u);
  EXPECT_THAT(tcp_->sent[0].second,
              MatchesRegex("\\{\"err\":0,\"file\":\"[0-9]{20}\\.d/\\.\\./\\.\\./x\"\\}"));
  EXPECT_THAT(tcp_->removed, ElementsAre(7));
  EXPECT_THAT(server_.m_requests, IsEmpty());
}

TEST_F(UploadServerTest, CountsAPathOfMoreThan255CharactersAsNotCreated) {
  // The folder, a backslash and a name of 20 + 4 characters: 255 fits, 256 does not.
  for (const size_t length : {230u, 231u}) {
    std::string folder = dir_.Path() + "/";
    while (folder.size() + 100 < length) {
      folder += std::string(60, 'd');
      ASSERT_TRUE(server_.SetPath(folder.c_str()));
      folder += "/";
    }
    folder += std::string(length - folder.size(), 'e');
    ASSERT_EQ(folder.size(), length);
    ASSERT_TRUE(server_.SetPath(folder.c_str()));
    Connect(static_cast<unsigned int>(length));
    Feed(static_cast<unsigned int>(length), UploadStream("abc", ".txt"));
  }
  EXPECT_EQ(tcp_->sent.size(), 2u);
  EXPECT_THAT(tcp_->removed, ElementsAre(231));
}

TEST_F(UploadServerTest, AnswersAndDropsWhenTheFileCannotBeCreatedKept) {
  ASSERT_TRUE(server_.SetPath(dir_.File("up/inner").c_str()));
  ASSERT_EQ(rmdir(dir_.File("up/inner").c_str()), 0);
  ASSERT_EQ(rmdir(dir_.File("up").c_str()), 0);
  Connect(7);
  Feed(7, UploadStream("abc", ".txt"));
  ASSERT_EQ(tcp_->sent.size(), 1u);
  EXPECT_THAT(tcp_->sent[0].second, MatchesRegex("\\{\"err\":0,\"file\":\"[0-9]{20}\\.txt\"\\}"));
  EXPECT_THAT(tcp_->removed, ElementsAre(7));
  EXPECT_THAT(server_.m_requests, IsEmpty());
}

TEST_F(UploadServerTest, KeepsTheAnswerOneLineOfJsonWhateverTheExtension) {
  Connect(7);
  Feed(7, UploadStream("abc", ".\"\\\r\n"));
  ASSERT_EQ(tcp_->sent.size(), 1u);
  EXPECT_THAT(tcp_->sent[0].second, testing::EndsWith(".\\\"\\\\\\r\\n\"}"));
}

TEST_F(UploadServerTest, TakesAnExtensionOfFourteenCharactersWithoutATerminator) {
  Connect(7);
  Feed(7, UploadStream("abc", ".3456789012345"));
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_THAT(StoredNames()[0], testing::EndsWith(".3456789012345"));
  EXPECT_EQ(StoredNames()[0].size(), 34u);
}

TEST_F(UploadServerTest, GivesEveryFileANameOfItsOwn) {
  const std::string stream = UploadStream("x", ".t");
  for (unsigned int cid = 1; cid <= 2000; ++cid) {
    Connect(cid);
    Feed(cid, stream);
  }
  EXPECT_EQ(StoredNames().size(), 2000u);
  std::set<std::string> answers;
  for (const auto& [cid, answer] : tcp_->sent)
    answers.insert(answer);
  EXPECT_EQ(answers.size(), 2000u);
}

TEST_F(UploadServerTest, KeepsTwoConnectionsApart) {
  const std::string one = UploadStream("content one", ".one");
  const std::string two = UploadStream("content two!", ".two");
  Connect(7);
  Connect(8);
  for (size_t at = 0; at < two.size(); at += 5) {
    if (at < one.size()) Feed(7, std::string_view(one).substr(at, 5));
    Feed(8, std::string_view(two).substr(at, 5));
  }
  ASSERT_EQ(StoredNames().size(), 2u);
  for (const std::string& name : StoredNames()) {
    EXPECT_EQ(Stored(name), name.back() == 'e' ? "content one" : "content two!");
  }
}

TEST_F(UploadServerTest, IgnoresMessagesOfUnknownConnections) {
  Feed(99, UploadStream("abc", ".txt"));
  EXPECT_THAT(StoredNames(), IsEmpty());
  EXPECT_THAT(tcp_->removed, IsEmpty());
}

TEST_F(UploadServerTest, IgnoresEmptyDeliveries) {
  Connect(7);
  server_.OnMessage(3, 7, nullptr, 5);
  server_.OnMessage(3, 7, "abc", 0);
  server_.OnMessage(3, 7, "abc", -1);
  EXPECT_EQ(server_.m_requests.front().received, 0u);
  EXPECT_THAT(tcp_->removed, IsEmpty());
}

TEST_F(UploadServerTest, StartsAFreshRecordForANumberThatReturns) {
  Connect(7);
  Feed(7, UploadStream("0123456789", ".old").substr(0, 55));
  ASSERT_EQ(StoredNames().size(), 1u);
  Connect(7);
  EXPECT_EQ(server_.m_requests.size(), 1u);
  EXPECT_THAT(StoredNames(), IsEmpty());
  Feed(7, UploadStream("new", ".new"));
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_EQ(Stored(StoredNames()[0]), "new");
}

TEST_F(UploadServerTest, LogsConnectsAndDisconnectsKept) {
  std::vector<std::string> messages;
  {
    LogCapture capture;
    char ip[] = "10.1.2.3";
    server_.OnConnect(11, 12, ip);
    server_.OnDisconnect(0, 12);
    server_.OnDisconnect(0, 12);
    messages = capture.Messages(" ERROR ");
  }
  EXPECT_THAT(messages,
              ElementsAre("ConnectorLogs  CUploadServer::OnConnect sid:11 cid:12 ip:10.1.2.3",
                          "ConnectorLogs  CUploadServer::OnDisconnect sid:0 cid:12"));
}

TEST_F(UploadServerTest, ForwardsTheStaticEventsToTheObject) {
  char ip[] = "127.0.0.1";
  const std::string stream = UploadStream("abc", ".txt");
  CUploadServer::OnConnect(&server_, 3, 7, ip);
  CUploadServer::OnMessage(&server_, 3, 7, stream.data(), static_cast<int>(stream.size()));
  EXPECT_EQ(tcp_->sent.size(), 1u);
  CUploadServer::OnDisconnect(&server_, 0, 7);
  EXPECT_THAT(server_.m_requests, IsEmpty());
}

TEST_F(UploadServerTest, ConfiguresTheTcpServerAtEveryStart) {
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(server_.Start(4711 + round));
    EXPECT_EQ(tcp_->startedPort, 4711 + round);
    EXPECT_EQ(tcp_->maxBufferLen, 1048576);
    EXPECT_EQ(tcp_->procType, PROTOCOL_STRING_SEND);
    EXPECT_EQ(tcp_->user, &server_);
    EXPECT_NE(tcp_->onConnect, nullptr);
    EXPECT_NE(tcp_->onDisconnect, nullptr);
    EXPECT_NE(tcp_->onMessage, nullptr);
    EXPECT_TRUE(server_.Stop());
    EXPECT_EQ(tcp_->stops, round + 1);
  }
}

TEST_F(UploadServerTest, StopsOnlyWhatWasStartedKept) {
  EXPECT_TRUE(server_.Stop());
  EXPECT_EQ(tcp_->stops, 0);
  tcp_->startResult = 0;
  EXPECT_FALSE(server_.Start(4711));
  EXPECT_EQ(server_.m_bStarted, 0);
  EXPECT_TRUE(server_.Stop());
  EXPECT_EQ(tcp_->stops, 0);
}

TEST_F(UploadServerTest, StaysStoppableAfterARefusedSecondStart) {
  ASSERT_TRUE(server_.Start(4711));
  tcp_->startResult = 0;
  EXPECT_FALSE(server_.Start(4711));
  EXPECT_TRUE(server_.Stop());
  EXPECT_EQ(tcp_->stops, 1);
}

TEST_F(UploadServerTest, DropsEveryRecordAtStop) {
  ASSERT_TRUE(server_.Start(4711));
  Connect(7);
  Connect(8);
  Feed(7, UploadStream("0123456789", ".txt").substr(0, 55));
  Feed(8, UploadHeaderFor(1000, Md5Of("abc"), ".whole") + "abc");
  ASSERT_EQ(StoredNames().size(), 2u);
  server_.Stop();
  EXPECT_THAT(server_.m_requests, IsEmpty());
  ASSERT_EQ(StoredNames().size(), 1u);
  EXPECT_THAT(StoredNames()[0], testing::EndsWith(".whole"));
  Feed(7, "56789");
  EXPECT_THAT(tcp_->sent, IsEmpty());
}

TEST_F(UploadServerTest, CreatesOneLevelOfTheSaveFolderKept) {
  EXPECT_TRUE(server_.SetPath(dir_.File("new").c_str()));
  EXPECT_TRUE(Exists(dir_.File("new")));
  EXPECT_FALSE(server_.SetPath(dir_.File("a/b").c_str()));
  EXPECT_FALSE(Exists(dir_.File("a")));
  EXPECT_FALSE(server_.SetPath(nullptr));
  EXPECT_STREQ(server_.m_folder.GetData(), dir_.File("new").c_str());
}

TEST_F(UploadServerTest, StripsSlashesAndThenBackslashesOffTheFolderKept) {
  const std::string up = dir_.File("up");
  ASSERT_TRUE(server_.SetPath((up + "///").c_str()));
  EXPECT_STREQ(server_.m_folder.GetData(), up.c_str());
  ASSERT_TRUE(server_.SetPath((up + "\\\\//").c_str()));
  EXPECT_STREQ(server_.m_folder.GetData(), up.c_str());
  ASSERT_TRUE(server_.SetPath((up + "/\\").c_str()));
  EXPECT_STREQ(server_.m_folder.GetData(), (up + "/").c_str());
}

TEST_F(UploadServerTest, StoresInTheWorkingFolderWithoutASaveFolderKept) {
  const int status = RunInChild([this] {
    if (chdir(dir_.Path().c_str()) != 0) return 1;
    CUploadServer server;
    char ip[] = "127.0.0.1";
    server.OnConnect(3, 7, ip);
    const std::string stream = UploadHeaderFor(53, "", ".txt") + "ab";
    server.OnMessage(3, 7, stream.data(), static_cast<int>(stream.size()));
    const std::string path = server.m_requests.front().path;
    const bool there = Exists(dir_.File(path)) && path.front() == '\\';
    // Not destroyed: the default log's thread does not exist in this process.
    return there ? (server.OnDisconnect(0, 7), 0) : 2;
  });
  EXPECT_EQ(status, 0);
}

/// Receives one upload in a process whose files cannot grow beyond `limit`; 0 when it counted as a
/// mismatch, although the announced MD5 is that of what could be stored.
int ReceiveWithFileLimit(CUploadServer& server, FakeTcpServer& tcp, rlim_t limit,
                         const std::string& stream) {
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit size{limit, limit};
  if (setrlimit(RLIMIT_FSIZE, &size) != 0) return 2;
  char ip[] = "127.0.0.1";
  server.OnConnect(3, 7, ip);
  server.OnMessage(3, 7, stream.data(), static_cast<int>(stream.size()));
  return tcp.sent.size() == 1 && tcp.removed.size() == 1 && server.m_requests.empty() ? 0 : 1;
}

TEST_F(UploadServerTest, CountsAShortWriteAsAMismatch) {
  const std::string content = PatternBytes(20000);
  const std::string stream =
      UploadHeaderFor(20050, Md5Of(content.substr(0, 4096)), ".txt") + content;
  EXPECT_EQ(RunInChild([&] { return ReceiveWithFileLimit(server_, *tcp_, 4096, stream); }), 0);
  EXPECT_THAT(StoredNames(), IsEmpty());
}

TEST_F(UploadServerTest, CountsAFailedCloseAsAMismatch) {
  const std::string stream =
      UploadHeaderFor(70, Md5Of("0123456789"), ".txt") + "0123456789abcdefghij";
  EXPECT_EQ(RunInChild([&] { return ReceiveWithFileLimit(server_, *tcp_, 10, stream); }), 0);
  EXPECT_THAT(StoredNames(), IsEmpty());
}

TEST_F(UploadServerTest, CountsAVanishedFileAsAMismatchEvenWithoutAnAnnouncedMd5) {
  Connect(7);
  Feed(7, UploadHeaderFor(53, "", ".txt") + "ab");
  ASSERT_EQ(StoredNames().size(), 1u);
  ASSERT_EQ(unlink(server_.m_requests.front().path), 0);
  {
    const StderrCapture quiet;
    Feed(7, "c");
  }
  EXPECT_THAT(tcp_->removed, ElementsAre(7));
}

/// How many pages of a block are in memory.
size_t ResidentPages(char* block, size_t size) {
  const auto pageBytes = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  char* first = block - reinterpret_cast<uintptr_t>(block) % pageBytes;
  std::vector<unsigned char> pages((static_cast<size_t>(block - first) + size + pageBytes - 1) /
                                   pageBytes);
  EXPECT_EQ(mincore(first, static_cast<size_t>(block - first) + size, pages.data()), 0);
  return static_cast<size_t>(
      std::count_if(pages.begin(), pages.end(), [](unsigned char page) { return page & 1; }));
}

TEST_F(UploadServerTest, TouchesAPageOfTheHeaderBufferPerIdleConnection) {
  // What the process has freed is still in memory, and would count when it is used again.
  malloc_trim(0);
  for (unsigned int cid = 1; cid <= 1024; ++cid)
    Connect(cid);
  ASSERT_EQ(server_.m_requests.size(), 1024u);
  size_t pages = 0;
  for (const _UpRequest& request : server_.m_requests)
    pages += ResidentPages(request.header, kBlock);
  EXPECT_LE(pages, 2048u);
}

TEST_F(UploadServerTest, HandlesEventsOfTwoThreadsAtOnce) {
  const std::string stream = UploadStream("content", ".txt");
  std::vector<std::thread> threads;
  for (unsigned int base : {1000u, 2000u}) {
    threads.emplace_back([this, base, &stream] {
      for (unsigned int cid = base; cid < base + 50; ++cid) {
        Connect(cid);
        Feed(cid, std::string_view(stream).substr(0, 52));
        server_.OnDisconnect(0, cid);
      }
    });
  }
  for (int i = 0; i < 50; ++i)
    server_.SetPath(dir_.File("up").c_str());
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_THAT(server_.m_requests, IsEmpty());
  EXPECT_THAT(StoredNames(), IsEmpty());
}

TEST_F(UploadServerTest, RefusesARecordWithoutAHeaderBuffer) {
  _UpRequest request;
  EXPECT_FALSE(server_.ProcData(&request, "abc", 3));
  EXPECT_FALSE(server_.ProcData(nullptr, "abc", 3));
}

TEST(UpRequest, IsZeroButForTheConnectionId) {
  const _UpRequest request;
  EXPECT_EQ(request.cid, 0xFFFFFFFFu);
  EXPECT_EQ(std::string(request.name, sizeof request.name), std::string(256, '\0'));
  EXPECT_EQ(std::string(request.path, sizeof request.path), std::string(256, '\0'));
  EXPECT_EQ(request.header, nullptr);
  EXPECT_EQ(request.received, 0u);
  EXPECT_EQ(request.expected, 0u);
  EXPECT_EQ(request.file, nullptr);
  EXPECT_EQ(std::string(request.md5, sizeof request.md5), std::string(40, '\0'));
  EXPECT_EQ(std::string(request.ext, sizeof request.ext), std::string(24, '\0'));
}

}  // namespace
