// Which files a download server sends, and that nothing outside its root is among them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/DownloadFixtures.h"

namespace {

using namespace Tarn::Generic;
using namespace tarn_test;

class DownloadRootTest : public DownloadServerFixture {};

TEST_F(DownloadRootTest, FindsAFileInAFolder) {
  MakeFolder("sub");
  Put("sub/a.bin", "in sub");
  EXPECT_EQ(Answer("a.bin$^sub"), DownloadStream("in sub"));
  EXPECT_EQ(Answer("a.bin$^sub$^further"), DownloadStream("in sub"));
  EXPECT_EQ(Answer("sub/a.bin"), DownloadStream("in sub"));
  EXPECT_EQ(Answer("a.bin"), MissingFile());
}

TEST_F(DownloadRootTest, FindsAFileWithHalfASeparatorOrABackslashInItsName) {
  Put("a$b", "dollar");
  Put("up\\2024.bin", "stored");
  EXPECT_EQ(Answer("a$b"), DownloadStream("dollar"));
  EXPECT_EQ(Answer("up\\2024.bin"), DownloadStream("stored"));
}

TEST_F(DownloadRootTest, CountsWhatIsNotARegularFileAsMissing) {
  MakeFolder("folder");
  ASSERT_EQ(mkfifo((Root() + "/fifo").c_str(), 0600), 0);
  ASSERT_EQ(symlink("/dev/zero", (Root() + "/device").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", (Root() + "/dangling").c_str()), 0);
  ASSERT_EQ(symlink("loop", (Root() + "/loop").c_str()), 0);
  Put("plain", "x");
  for (const char* text : {"", ".", "/", "folder", "folder/", "fifo", "device", "dangling", "loop",
                           "plain/", "plain/.", "plain/x", "$^", "$^plain"}) {
    EXPECT_EQ(Answer(text), MissingFile()) << text;
  }
}

TEST_F(DownloadRootTest, CountsAFileWhoseTotalDoesNotFitTheHeaderAsMissing) {
  MakeSparseFile(Root() + "/long", 4294967256u);
  EXPECT_EQ(Answer("long"), MissingFile());
}

TEST_F(DownloadRootTest, NeverReadsOutsideTheRoot) {
  WriteFile(dir_.File("secret"), "secret");
  mkdir(dir_.File("root2").c_str(), 0700);
  WriteFile(dir_.File("root2/secret"), "secret");
  MakeFolder("sub");
  const std::string absolute = dir_.File("secret");
  const std::vector<std::string> attempts{
      "../secret",
      "./../secret",
      ".//../secret",
      "sub/../../secret",
      "sub/../../root2/secret",
      "../root2/secret",
      "../root/../secret",
      "/../secret",
      "//..//secret",
      "sub/../../../../../../../../etc/passwd",
      absolute,
      "/etc/passwd",
      "//etc/passwd",
      "secret$^..",
      "secret$^../",
      "../secret$^sub/..",
      "../../secret$^sub",
      "secret$^sub/../..",
      "secret$^/..",
      "secret$^" + dir_.Path(),
      "..\\secret",
      "sub\\..\\..\\secret",
      "%2e%2e/secret",
      "%2e%2e%2fsecret",
      "..%2fsecret",
      "..%00/secret",
      "..\xC0\xAFsecret",
      "\xC0\xAE\xC0\xAE/secret",
      ".\x01./secret",
      std::string("..\0/secret", 10),
      "../secret\t",
      "~/secret",
      "file:///etc/passwd",
  };
  for (const std::string& attempt : attempts)
    EXPECT_EQ(Answer(attempt), MissingFile()) << attempt;
}

TEST_F(DownloadRootTest, AnswersWithAFileInsideWhereDotsStayInside) {
  MakeFolder("sub");
  MakeFolder("sub/inner");
  Put("a.bin", "at the root");
  Put("sub/b.bin", "in sub");
  EXPECT_EQ(Answer("sub/../a.bin"), DownloadStream("at the root"));
  EXPECT_EQ(Answer("/sub/inner/.././b.bin"), DownloadStream("in sub"));
  EXPECT_EQ(Answer("../b.bin$^sub/inner"), DownloadStream("in sub"));
  EXPECT_EQ(Answer("none/../a.bin"), MissingFile());
}

TEST_F(DownloadRootTest, LeavesTheRootNeitherThroughALinkNorBehindOneKept) {
  mkdir(dir_.File("outside").c_str(), 0700);
  mkdir(dir_.File("outside/deep").c_str(), 0700);
  WriteFile(dir_.File("outside/secret"), "secret");
  WriteFile(dir_.File("secret"), "secret");
  ASSERT_EQ(symlink(dir_.File("outside/deep").c_str(), (Root() + "/absolute").c_str()), 0);
  ASSERT_EQ(symlink("../outside/deep", (Root() + "/relative").c_str()), 0);
  MakeFolder("sub");
  ASSERT_EQ(symlink("../../secret", (Root() + "/sub/up").c_str()), 0);
  for (const char* text : {"absolute/../secret", "relative/../secret", "secret$^absolute/..",
                           "sub/../sub/up", "absolute/../../secret"}) {
    EXPECT_EQ(Answer(text), MissingFile()) << text;
  }
}

TEST_F(DownloadRootTest, FollowsTheOperatorsLinksOnPlainPathsKept) {
  mkdir(dir_.File("outside").c_str(), 0700);
  WriteFile(dir_.File("outside/shared"), "shared");
  ASSERT_EQ(symlink(dir_.File("outside").c_str(), (Root() + "/link").c_str()), 0);
  EXPECT_EQ(Answer("link/shared"), DownloadStream("shared"));
  EXPECT_EQ(Answer("shared$^link"), DownloadStream("shared"));
}

TEST_F(DownloadRootTest, FindsNothingBeforeARootIsSet) {
  CDownloadServer server;
  auto* tcp = new FakeTcpServer;
  ITcpServer::Delete(server.m_pTcpServer);
  server.m_pTcpServer = tcp;
  char ip[] = "127.0.0.1";
  server.OnConnect(3, 7, ip);
  _DownRequest request;
  request.cid = 7;
  for (const char* text : {"etc/passwd", "/etc/passwd", "etc/../etc/passwd"}) {
    snprintf(request.file, sizeof request.file, "%s", text);
    server.SendFile(&request);
  }
  EXPECT_THAT(tcp->sent, testing::Each(std::pair(7, MissingFile())));
  EXPECT_EQ(tcp->sent.size(), 3u);
}

TEST_F(DownloadRootTest, ServesTheRootOfTheFileSystemWhenTold) {
  Put("a.bin", "content");
  ASSERT_TRUE(server_.SetPath("/"));
  EXPECT_EQ(Answer(Root() + "/a.bin"), DownloadStream("content"));
  EXPECT_EQ(Answer(Root().substr(1) + "/../root/a.bin"), DownloadStream("content"));
  EXPECT_EQ(Answer("../" + Root() + "/a.bin"), MissingFile());
}

TEST_F(DownloadRootTest, DoesNotTakeABackslashForTheRootOfTheFileSystem) {
  Put("a.bin", "content");
  const int status = RunInChild([this] {
    if (chdir(dir_.Path().c_str()) != 0) return 1;
    if (!server_.SetPath("\\")) return 2;
    return Answer(Root() + "/a.bin") == MissingFile() ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(DownloadRootTest, CreatesOneLevelOfTheRoot) {
  EXPECT_TRUE(server_.SetPath(dir_.File("new").c_str()));
  EXPECT_TRUE(Exists(dir_.File("new")));
  EXPECT_FALSE(server_.SetPath(dir_.File("a/b").c_str()));
  EXPECT_FALSE(Exists(dir_.File("a")));
  EXPECT_FALSE(server_.SetPath(nullptr));
  EXPECT_FALSE(server_.SetPath(""));
  EXPECT_STREQ(server_.m_root.GetData(), dir_.File("new").c_str());
}

TEST_F(DownloadRootTest, StripsSlashesAndThenBackslashesOffTheRootKept) {
  ASSERT_TRUE(server_.SetPath((Root() + "///").c_str()));
  EXPECT_STREQ(server_.m_root.GetData(), Root().c_str());
  ASSERT_TRUE(server_.SetPath((Root() + "\\\\//").c_str()));
  EXPECT_STREQ(server_.m_root.GetData(), Root().c_str());
}

TEST_F(DownloadRootTest, ServesFromARootWhoseLongPathWasStripped) {
  const std::string root = Root() + "/" + std::string(100, 'r');
  ASSERT_TRUE(server_.SetPath((root + "////").c_str()));
  WriteFile(root + "/a", "content");
  EXPECT_EQ(Answer("a"), DownloadStream("content"));
}

}  // namespace
