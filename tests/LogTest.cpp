// Synchronous file log and the printers of diagnostics.
#include "utility/Log.h"

#include <Tarn/Generic/Directory.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Capture.h"
#include "tests/support/ProgramCopy.h"
#include "tests/support/Support.h"

namespace {

using namespace tarn_test;
using Tarn::Generic::CLog;
using Tarn::Generic::ILog;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr size_t kLimit = 2097151;

static_assert(sizeof(_LogerInfo) == 1048);
static_assert(offsetof(_LogerInfo, buffer) == 1024);
static_assert(offsetof(_LogerInfo, maxLen) == 1032);
static_assert(offsetof(_LogerInfo, file) == 1040);

std::string TraceFile() {
  return ProgramDir() + "/../logs/" + Today("%Y%m%d.log");
}

// The line that holds `message`, its line end included; cases of one program share the file.
std::string LineWith(const std::string& text, const std::string& message) {
  const size_t at = text.find(message);
  if (at == std::string::npos) return "";
  const size_t start = text.rfind('\n', at) + 1;
  return text.substr(start, text.find('\n', at) - start + 1);
}

// The text with every digit shown as 0.
std::string ShapeOf(std::string text) {
  for (char& c : text) {
    if (c >= '1' && c <= '9') c = '0';
  }
  return text;
}

// A text that no other case and no earlier run has written.
std::string Unique(const std::string& text) {
  static std::atomic<int> count{0};
  return text + " " + std::to_string(getpid()) + "/" + std::to_string(count++) + "/" +
         std::to_string(std::chrono::system_clock::now().time_since_epoch().count());
}

/// Deletes a log at the end of a case.
struct Opened {
  Opened(const std::string& path, int maxLen, LogType type = LOG_TYPE_2)
      : log(ILog::Create(path.c_str(), type, maxLen)) {}
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;
  ~Opened() { ILog::Delete(log); }
  ILog* operator->() const { return log; }
  ILog* log;
};

TEST(Log, CreateRefusesUnknownTypesKept) {
  const TempDir dir;
  EXPECT_EQ(ILog::Create(dir.File("a").c_str(), static_cast<LogType>(3), 100), nullptr);
  EXPECT_EQ(ILog::Create(dir.File("a").c_str(), static_cast<LogType>(-1), 100), nullptr);
  EXPECT_FALSE(Exists(dir.File("a")));
}

TEST(Log, CreateFailsWithoutAFolder) {
  const TempDir dir;
  EXPECT_EQ(ILog::Create(dir.File("missing/a").c_str(), LOG_TYPE_2, 100), nullptr);
  EXPECT_EQ(ILog::Create(nullptr, LOG_TYPE_2, 100), nullptr);
}

TEST(Log, OpenTellsWhatFailed) {
  const TempDir dir;
  CLog log;
  EXPECT_EQ(log.Open(dir.File("a").c_str(), static_cast<LogType>(3), 100), -1);
  EXPECT_EQ(log.m_type, static_cast<LogType>(3));
  log.Close();
  EXPECT_EQ(log.Open(dir.File("missing/a").c_str(), LOG_TYPE_0, 100), -3);
  EXPECT_EQ(log.m_info[0].buffer, nullptr);
  EXPECT_EQ(log.Open(dir.File("a").c_str(), LOG_TYPE_0, 100), 0);
  EXPECT_EQ(log.m_info[0].path, dir.File("a"));
  EXPECT_EQ(log.m_info[0].maxLen, 100);
  EXPECT_NE(log.m_info[0].file, nullptr);
}

TEST(Log, NoMemoryIsReportedAsNoSuchFileKept) {
  const TempDir dir;
  CLog log;
  EXPECT_EQ(log.Open(dir.File("a").c_str(), LOG_TYPE_1, 0), -2);
  EXPECT_EQ(log.Open(dir.File("a").c_str(), LOG_TYPE_1, -5), -2);
  EXPECT_FALSE(Exists(dir.File("a")));
}

TEST(Log, AllThreeTypesWriteKept) {
  const TempDir dir;
  for (const LogType type : {LOG_TYPE_0, LOG_TYPE_1, LOG_TYPE_2}) {
    const Opened log(dir.File("a"), 100, type);
    log->Write("%d,", type);
  }
  EXPECT_EQ(ReadFile(dir.File("a")), "0,1,2,");
}

TEST(Log, WriteAddsNothingKept) {
  const TempDir dir;
  WriteFile(dir.File("a"), "old");
  const Opened log(dir.File("a"), 100);
  log->Write("%s-%d", "x", 5);
  EXPECT_EQ(ReadFile(dir.File("a")), "oldx-5");
  log->Write("%s", "");
  EXPECT_EQ(ReadFile(dir.File("a")), "oldx-5");
}

TEST(Log, WriteCutsToTheBufferKept) {
  const TempDir dir;
  const Opened log(dir.File("a"), 10);
  log->Write("%s", "0123456789abcdef");
  EXPECT_EQ(ReadFile(dir.File("a")), "012345678");
  const Opened one(dir.File("b"), 1);
  one->Write("%s", "x");
  EXPECT_EQ(ReadFile(dir.File("b")), "");
}

TEST(Log, WritePiecesCutsToTheBuffer) {
  const TempDir dir;
  CLog log;
  ASSERT_EQ(log.Open(dir.File("a").c_str(), LOG_TYPE_2, 10), 0);
  char text[] = "0123456789";
  iovec pieces[] = {{text, 4}, {text, 10}, {text, 10}};
  log.WritePieces(pieces, std::size(pieces));
  EXPECT_EQ(ReadFile(dir.File("a")), "012301234");
}

TEST(Log, ARemovedFileIsMadeAnew) {
  const TempDir dir;
  const Opened log(dir.File("a"), 100);
  log->Write("first");
  std::filesystem::remove(dir.File("a"));
  log->Write("second");
  EXPECT_EQ(ReadFile(dir.File("a")), "second");
  std::filesystem::rename(dir.File("a"), dir.File("b"));
  log->Write("third");
  EXPECT_EQ(ReadFile(dir.File("a")), "third");
  EXPECT_EQ(ReadFile(dir.File("b")), "second");
}

TEST(Log, AFailedReopenIsToldAndTriedAgain) {
  const TempDir dir;
  const std::string path = dir.File("sub/a");
  std::filesystem::create_directory(dir.File("sub"));
  const Opened log(path, 100);
  std::filesystem::remove_all(dir.File("sub"));
  {
    StdoutCapture capture;
    log->Write("lost");
    log->Write("lost, too");
    const std::string line =
        "open log file '" + path + "' failed, errmsg: No such file or directory.\n";
    EXPECT_EQ(capture.Text(), line + line);
  }
  // The file is there again, but the log has no stream for it.
  std::filesystem::create_directory(dir.File("sub"));
  WriteFile(path, "old ");
  log->Write("new");
  EXPECT_EQ(ReadFile(path), "old new");
}

TEST(Log, AFailedWriteIsNotRepeatedBehindTheNext) {
  const TempDir dir;
  const int status = RunInChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    ILog* log = ILog::Create(dir.File("a").c_str(), LOG_TYPE_2, 100);
    rlimit limit{0, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    log->Write("lost");
    limit.rlim_cur = RLIM_INFINITY;
    setrlimit(RLIMIT_FSIZE, &limit);
    log->Write("kept");
    ILog::Delete(log);
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ReadFile(dir.File("a")), "kept");
}

TEST(Log, KeepsTheFirst1022CharactersOfThePathKept) {
  const TempDir dir;
  std::string path = dir.Path();
  while (path.size() < 1100)
    path += "/.";
  path += "/a";
  CLog log;
  ASSERT_EQ(log.Open(path.c_str(), LOG_TYPE_2, 100), 0);
  EXPECT_EQ(log.m_info[2].path, path.substr(0, 1022));
}

TEST(Log, OpeningAgainReleasesWhatWasOpen) {
  const TempDir dir;
  CLog log;
  const int before = OpenDescriptors();
  ASSERT_EQ(log.Open(dir.File("a").c_str(), LOG_TYPE_1, 100), 0);
  ASSERT_EQ(log.Open(dir.File("b").c_str(), LOG_TYPE_1, 200), 0);
  EXPECT_EQ(OpenDescriptors(), before + 1);
  log.Close();
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST(Log, AClosedLogIsLeftAlone) {
  const TempDir dir;
  CLog log;
  log.Close();
  log.Write("nothing is open");
  ASSERT_EQ(log.Open(dir.File("a").c_str(), LOG_TYPE_2, 100), 0);
  log.Close();
  log.Close();
  EXPECT_EQ(log.m_info[2].file, nullptr);
  EXPECT_EQ(log.m_info[2].buffer, nullptr);
  log.Write("closed");
  EXPECT_EQ(ReadFile(dir.File("a")), "");
  ILog::Delete(nullptr);
}

TEST(Log, WriteTakesTheSlotBehindTheDestructors) {
  const TempDir dir;
  const Opened log(dir.File("a"), 100);
  auto* const table = *reinterpret_cast<void***>(log.log);
  reinterpret_cast<void (*)(ILog*, const char*, ...)>(table[2])(log.log, "%d", 42);
  EXPECT_EQ(ReadFile(dir.File("a")), "42");
}

TEST(Log, TraceAppendsOneStampedLineAndPrintsItKept) {
  const std::string message = Unique("a trace");
  const std::string earliest = Today("%H:%M:%S");
  std::string printed;
  {
    StdoutCapture capture;
    ILog::Trace("%s", message.c_str());
    printed = capture.Text();
  }
  EXPECT_EQ(ShapeOf(printed.substr(0, 13)), "00:00:00.000 ");
  EXPECT_EQ(printed.substr(13), message + "\r\n");
  EXPECT_GE(printed.substr(0, 8), earliest);
  EXPECT_LE(printed.substr(0, 8), Today("%H:%M:%S"));
  EXPECT_EQ(LineWith(ReadFile(TraceFile()), message), printed);
}

TEST(Log, TraceExWritesBelowTheProgramsFolderKept) {
  const std::string folder = "net" + std::to_string(getpid());
  std::filesystem::remove_all(ProgramDir() + "/" + folder);
  StdoutCapture capture;
  ILog::TraceEx(folder.c_str(), "message %d", 7);
  ILog::TraceEx(folder.c_str(), "another");
  EXPECT_EQ(ReadFile(ProgramDir() + "/" + folder + "/" + Today("%Y%m%d.log")), capture.Text());
  EXPECT_THAT(capture.Text(), HasSubstr(" message 7\r\n"));
  std::filesystem::remove_all(ProgramDir() + "/" + folder);
}

TEST(Log, TraceExWithoutAFolderNameWritesIntoTheProgramsOwn) {
  const std::string message = Unique("no folder");
  StdoutCapture capture;
  ILog::TraceEx(nullptr, "%s", message.c_str());
  EXPECT_THAT(ReadFile(ProgramDir() + "/" + Today("%Y%m%d.log")), HasSubstr(message));
  EXPECT_THAT(capture.Text(), EndsWith(message + "\r\n"));
}

TEST(Log, ANullFormatIsAnEmptyMessage) {
  StdoutCapture capture;
  const char* volatile none = nullptr;
  ILog::OutputDebugStr(none, 1);
  ILog::Trace(none, 1);
  EXPECT_EQ(ShapeOf(capture.Text()), "00:00:00.000 \n00:00:00.000 \r\n");
}

TEST(Log, OutputDebugStrPrintsOnlyKept) {
  const std::string message = Unique("printed");
  StdoutCapture capture;
  ILog::OutputDebugStr("%s", message.c_str());
  EXPECT_EQ(capture.Text().substr(13), message + "\n");
  EXPECT_THAT(ReadFile(TraceFile()), Not(HasSubstr(message)));
}

TEST(Log, LongMessagesAreCutToTwoMebibytes) {
  const std::string message(kLimit + 1000, 'm');
  StdoutCapture capture;
  ILog::OutputDebugStr("%s", message.c_str());
  EXPECT_EQ(capture.Text().size(), 13 + kLimit + 1);
  EXPECT_THAT(capture.Text().substr(kLimit), EndsWith("mm\n"));
}

// The folder beside the program's is a link to nowhere: it does not exist and cannot be made.
TEST(Log, TraceTellsThatAFolderCannotBeMadeKept) {
  if (InProgramCopy()) {
    ILog::Trace("lost %d", 1);
    ILog::TraceEx("net", "lost %d", 2);
    return;
  }
  const TempDir dir;
  std::filesystem::create_symlink("nowhere/at/all", dir.File("logs"));
  std::filesystem::create_directory(dir.File("bin"));
  std::filesystem::create_symlink("nowhere/at/all", dir.File("bin/net"));
  const std::string output = RunInProgramCopy(dir.Path());
  EXPECT_THAT(output, HasSubstr("utility/Log:90.....................create dir " +
                                dir.File("bin/../logs") + " error !\n"));
  EXPECT_THAT(output, HasSubstr("utility/Log:167.....................create dir " +
                                dir.File("bin/net") + " error ! \n"));
  EXPECT_THAT(output, Not(HasSubstr("lost")));
}

// A file stands where the folder should be: it exists, so only opening fails.
TEST(Log, TraceTellsThatAFileCannotBeOpenedKept) {
  if (InProgramCopy()) {
    ILog::Trace("lost %d", 1);
    ILog::TraceEx("net", "lost %d", 2);
    return;
  }
  const TempDir dir;
  WriteFile(dir.File("logs"), "");
  std::filesystem::create_directory(dir.File("bin"));
  WriteFile(dir.File("bin/net"), "");
  const std::string output = RunInProgramCopy(dir.Path());
  const std::string name = Today("%Y%m%d.log");
  EXPECT_THAT(output, HasSubstr("utility/Log:109.....................open file " +
                                dir.File("bin/../logs/" + name) + " error !\n"));
  EXPECT_THAT(output, HasSubstr("utility/Log:187.....................open file " +
                                dir.File("bin/net/" + name) + " error ! \n"));
  EXPECT_THAT(output, Not(HasSubstr("lost")));
}

TEST(Log, TraceExMakesOneLevelOnlyKept) {
  StdoutCapture capture;
  ILog::TraceEx("deep/er", "lost");
  EXPECT_EQ(capture.Text(), "utility/Log:167.....................create dir " + ProgramDir() +
                                "/deep/er error ! \n");
  EXPECT_FALSE(Exists(ProgramDir() + "/deep"));
}

TEST(Log, AFolderNameOfAnyLengthIsToldWhole) {
  const std::string folder(10000, 'f');
  StdoutCapture capture;
  ILog::TraceEx(folder.c_str(), "lost");
  EXPECT_EQ(capture.Text(), "utility/Log:167.....................create dir " + ProgramDir() + "/" +
                                folder + " error ! \n");
}

TEST(Log, TheFirstTracesMayRaceForTheFolder) {
  constexpr int kThreads = 8;
  if (InProgramCopy()) {
    std::atomic<int> waiting{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&waiting, i] {
        ++waiting;
        while (waiting < kThreads)
          std::this_thread::yield();
        ILog::Trace("racer %d.", i);
      });
    }
    for (auto& thread : threads)
      thread.join();
    return;
  }
  for (int round = 0; round < 5; ++round) {
    const TempDir dir;
    EXPECT_THAT(RunInProgramCopy(dir.Path()), Not(HasSubstr("error")));
    const std::string text = ReadFile(dir.File("logs/" + Today("%Y%m%d.log")));
    for (int i = 0; i < kThreads; ++i) {
      EXPECT_THAT(text, HasSubstr(" racer " + std::to_string(i) + ".\r\n"));
    }
  }
}

TEST(Log, AProgramThatIsMovedTakesItsTracesAlong) {
  if (InProgramCopy()) {
    ILog::TraceEx("net", "before.");
    const std::string folder = ProgramDir();
    std::filesystem::rename(folder, folder + "-moved");
    ILog::TraceEx("net", "behind.");
    ILog::Trace("behind.");
    return;
  }
  const TempDir dir;
  EXPECT_THAT(RunInProgramCopy(dir.Path()), Not(HasSubstr("error")));
  const std::string name = Today("%Y%m%d.log");
  const std::string text = ReadFile(dir.File("bin-moved/net/" + name));
  EXPECT_THAT(text, HasSubstr(" before.\r\n"));
  EXPECT_THAT(text, HasSubstr(" behind.\r\n"));
  EXPECT_THAT(ReadFile(dir.File("logs/" + name)), HasSubstr(" behind.\r\n"));
  EXPECT_FALSE(Exists(dir.File("bin")));
}

TEST(Log, FoldersAreMadeForTheOwnerOnlyKept) {
  if (InProgramCopy()) {
    ILog::Trace("x");
    return;
  }
  const TempDir dir;
  RunInProgramCopy(dir.Path());
  EXPECT_EQ(RunCommand("stat -c %a '" + dir.File("logs") + "'"), "700\n");
}

TEST(Log, LinesOfManyThreadsStayWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 100;
  const std::string mark = Unique("threads");
  const std::string text(3000, 'x');
  StdoutCapture capture;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kLines; ++i) {
        ILog::Trace("%s %d:%d %s", mark.c_str(), thread, i, text.c_str());
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  std::istringstream lines(ReadFile(TraceFile()));
  int count = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.find(mark) != 13) continue;
    EXPECT_THAT(line, EndsWith(" " + text + "\r"));
    EXPECT_LT(line.size(), 3000 + 13 + mark.size() + 12);
    ++count;
  }
  EXPECT_EQ(count, kThreads * kLines);
}

TEST(Log, AClosedStandardOutputIsNotMistakenForTheLog) {
  const std::string message = Unique("no streams");
  const int status = RunInChild([&] {
    close(0);
    close(1);
    close(2);
    ILog::Trace("%s", message.c_str());
    return 0;
  });
  EXPECT_EQ(status, 0);
  const std::string text = ReadFile(TraceFile());
  const size_t first = text.find(message);
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(text.find(message, first + 1), std::string::npos) << "the echo went into the file";
}

// One thread hangs in the middle of Trace, in the echo into a full pipe. A child forked now has no
// such thread any more that could release a lock.
TEST(Log, AForkedChildTracesWhileAnotherThreadIsInsideTrace) {
  const std::string message = Unique("from the child");
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ASSERT_EQ(fcntl(ends[1], F_SETPIPE_SZ, 4096), 4096);
  fflush(stdout);
  const int saved = dup(1);
  dup2(ends[1], 1);
  const std::string stuck = Unique("stuck");
  std::thread tracer([&] { ILog::Trace("%s %s", stuck.c_str(), std::string(20000, 's').c_str()); });
  const bool hangs =
      WaitUntil([&] { return ReadFile(TraceFile()).find(stuck) != std::string::npos; });
  const int status = RunInChild([&] {
    alarm(5);
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), 1);
    ILog::Trace("%s", message.c_str());
    ILog::OutputDebugStr("%s", message.c_str());
    return 0;
  });
  close(ends[1]);
  std::thread drain([&] {
    char block[4096];
    while (read(ends[0], block, sizeof(block)) > 0) {
    }
  });
  tracer.join();
  dup2(saved, 1);
  drain.join();
  close(saved);
  close(ends[0]);
  EXPECT_TRUE(hangs);
  EXPECT_EQ(status, 0);
  EXPECT_THAT(ReadFile(TraceFile()), HasSubstr(message));
}

TEST(Log, TraceTouchesLittleMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizers' own memory faults";
#endif
  StdoutCapture capture;
  ILog::Trace("the first one");
  rusage before{};
  getrusage(RUSAGE_SELF, &before);
  for (int i = 0; i < 200; ++i)
    ILog::Trace("line %d", i);
  rusage after{};
  getrusage(RUSAGE_SELF, &after);
  EXPECT_LT(after.ru_minflt - before.ru_minflt, 50);
}

}  // namespace
