// Folders and paths, with the platform's answers replaced where they cannot be had otherwise.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Capture.h"
#include "tests/support/Support.h"

namespace {

std::string fakeLink;  // what the link of the executable holds; empty: the real one
bool linkFails = false;
std::function<void(const char*)> beforeMkdir;  // what somebody else does just before

ssize_t FakeReadlink(const char* path, char* buffer, size_t size) {
  EXPECT_STREQ(path, "/proc/self/exe");
  EXPECT_EQ(size, 256U);
  if (linkFails) {
    memset(buffer, 'j', size);  // a failed call may leave anything
    errno = EACCES;
    return -1;
  }
  if (fakeLink.empty()) return readlink(path, buffer, size);
  return static_cast<ssize_t>(fakeLink.copy(buffer, size));
}

int FakeMkdir(const char* path, mode_t mode) {
  if (beforeMkdir) beforeMkdir(path);
  return mkdir(path, mode);
}

}  // namespace

// This program's copy of the class asks the functions above.
#define readlink FakeReadlink
#define mkdir FakeMkdir
#include "utility/Directory.cpp"
#undef readlink
#undef mkdir

namespace {

using Tarn::Generic::CDirectory;
using Tarn::Generic::CStringEx;
using tarn_test::Exists;
using tarn_test::ListDir;
using tarn_test::StdoutCapture;
using tarn_test::TempDir;
using tarn_test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kNotExist[] = "your input directory is not exist!\n";

std::string CurrentPathWithLink(const std::string& link) {
  fakeLink = link;
  CDirectory directory;
  std::string path = directory.GetCurrentPath();
  fakeLink.clear();
  return path;
}

std::string Name(const char* path) {
  return CDirectory().GetPathName(path).c_str();
}
std::string Folder(const char* path) {
  return CDirectory().GetPathDir(path).c_str();
}

// Works in a folder of its own, since RemoveDir's names can be relative.
class Directory : public testing::Test {
 protected:
  Directory() : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(temp_.Path());
  }
  ~Directory() override {
    beforeMkdir = nullptr;
    std::filesystem::current_path(before_);
  }
  std::string RemovalText(const char* path, bool expected) {
    StdoutCapture capture;
    EXPECT_EQ(directory_.RemoveDir(path), expected);
    return capture.Text();
  }

  TempDir temp_;
  CDirectory directory_;

 private:
  std::filesystem::path before_;
};

// Layout and slots

void* Slot(const void* object, size_t i) {
  void** table = nullptr;
  memcpy(&table, object, sizeof(table));
  return table[i];
}

// The slots in which a derived class differs.
template <typename Derived>
std::vector<size_t> ChangedSlots() {
  const CDirectory base;
  const Derived derived;
  std::vector<size_t> changed;
  for (size_t i = 0; i < 6; ++i) {
    if (Slot(&base, i) != Slot(&derived, i)) changed.push_back(i);
  }
  return changed;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
struct WithCurrentPath : CDirectory {
  char* GetCurrentPath() override { return nullptr; }
};
struct WithIsExist : CDirectory {
  bool IsExist(const char* /*path*/) override { return true; }
};
struct WithCreateDir : CDirectory {
  bool CreateDir(const char* /*path*/) override { return false; }
};
struct WithRemoveDir : CDirectory {
  bool RemoveDir(const char* path) override {
    seen.emplace_back(path);
    return CDirectory::RemoveDir(path);
  }
  std::vector<std::string> seen;
};
struct WithPathName : CDirectory {
  CStringEx GetPathName(const char* /*path*/) override { return {}; }
};
struct WithPathDir : CDirectory {
  CStringEx GetPathDir(const char* /*path*/) override { return {}; }
};
#pragma GCC diagnostic pop

TEST_F(Directory, KeepsLayoutAndSlotOrder) {
  static_assert(sizeof(CDirectory) == sizeof(void*) + 256);
  static_assert(!std::has_virtual_destructor<CDirectory>::value);
  EXPECT_THAT(ChangedSlots<WithCurrentPath>(), ElementsAre(0));
  EXPECT_THAT(ChangedSlots<WithIsExist>(), ElementsAre(1));
  EXPECT_THAT(ChangedSlots<WithCreateDir>(), ElementsAre(2));
  EXPECT_THAT(ChangedSlots<WithRemoveDir>(), ElementsAre(3));
  EXPECT_THAT(ChangedSlots<WithPathName>(), ElementsAre(4));
  EXPECT_THAT(ChangedSlots<WithPathDir>(), ElementsAre(5));
}

TEST_F(Directory, StartsWithAnEmptyBuffer) {
  const auto* bytes = reinterpret_cast<const char*>(&directory_);
  EXPECT_EQ(std::string(bytes + 8, 256), std::string(256, '\0'));
}

// The executable's folder

// Run again by FollowsTheProgramToWhereverItLies, from other places.
TEST_F(Directory, FindsTheFolderOfThisProgram) {
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  const bool isShort = program.native().size() < 256;
  EXPECT_EQ(directory_.GetCurrentPath(), isShort ? program.parent_path().native() : "");
}

TEST_F(Directory, ReturnsTheSameBufferOfItsOwn) {
  char* path = directory_.GetCurrentPath();
  EXPECT_EQ(path, reinterpret_cast<char*>(&directory_) + 8);
  memset(path, 'x', 256);
  EXPECT_EQ(directory_.GetCurrentPath(), path);
  EXPECT_EQ(path, tarn_test::ProgramDir());
  const std::string rest(path + strlen(path) + 1, path + 256);
  EXPECT_EQ(rest.find('x'), std::string::npos);
}

TEST_F(Directory, AnExecutableInTheRootFolderKeepsItsNameKept) {
  EXPECT_EQ(CurrentPathWithLink("/app"), "/app");
  EXPECT_EQ(CurrentPathWithLink("/opt/app"), "/opt");
  EXPECT_EQ(CurrentPathWithLink("/opt/tarn/app"), "/opt/tarn");
}

TEST_F(Directory, ALinkWithoutSeparatorStaysWhole) {
  EXPECT_EQ(CurrentPathWithLink("app"), "app");
}

TEST_F(Directory, ADeletedExecutableStillHasItsFolder) {
  EXPECT_EQ(CurrentPathWithLink("/opt/app (deleted)"), "/opt");
}

TEST_F(Directory, TooLongAPathGivesTheEmptyTextKept) {
  const std::string folder = "/" + std::string(249, 'f');
  EXPECT_EQ(CurrentPathWithLink(folder + "/1234"), folder);  // 255 characters
  EXPECT_EQ(CurrentPathWithLink(folder + "/12345"), "");
  EXPECT_EQ(CurrentPathWithLink(folder + "/123456"), "");
}

TEST_F(Directory, AnUnreadableLinkGivesTheEmptyText) {
  linkFails = true;
  char* path = directory_.GetCurrentPath();
  linkFails = false;
  EXPECT_EQ(std::string(path, 256), std::string(256, '\0'));
}

TEST_F(Directory, FollowsTheProgramToWhereverItLies) {
  const std::string deep = "/" + std::string(120, 'a') + "/" + std::string(120, 'b');
  for (const std::string& below : {std::string(), deep}) {
    const std::string folder = temp_.Path() + below;
    std::filesystem::create_directories(folder);
    const std::string copy = folder + "/copy";
    std::filesystem::copy_file("/proc/self/exe", copy);
    const std::string output =
        tarn_test::RunCommand(copy + " --gtest_filter=Directory.FindsTheFolderOfThisProgram");
    EXPECT_THAT(output, testing::HasSubstr("[  PASSED  ] 1 test."));
  }
}

// Existence

TEST_F(Directory, KnowsWhatExists) {
  WriteFile("file", "");
  std::filesystem::create_directory("folder");
  std::filesystem::create_symlink("nowhere", "dangling");
  EXPECT_TRUE(directory_.IsExist("file"));
  EXPECT_TRUE(directory_.IsExist("folder"));
  EXPECT_FALSE(directory_.IsExist("missing"));
  EXPECT_FALSE(directory_.IsExist("dangling"));
  EXPECT_FALSE(directory_.IsExist(""));
  EXPECT_FALSE(directory_.IsExist(nullptr));
}

// Making

TEST_F(Directory, MakesAFolderForTheOwnerOnlyKept) {
  EXPECT_TRUE(directory_.CreateDir("made"));
  struct stat info {};
  ASSERT_EQ(stat("made", &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_EQ(info.st_mode & 07777U, 0700U);
}

TEST_F(Directory, WhatExistsNeedsNotBeMadeKept) {
  WriteFile("file", "content");
  EXPECT_TRUE(directory_.CreateDir("file"));
  EXPECT_EQ(tarn_test::ReadFile("file"), "content");
  EXPECT_TRUE(directory_.CreateDir("."));
}

TEST_F(Directory, MakesOneLevelOnlyKept) {
  EXPECT_FALSE(directory_.CreateDir("a/b"));
  EXPECT_THAT(ListDir("."), IsEmpty());
  EXPECT_TRUE(directory_.CreateDir("a"));
  EXPECT_TRUE(directory_.CreateDir("a/b"));
}

TEST_F(Directory, RefusesANullOrEmptyPathAndADanglingLink) {
  EXPECT_FALSE(directory_.CreateDir(nullptr));
  EXPECT_FALSE(directory_.CreateDir(""));
  std::filesystem::create_symlink("nowhere", "dangling");
  EXPECT_FALSE(directory_.CreateDir("dangling"));
}

TEST_F(Directory, AFolderThatSomebodyElseMakesMeanwhileIsSuccess) {
  beforeMkdir = [](const char* path) { std::filesystem::create_directory(path); };
  EXPECT_TRUE(directory_.CreateDir("raced"));
  EXPECT_TRUE(Exists("raced"));
}

TEST_F(Directory, AsksItsOwnSlotWhetherAFolderExists) {
  WithIsExist derived;
  EXPECT_TRUE(derived.CreateDir("a/b"));
  EXPECT_THAT(ListDir("."), IsEmpty());
}

// Removing

TEST_F(Directory, AMissingFolderIsReportedKept) {
  EXPECT_EQ(RemovalText("missing", false), kNotExist);
  EXPECT_EQ(RemovalText("", false), kNotExist);
  EXPECT_EQ(RemovalText(nullptr, false), kNotExist);
  WriteFile("file", "");
  EXPECT_EQ(RemovalText("file", false), kNotExist);
  EXPECT_TRUE(Exists("file"));
}

TEST_F(Directory, RemovesAnEmptyFolder) {
  std::filesystem::create_directory("folder");
  EXPECT_EQ(RemovalText("folder", true), "");
  EXPECT_FALSE(Exists("folder"));
}

TEST_F(Directory, EntriesAreNotReachedThroughABackslashKept) {
  std::filesystem::create_directories("folder/inner");
  WriteFile("folder/file", "");
  EXPECT_EQ(RemovalText("folder", true), "");
  EXPECT_THAT(ListDir("folder"), ElementsAre("file", "inner"));
}

TEST_F(Directory, RemovesWhatTheBackslashNamesKept) {
  std::filesystem::create_directory("folder");
  for (const char* name : {"file", "inner", "other"})
    WriteFile(std::string("folder/") + name, "");
  WriteFile("folder\\file", "");
  std::filesystem::create_directories("folder\\inner");
  WriteFile("folder\\inner/leaf", "");
  WriteFile("folder\\inner\\leaf", "");
  EXPECT_EQ(RemovalText("folder", true), "");
  EXPECT_FALSE(Exists("folder\\file"));
  EXPECT_FALSE(Exists("folder\\inner\\leaf"));
  EXPECT_THAT(ListDir("folder\\inner"), ElementsAre("leaf"));
  EXPECT_THAT(ListDir("folder"), ElementsAre("file", "inner", "other"));
}

TEST_F(Directory, GoesDownThroughItsOwnSlot) {
  std::filesystem::create_directory("folder");
  WriteFile("folder/inner", "");
  std::filesystem::create_directory("folder\\inner");
  WithRemoveDir derived;
  EXPECT_TRUE(derived.RemoveDir("folder"));
  EXPECT_THAT(derived.seen, ElementsAre("folder", "folder\\inner"));
  EXPECT_FALSE(Exists("folder\\inner"));
}

TEST_F(Directory, ChildPathsAreNeverCut) {
  const std::string folder(200, 'd');
  std::filesystem::create_directory(folder);
  const std::string longPath = temp_.Path() + "/" + folder;
  const std::string name(54, 'n');
  WriteFile(longPath + "/" + name, "");
  WriteFile(longPath + "\\" + name, "");
  // What a path of 255 characters would name instead.
  const std::string cut = (longPath + "\\" + name).substr(0, 255);
  WriteFile(cut, "precious");
  directory_.RemoveDir(longPath.c_str());
  EXPECT_FALSE(Exists(longPath + "\\" + name));
  EXPECT_EQ(tarn_test::ReadFile(cut), "precious");
}

TEST_F(Directory, ClosesWhatItOpened) {
  std::filesystem::create_directory("folder");
  for (int i = 0; i < 20; ++i) {
    WriteFile("folder/" + std::to_string(i), "");
    std::filesystem::create_directory("folder\\" + std::to_string(i));
  }
  const int before = tarn_test::OpenDescriptors();
  EXPECT_TRUE(directory_.RemoveDir("folder"));
  StdoutCapture capture;
  EXPECT_FALSE(directory_.RemoveDir("missing"));
  EXPECT_LE(tarn_test::OpenDescriptors(), before + 2);  // those of the capture
  EXPECT_THAT(ListDir("."), ElementsAre("folder"));
}

// Cutting paths

TEST_F(Directory, CutsAtTheLastSlash) {
  EXPECT_EQ(Name("/a/b/c.txt"), "c.txt");
  EXPECT_EQ(Folder("/a/b/c.txt"), "/a/b");
  EXPECT_EQ(Name("/a/b/"), "");
  EXPECT_EQ(Folder("/a/b/"), "/a/b");
  EXPECT_EQ(Name("/app"), "app");
  EXPECT_EQ(Folder("/app"), "");
}

TEST_F(Directory, CutsAtABackslashOnlyWithoutASlashKept) {
  EXPECT_EQ(Name("C:\\dir\\f.bin"), "f.bin");
  EXPECT_EQ(Folder("C:\\dir\\f.bin"), "C:\\dir");
  EXPECT_EQ(Name("a/b\\c"), "b\\c");
  EXPECT_EQ(Folder("a/b\\c"), "a");
}

TEST_F(Directory, APathWithoutSeparatorHasNeitherPartKept) {
  EXPECT_EQ(Name("name.txt"), "");
  EXPECT_EQ(Folder("name.txt"), "");
  EXPECT_EQ(Name(""), "");
  EXPECT_EQ(Folder(""), "");
  EXPECT_EQ(Name(nullptr), "");
  EXPECT_EQ(Folder(nullptr), "");
}

TEST_F(Directory, CutsLongPaths) {
  const std::string folder = "/" + std::string(3000, 'f');
  const std::string name(500, 'n');
  EXPECT_EQ(Name((folder + "/" + name).c_str()), name);
  EXPECT_EQ(Folder((folder + "/" + name).c_str()), folder);
}

}  // namespace
