#include "utility/os/StreamFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Support.h"

namespace {

using namespace tarn_test;
using Tarn::Os::CreateNewFile;
using Tarn::Os::FileLength;
using Tarn::Os::FilePtr;
using Tarn::Os::OpenRegularFile;
using Tarn::Os::OpenRegularFileBeneath;
using Tarn::Os::ReadAt;
using Tarn::Os::RewriteRegularFile;

TEST(StreamFile, ReadsARegularFileAtAnyOffset) {
  const TempDir dir;
  const std::string content = PatternBytes(10000);
  WriteFile(dir.File("a"), content);
  const FilePtr file = OpenRegularFile(dir.File("a").c_str());
  ASSERT_TRUE(file);
  EXPECT_EQ(FileLength(file.get()), 10000);
  std::string part(500, '\0');
  EXPECT_EQ(ReadAt(file.get(), 7000, part.data(), part.size()), 500u);
  EXPECT_EQ(part, content.substr(7000, 500));
  EXPECT_EQ(ReadAt(file.get(), 9900, part.data(), part.size()), 100u);
  EXPECT_EQ(part.substr(0, 100), content.substr(9900));
  EXPECT_EQ(ReadAt(file.get(), 10000, part.data(), part.size()), 0u);
}

TEST(StreamFile, ReadsTheFileAsItIsNow) {
  const TempDir dir;
  WriteFile(dir.File("a"), "before");
  const FilePtr file = OpenRegularFile(dir.File("a").c_str());
  ASSERT_TRUE(file);
  char text[8] = "";
  EXPECT_EQ(ReadAt(file.get(), 0, text, 6), 6u);
  WriteFile(dir.File("a"), "now");
  EXPECT_EQ(ReadAt(file.get(), 0, text, 6), 3u);
  EXPECT_STREQ(text, "nowore");
}

TEST(StreamFile, FollowsALinkToARegularFileForReading) {
  const TempDir dir;
  WriteFile(dir.File("a"), "text");
  ASSERT_EQ(symlink(dir.File("a").c_str(), dir.File("link").c_str()), 0);
  EXPECT_TRUE(OpenRegularFile(dir.File("link").c_str()));
}

TEST(StreamFile, RefusesAFolder) {
  const TempDir dir;
  EXPECT_FALSE(OpenRegularFile(dir.Path().c_str()));
  EXPECT_EQ(errno, EISDIR);
}

TEST(StreamFile, RefusesAFifoWithoutWaitingForAWriter) {
  const TempDir dir;
  ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(OpenRegularFile(dir.File("fifo").c_str()));
  EXPECT_EQ(errno, EINVAL);
}

TEST(StreamFile, RefusesAMissingFile) {
  const TempDir dir;
  EXPECT_FALSE(OpenRegularFile(dir.File("none").c_str()));
  EXPECT_EQ(errno, ENOENT);
}

TEST(StreamFile, OpensBeneathAFolderWhateverStaysInThere) {
  const TempDir dir;
  ASSERT_EQ(mkdir(dir.File("root").c_str(), 0700), 0);
  ASSERT_EQ(mkdir(dir.File("root/sub").c_str(), 0700), 0);
  WriteFile(dir.File("root/a"), "text");
  ASSERT_EQ(symlink("../a", dir.File("root/sub/link").c_str()), 0);
  for (const char* path : {"a", "./a", "sub/../a", "sub/link"}) {
    const FilePtr file = OpenRegularFileBeneath(dir.File("root").c_str(), path);
    ASSERT_TRUE(file) << path;
    EXPECT_EQ(FileLength(file.get()), 4);
    EXPECT_NE(fcntl(fileno(file.get()), F_GETFD) & FD_CLOEXEC, 0);
  }
}

TEST(StreamFile, OpensNothingOnAWayThatLeavesTheFolder) {
  const TempDir dir;
  ASSERT_EQ(mkdir(dir.File("root").c_str(), 0700), 0);
  ASSERT_EQ(mkdir(dir.File("root/sub").c_str(), 0700), 0);
  WriteFile(dir.File("root/a"), "text");
  WriteFile(dir.File("secret"), "secret");
  ASSERT_EQ(symlink("../secret", dir.File("root/out").c_str()), 0);
  ASSERT_EQ(symlink(dir.File("root/a").c_str(), dir.File("root/absolute").c_str()), 0);
  const std::string root = dir.File("root");
  for (const std::string& path :
       {std::string("../secret"), std::string("sub/../../secret"), std::string("../root/a"),
        std::string("out"), std::string("absolute"), dir.File("root/a")}) {
    EXPECT_FALSE(OpenRegularFileBeneath(root.c_str(), path.c_str())) << path;
    EXPECT_EQ(errno, EXDEV) << path;
  }
}

TEST(StreamFile, OpensOnlyRegularFilesBeneathAFolder) {
  const TempDir dir;
  ASSERT_EQ(mkdir(dir.File("sub").c_str(), 0700), 0);
  ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0600), 0);
  WriteFile(dir.File("a"), "text");
  const std::pair<const char*, int> refused[] = {
      {"sub", EISDIR}, {".", EISDIR}, {"fifo", EINVAL}, {"none", ENOENT}, {"a/x", ENOTDIR}};
  for (const auto& [path, error] : refused) {
    EXPECT_FALSE(OpenRegularFileBeneath(dir.Path().c_str(), path)) << path;
    EXPECT_EQ(errno, error) << path;
  }
  EXPECT_FALSE(OpenRegularFileBeneath(dir.File("none").c_str(), "a"));
  EXPECT_FALSE(OpenRegularFileBeneath(dir.File("a").c_str(), "a"));
}

TEST(StreamFile, RewritesAFileFromItsBeginning) {
  const TempDir dir;
  WriteFile(dir.File("old"), "something longer");
  ASSERT_EQ(symlink("target", dir.File("link").c_str()), 0);
  for (const char* name : {"new", "old", "link"}) {
    const FilePtr file = RewriteRegularFile(dir.File(name).c_str());
    ASSERT_TRUE(file) << name;
    EXPECT_EQ(FileLength(file.get()), 0);
    EXPECT_EQ(fputs("content", file.get()), 1);
    EXPECT_EQ(fflush(file.get()), 0);
    EXPECT_EQ(ReadFile(dir.File(name)), "content");
    char text[8] = "";
    EXPECT_EQ(ReadAt(file.get(), 3, text, 4), 4u);
    EXPECT_STREQ(text, "tent");
  }
  EXPECT_EQ(ReadFile(dir.File("target")), "content");
}

TEST(StreamFile, RewritesNothingButRegularFiles) {
  const TempDir dir;
  ASSERT_EQ(mkfifo(dir.File("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(RewriteRegularFile(dir.File("fifo").c_str()));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(RewriteRegularFile(dir.Path().c_str()));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_FALSE(RewriteRegularFile("/dev/null"));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_FALSE(RewriteRegularFile(dir.File("no/such").c_str()));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(ListDir(dir.Path()), std::vector<std::string>{"fifo"});
}

TEST(StreamFile, CreatesAFileForWritingAndReading) {
  const TempDir dir;
  const FilePtr file = CreateNewFile(dir.File("new").c_str());
  ASSERT_TRUE(file);
  EXPECT_EQ(fputs("content", file.get()), 1);
  EXPECT_EQ(fflush(file.get()), 0);
  EXPECT_EQ(ReadFile(dir.File("new")), "content");
  char text[8] = "";
  EXPECT_EQ(ReadAt(file.get(), 3, text, 4), 4u);
  EXPECT_STREQ(text, "tent");
}

TEST(StreamFile, DoesNotTouchAFileThatExists) {
  const TempDir dir;
  WriteFile(dir.File("old"), "content");
  EXPECT_FALSE(CreateNewFile(dir.File("old").c_str()));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(ReadFile(dir.File("old")), "content");
}

TEST(StreamFile, DoesNotCreateThroughALink) {
  const TempDir dir;
  ASSERT_EQ(symlink(dir.File("elsewhere").c_str(), dir.File("link").c_str()), 0);
  EXPECT_FALSE(CreateNewFile(dir.File("link").c_str()));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_FALSE(Exists(dir.File("elsewhere")));
}

TEST(StreamFile, NeverUsesTheNumbersOfTheStandardStreams) {
  const TempDir dir;
  WriteFile(dir.File("a"), "text");
  const int status = RunInChild([&dir] {
    close(STDIN_FILENO);
    const FilePtr in = OpenRegularFile(dir.File("a").c_str());
    const FilePtr out = CreateNewFile(dir.File("b").c_str());
    const bool above = in && out && fileno(in.get()) > 2 && fileno(out.get()) > 2;
    const bool closed = fcntl(STDIN_FILENO, F_GETFD) == -1;
    return above && closed ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(StreamFile, IsNotInheritedByChildren) {
  const TempDir dir;
  const FilePtr file = CreateNewFile(dir.File("new").c_str());
  ASSERT_TRUE(file);
  EXPECT_NE(fcntl(fileno(file.get()), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(StreamFile, LeavesNothingBehindWhenDescriptorsRunOut) {
  const TempDir dir;
  const int status = RunInChild([&dir] {
    const rlimit none{3, 3};
    if (setrlimit(RLIMIT_NOFILE, &none) != 0) return 2;
    return CreateNewFile(dir.File("new").c_str()) == nullptr && errno == EMFILE ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(Exists(dir.File("new")));
}

}  // namespace
