#include "utility/os/File.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <thread>

#include "tests/support/Support.h"

using namespace Tarn::Os;
using namespace tarn_test;

namespace {

int Replace(const std::string& path, const std::string& content) {
  EditedFile file;
  const int opened = file.Open(path.c_str(), false);
  return opened != 0 ? opened : file.Replace(content);
}

struct stat StatusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status;
}

}  // namespace

TEST(File, ReadsFilesOfEverySize) {
  const TempDir dir;
  for (const size_t size : {0U, 1U, 4095U, 4096U, 4097U, 100000U}) {
    const std::string bytes = PatternBytes(size);
    WriteFile(dir.File("f"), bytes);
    std::string content = "old";
    EXPECT_EQ(ReadWholeFile(dir.File("f").c_str(), content), 0);
    EXPECT_EQ(content, bytes);
  }
}

TEST(File, ReadsFilesThatDoNotTellTheirSize) {
  std::string content;
  EXPECT_EQ(ReadWholeFile("/proc/self/status", content), 0);
  EXPECT_NE(content.find("VmPeak"), std::string::npos);
}

TEST(File, ReadsAPipeToItsEnd) {
  const TempDir dir;
  const std::string bytes = PatternBytes(200000);
  ASSERT_EQ(mkfifo(dir.File("pipe").c_str(), 0600), 0);
  std::thread writer([&] { WriteFile(dir.File("pipe"), bytes); });
  std::string content;
  EXPECT_EQ(ReadWholeFile(dir.File("pipe").c_str(), content), 0);
  writer.join();
  EXPECT_EQ(content, bytes);
}

TEST(File, GivesUpOnADeviceWithoutEnd) {
  std::string content;
  EXPECT_EQ(ReadWholeFile("/dev/zero", content), -EFBIG);
}

TEST(File, ReportsWhatCannotBeRead) {
  const TempDir dir;
  std::string content;
  EXPECT_EQ(ReadWholeFile(dir.File("none").c_str(), content), -ENOENT);
  EXPECT_EQ(ReadWholeFile(dir.Path().c_str(), content), -EISDIR);
}

TEST(File, OpensAboveTheStandardStreamsAndNotForChildren) {
  EXPECT_EQ(RunInChild([] {
              close(0);
              close(2);
              const int fd = OpenFile("/dev/null", O_RDONLY);
              const bool lowFree = fcntl(0, F_GETFD) == -1 && fcntl(2, F_GETFD) == -1;
              return fd > 2 && lowFree && (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0 ? 0 : 1;
            }),
            0);
}

TEST(File, ReplacesTheContentOfTheSameInode) {
  const TempDir dir;
  const std::string path = dir.File("f");
  for (const size_t before : {0U, 10U, 5000U}) {
    for (const size_t after : {0U, 10U, 20U, 9000U}) {
      WriteFile(path, PatternBytes(before));
      ASSERT_EQ(chmod(path.c_str(), 0640), 0);
      const struct stat old = StatusOf(path);
      EXPECT_EQ(Replace(path, PatternBytes(after, 3)), 0);
      EXPECT_EQ(ReadFile(path), PatternBytes(after, 3));
      EXPECT_EQ(StatusOf(path).st_ino, old.st_ino);
      EXPECT_EQ(StatusOf(path).st_mode, old.st_mode);
    }
  }
}

TEST(File, LinksStayLinks) {
  const TempDir dir;
  WriteFile(dir.File("f"), "old");
  ASSERT_EQ(link(dir.File("f").c_str(), dir.File("hard").c_str()), 0);
  ASSERT_EQ(symlink("f", dir.File("soft").c_str()), 0);
  EXPECT_EQ(Replace(dir.File("soft"), "the new text"), 0);
  EXPECT_EQ(ReadFile(dir.File("hard")), "the new text");
  struct stat status {};
  ASSERT_EQ(lstat(dir.File("soft").c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST(File, CreatesAMissingFileOnlyWhenAsked) {
  const TempDir dir;
  const std::string path = dir.File("new");
  EditedFile file;
  EXPECT_EQ(file.Open(path.c_str(), false), -ENOENT);
  EXPECT_FALSE(Exists(path));
  ASSERT_EQ(file.Open(path.c_str(), true), 0);
  EXPECT_EQ(file.Content(), "");
  EXPECT_EQ(file.Replace("text"), 0);
  EXPECT_EQ(ReadFile(path), "text");
}

TEST(File, CreatesWhatADanglingLinkNames) {
  const TempDir dir;
  ASSERT_EQ(symlink("target", dir.File("link").c_str()), 0);
  EditedFile file;
  ASSERT_EQ(file.Open(dir.File("link").c_str(), true), 0);
  EXPECT_EQ(file.Replace("text"), 0);
  EXPECT_EQ(ReadFile(dir.File("target")), "text");
}

TEST(File, EditsAnExistingFileAlsoWhenCreationIsAllowed) {
  const TempDir dir;
  WriteFile(dir.File("f"), "content");
  EditedFile file;
  ASSERT_EQ(file.Open(dir.File("f").c_str(), true), 0);
  EXPECT_EQ(file.Content(), "content");
}

TEST(File, EditsRegularFilesOnly) {
  const TempDir dir;
  ASSERT_EQ(mkfifo(dir.File("pipe").c_str(), 0600), 0);
  EditedFile file;
  EXPECT_EQ(file.Open(dir.File("pipe").c_str(), true), -EINVAL);
  EXPECT_EQ(file.Open("/dev/null", true), -EINVAL);
  EXPECT_EQ(file.Open(dir.Path().c_str(), true), -EISDIR);
}

TEST(File, NoRoomLeavesTheOldContent) {
  const TempDir dir;
  const std::string old = PatternBytes(8000);
  WriteFile(dir.File("f"), old);
  EXPECT_EQ(RunInChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit limit{10000, 10000};
              if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
              return Replace(dir.File("f"), PatternBytes(20000, 2)) == -EFBIG ? 0 : 1;
            }),
            0);
  EXPECT_EQ(ReadFile(dir.File("f")), old);
}

TEST(File, NoRoomForANewFileLeavesItEmpty) {
  const TempDir dir;
  EXPECT_EQ(RunInChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit limit{100, 100};
              if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
              EditedFile file;
              if (file.Open(dir.File("f").c_str(), true) != 0) return 3;
              return file.Replace(PatternBytes(200)) == -EFBIG ? 0 : 1;
            }),
            0);
  EXPECT_EQ(ReadFile(dir.File("f")), "");
}

TEST(File, FailedWriteLeavesTheOldContent) {
  const TempDir dir;
  const std::string old = PatternBytes(8000);
  WriteFile(dir.File("f"), old);
  // The size stays the same, so it is the write that meets the limit, after its first part.
  EXPECT_EQ(RunInChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              EditedFile file;
              if (file.Open(dir.File("f").c_str(), false) != 0) return 3;
              const rlimit limit{4096, 8000};
              if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
              const int error = file.Replace(PatternBytes(8000, 2));
              return error == -EFBIG ? 0 : 1;
            }),
            0);
  EXPECT_EQ(ReadFile(dir.File("f")), old);
}
