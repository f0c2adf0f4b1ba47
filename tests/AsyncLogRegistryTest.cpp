// Leveled application log: sharing, deletion, the default log, the console printer.
#include <Tarn/Generic/AsyncLog.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/AsyncLogFixture.h"
#include "tests/support/Capture.h"
#include "tests/support/ProgramCopy.h"
#include "tests/support/Support.h"

namespace {

using namespace tarn_test;
using testing::Contains;
using testing::EndsWith;
using testing::Not;
using testing::StartsWith;

using AsyncLogRegistry = AsyncLog;

TEST_F(AsyncLogRegistry, TwoLogsOfOnePathWriteTheSameFileKept) {
  CAsyncLog& one = FileLog();
  IAsyncLog* two = IAsyncLog::Create(dir_.File("app.log").c_str(), false);
  EXPECT_NE(static_cast<IAsyncLog*>(&one), two);
  two->SetWriteLogMode(2, kLowest, true, false);
  one.SetWriteLogMode(2, kLowest, true, false);
  one.WriteLog(INFO, "one");
  two->WriteLog(INFO, "two");
  one.WriteLog(INFO, "three");
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"one", "two", "three"}));
  IAsyncLog::Delete(two);
}

TEST_F(AsyncLogRegistry, SharingFindsTheLogOfTheSameExistingFile) {
  WriteFile(dir_.File("app.log"), "");
  const IAsyncLog* log = &FileLog();
  EXPECT_EQ(IAsyncLog::Create((dir_.Path() + "/./app.log").c_str(), true), log);
  std::filesystem::create_symlink("app.log", dir_.File("link"));
  EXPECT_EQ(IAsyncLog::Create(dir_.File("link").c_str(), true), log);
}

TEST_F(AsyncLogRegistry, SharingNeedsAnExistingFileKept) {
  const IAsyncLog* log = &FileLog();
  IAsyncLog* other = IAsyncLog::Create(dir_.File("app.log").c_str(), true);
  EXPECT_NE(other, log);
  WriteFile(dir_.File("app.log"), "");
  WriteFile(dir_.File("other.log"), "");
  IAsyncLog* third = IAsyncLog::Create(dir_.File("other.log").c_str(), true);
  EXPECT_NE(third, log);
  EXPECT_NE(third, other);
  IAsyncLog::Delete(other);
  IAsyncLog::Delete(third);
}

TEST_F(AsyncLogRegistry, SharingTakesTheLastMatchInKeyOrderKept) {
  WriteFile(dir_.File("a.log"), "");
  std::filesystem::create_hard_link(dir_.File("a.log"), dir_.File("b.log"));
  IAsyncLog* last = IAsyncLog::Create(dir_.File("b.log").c_str(), false);
  IAsyncLog* first = IAsyncLog::Create(dir_.File("a.log").c_str(), false);
  EXPECT_EQ(IAsyncLog::Create(dir_.File("a.log").c_str(), true), last);
  IAsyncLog::Delete(first);
  IAsyncLog::Delete(last);
}

TEST_F(AsyncLogRegistry, AFailedComparisonIsPrintedAndPassedOver) {
  ASSERT_EQ(mkfifo(dir_.File("a.log").c_str(), 0600), 0);
  const IAsyncLog* log = &FileLog("a.log");
  IAsyncLog* other = nullptr;
  std::string printed;
  {
    StdoutCapture capture;
    other = IAsyncLog::Create(dir_.File("a.log").c_str(), true);
    printed = capture.Text();
  }
  EXPECT_NE(other, log);
  EXPECT_THAT(printed.substr(13),
              StartsWith("IAsyncLog::Create " + dir_.File("a.log") + " exception "));
  IAsyncLog::Delete(other);
}

TEST_F(AsyncLogRegistry, ManyThreadsThatShareAFileGetOneLog) {
  WriteFile(dir_.File("app.log"), "");
  std::vector<std::thread> threads;
  std::vector<IAsyncLog*> logs(8);
  for (auto& log : logs) {
    threads.emplace_back(
        [this, &log] { log = IAsyncLog::Create(dir_.File("app.log").c_str(), true); });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(std::set<IAsyncLog*>(logs.begin(), logs.end()).size(), 1U);
  log_ = logs[0];
}

TEST_F(AsyncLogRegistry, DeletingTwiceOrTheUnknownDoesNothing) {
  WriteFile(dir_.File("app.log"), "");
  IAsyncLog* log = &FileLog();
  IAsyncLog* shared = IAsyncLog::Create(dir_.File("app.log").c_str(), true);
  ASSERT_EQ(log, shared);
  IAsyncLog::Delete(log);
  IAsyncLog::Delete(shared);
  Forget();
  IAsyncLog::Delete(nullptr);
  CAsyncLog own(dir_.File("own.log").c_str());
  IAsyncLog::Delete(&own);
  own.SetWriteLogMode(2, kLowest, true, false);
  own.WriteLog(INFO, "still alive");
  EXPECT_TRUE(Exists(TodaysFile("own")));
}

TEST_F(AsyncLogRegistry, ADeletedLogIsNoLongerShared) {
  WriteFile(dir_.File("app.log"), "");
  IAsyncLog::Delete(&FileLog());
  // Would be found among the dead otherwise, and used.
  log_ = IAsyncLog::Create(dir_.File("app.log").c_str(), true);
  log_->SetWriteLogMode(2, kLowest, true, false);
  log_->WriteLog(INFO, "x");
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"x"}));
}

TEST_F(AsyncLogRegistry, LogsComeAndGoOnManyThreads) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([this, thread] {
      for (int i = 0; i < 25; ++i) {
        IAsyncLog* log = IAsyncLog::Create(
            dir_.File("log" + std::to_string(thread) + "." + std::to_string(i)).c_str(),
            i % 2 == 0);
        log->SetWriteLogMode(2, kLowest, false, false);
        log->WriteLog(INFO, "x");
        if (i % 3 == 0) log->Flush();
        IAsyncLog::Delete(log);
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(ListDir(dir_.Path()).size(), 4 * 9U);
}

TEST(AsyncLogDefault, WritesFilesBesideTheProgramFromDebugUpwardKept) {
  if (InProgramCopy()) {
    AllowResourceGrowth();
    IAsyncLog* log = IAsyncLog::GetDefaultLogPtr();
    EXPECT_EQ(IAsyncLog::GetDefaultLogPtr(), log);
    EXPECT_THAT(ThreadNames(), Contains("CAsyncLog_Log.l"));
    int terminal = 0;
    LogLevel level = TRACE;
    bool sync = true;
    bool close = true;
    log->GetWriteLogMode(terminal, level, sync, close);
    EXPECT_EQ(terminal, 2);
    EXPECT_EQ(level, DEBUG);
    EXPECT_FALSE(sync);
    EXPECT_FALSE(close);
    log->WriteLog(TRACE, "dropped");
    log->WriteLog(DEBUG, "written");
    log->Flush();
    return;
  }
  const TempDir dir;
  RunInProgramCopy(dir.Path());
  const std::string text = ReadFile(dir.File("bin/AsyncLogs/Log-" + Today("%Y-%m-%d") + ".log"));
  EXPECT_EQ(text.substr(std::min(kStamp, text.size())), " DEBUG written\n");
}

TEST(AsyncLogDefault, IsConfiguredFromTheSettingsFile) {
  if (InProgramCopy()) {
    AllowResourceGrowth();
    int terminal = 0;
    LogLevel level = TRACE;
    bool sync = false;
    bool close = false;
    IAsyncLog::GetDefaultLogPtr()->GetWriteLogMode(terminal, level, sync, close);
    EXPECT_EQ(terminal, 3);
    EXPECT_EQ(level, -2);
    EXPECT_TRUE(sync);
    EXPECT_TRUE(close);
    return;
  }
  const TempDir dir;
  std::filesystem::create_directory(dir.File("bin"));
  WriteFile(dir.File("bin/config.ini"),
            "[APP]\nterminal=3\nloglevel=-2\nsyncFile=7\ncloseFileAfterWrite=-1\n");
  RunInProgramCopy(dir.Path());
}

TEST(AsyncLogDefault, ManyFirstCallersGetOneConfiguredLog) {
  if (InProgramCopy()) {
    AllowResourceGrowth();
    std::vector<IAsyncLog*> logs(8);
    std::vector<std::thread> threads;
    std::atomic<int> waiting{0};
    for (auto& log : logs) {
      threads.emplace_back([&] {
        ++waiting;
        while (waiting < 8)
          std::this_thread::yield();
        log = IAsyncLog::GetDefaultLogPtr();
        int terminal = 0;
        LogLevel level = TRACE;
        bool sync = false;
        bool close = false;
        log->GetWriteLogMode(terminal, level, sync, close);
        EXPECT_EQ(terminal, 2);
      });
    }
    for (auto& thread : threads)
      thread.join();
    EXPECT_EQ(std::set<IAsyncLog*>(logs.begin(), logs.end()).size(), 1U);
    return;
  }
  const TempDir dir;
  RunInProgramCopy(dir.Path());
}

TEST(AsyncLogDefault, IsMadeAnewAfterItsDeletion) {
  if (InProgramCopy()) {
    AllowResourceGrowth();
    IAsyncLog::Delete(IAsyncLog::GetDefaultLogPtr());
    EXPECT_THAT(ThreadNames(), Not(Contains("CAsyncLog_Log.l")));
    IAsyncLog* log = IAsyncLog::GetDefaultLogPtr();
    log->WriteLog(INFO, "second life");
    log->Flush();
    return;
  }
  const TempDir dir;
  RunInProgramCopy(dir.Path());
  EXPECT_THAT(ReadFile(dir.File("bin/AsyncLogs/Log-" + Today("%Y-%m-%d") + ".log")),
              EndsWith(" INFO second life\n"));
}

/// The console printer; its switches are the process's.
class AsyncLogConsole : public testing::Test {
 protected:
  ~AsyncLogConsole() override { IAsyncLog::SetOutputDebugStrMode(0, ERROR); }
  static std::string Printed(LogLevel level, const char* message) {
    StdoutCapture capture;
    IAsyncLog::OutputDebugStr(level, "%s", message);
    return capture.Text();
  }
};

TEST_F(AsyncLogConsole, PrintsNothingAtFirstKept) {
  EXPECT_EQ(g_nOutTerminal, 0);
  EXPECT_EQ(g_nOutLevel, 4);
  EXPECT_EQ(Printed(INFO, "x"), "");
  EXPECT_EQ(Printed(FATAL, "x"), "");
}

TEST_F(AsyncLogConsole, PrintsFromTheSetLevelUpward) {
  IAsyncLog::SetOutputDebugStrMode(1, INFO);
  EXPECT_EQ(g_nOutTerminal, 1);
  EXPECT_EQ(g_nOutLevel, 2);
  EXPECT_EQ(Printed(INFO, "x"), "info x\n");
  EXPECT_EQ(Printed(DEBUG, "x"), "");
}

TEST_F(AsyncLogConsole, FourLevelsHaveWordsKept) {
  IAsyncLog::SetOutputDebugStrMode(1, kLowest);
  EXPECT_EQ(Printed(DEBUG, "x"), "debug x\n");
  EXPECT_EQ(Printed(WARN, "x"), "warn x\n");
  EXPECT_EQ(Printed(ERROR, "x"), "error x\n");
  for (const int level : {-3, 0, 5, 6, INT_MIN, INT_MAX}) {
    EXPECT_EQ(Printed(static_cast<LogLevel>(level), "x"), " x\n");
  }
}

TEST_F(AsyncLogConsole, HostsMaySetTheGlobalsThemselves) {
  Tarn::Generic::g_nOutTerminal = 1;
  ::g_nOutLevel = 5;
  EXPECT_EQ(Printed(ERROR, "x"), "");
  EXPECT_EQ(Printed(FATAL, "x"), " x\n");
}

TEST_F(AsyncLogConsole, TheStampedLineEndsTwiceKept) {
  IAsyncLog::SetOutputDebugStrMode(4, INFO);
  EXPECT_EQ(ShapeOf(Printed(INFO, "x")), "00:00:00.000 info x\n\n");
}

TEST_F(AsyncLogConsole, TheBitsCombineAndTheFileBitHasNoEffectKept) {
  IAsyncLog::SetOutputDebugStrMode(2, INFO);
  EXPECT_EQ(Printed(INFO, "x"), "");
  IAsyncLog::SetOutputDebugStrMode(7, INFO);
  const std::string printed = Printed(INFO, "x");
  EXPECT_THAT(printed, StartsWith("info x\n"));
  EXPECT_THAT(printed, EndsWith(" info x\n\n"));
  EXPECT_EQ(printed.size(), 7 + 13 + 8U);
}

TEST_F(AsyncLogConsole, TheWholeIsCutTo102399Bytes) {
  IAsyncLog::SetOutputDebugStrMode(1, INFO);
  const std::string printed = Printed(INFO, std::string(200000, 'm').c_str());
  EXPECT_EQ(printed.size(), 102399 + 1U);
  EXPECT_THAT(printed.substr(0, 6), "info m");
  EXPECT_EQ(Printed(INFO, std::string(102394, 'm').c_str()).size(), 102399 + 1U);
}

TEST_F(AsyncLogConsole, TheSwitchesMayChangeMeanwhile) {
  StdoutCapture capture;
  std::atomic<bool> done{false};
  std::thread changer([&] {
    for (int i = 0; !done; ++i)
      IAsyncLog::SetOutputDebugStrMode(i % 2, INFO);
  });
  for (int i = 0; i < 1000; ++i)
    IAsyncLog::OutputDebugStr(INFO, "x");
  done = true;
  changer.join();
  for (const std::string& line : LinesOf(capture.Text()))
    EXPECT_EQ(line, "info x");
}

}  // namespace
