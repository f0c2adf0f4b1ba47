// Leveled application log with a writer thread: lines, batches, files.
#include "utility/AsyncLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/AsyncLogFixture.h"
#include "tests/support/Capture.h"
#include "tests/support/Support.h"
#include "utility/Log.h"

namespace {

using namespace tarn_test;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

constexpr size_t kLimit = 2097151;

// The id of the thread with this name, "" when there is none.
std::string ThreadId(const std::string& name) {
  for (const std::string& id : ListDir("/proc/self/task")) {
    if (ReadFile("/proc/self/task/" + id + "/comm") == name + "\n") return id;
  }
  return "";
}

// True while a thread waits for something without a time limit: its futex call has no time-out.
bool WaitsWithoutLimit(const std::string& id) {
  std::istringstream call(ReadFile("/proc/self/task/" + id + "/syscall"));
  std::string number;
  std::string argument[4];
  call >> number >> argument[0] >> argument[1] >> argument[2] >> argument[3];
  return number == "202" && argument[3] == "0x0";
}

// When a file was last written to.
double ChangedMs(const std::string& path) {
  struct stat status {};
  stat(path.c_str(), &status);
  return static_cast<double>(status.st_mtim.tv_sec) * 1e3 +
         static_cast<double>(status.st_mtim.tv_nsec) / 1e6;
}

TEST_F(AsyncLog, ALineIsStampTagAndMessageKept) {
  const std::string before = Today("%Y-%m-%d %H-%M-%S");
  CAsyncLog& log = QuietLog();
  EXPECT_EQ(log.WriteLog(INFO, "%s %d", "text", 5), 0);
  log.Flush();
  const std::string text = Text();
  EXPECT_EQ(ShapeOf(text), "0000-00-00 00-00-00:000 INFO text 0\n");
  EXPECT_GE(text.substr(0, 19), before);
  EXPECT_LE(text.substr(0, 19), Today("%Y-%m-%d %H-%M-%S"));
}

TEST_F(AsyncLog, EveryLevelHasItsTag) {
  CAsyncLog& log = QuietLog();
  std::string expected;
  for (int level = -5; level <= 7; ++level)
    log.WriteLog(static_cast<LogLevel>(level), "x");
  log.Flush();
  std::vector<std::string> ends;
  for (const std::string& line : LinesOf(Text()))
    ends.push_back(line.substr(kStamp));
  const std::vector<std::string> tags = {
      "x",        "x",       " TRACEALL3 x", " TRACEALL2 x", " TRACEALL1 x", " TRACE x",
      " DEBUG x", " INFO x", " WARN x",      " ERROR x",     " FATAL x",     "x",
      "x"};
  EXPECT_EQ(ends, tags);
}

TEST_F(AsyncLog, ANewLogPrintsFromDebugUpwardKept) {
  log_ = IAsyncLog::Create(dir_.File("app.log").c_str(), false);
  int terminal = -1;
  LogLevel level = FATAL;
  bool sync = true;
  bool close = true;
  log_->GetWriteLogMode(terminal, level, sync, close);
  EXPECT_EQ(terminal, 1);
  EXPECT_EQ(level, DEBUG);
  EXPECT_FALSE(sync);
  EXPECT_FALSE(close);
  StdoutCapture capture;
  EXPECT_EQ(log_->WriteLog(TRACE, "dropped"), 0);
  EXPECT_EQ(log_->WriteLog(DEBUG, "printed"), 0);
  log_->Flush();
  EXPECT_THAT(capture.Text(), EndsWith(" DEBUG printed\n"));
  EXPECT_THAT(capture.Text(), Not(HasSubstr("dropped")));
  EXPECT_TRUE(ListDir(dir_.Path()).empty());
}

TEST_F(AsyncLog, TheModeIsReadBackAsSet) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(-7, static_cast<LogLevel>(99), true, true);
  int terminal = 0;
  LogLevel level = TRACE;
  bool sync = false;
  bool close = false;
  log.GetWriteLogMode(terminal, level, sync, close);
  EXPECT_EQ(terminal, -7);
  EXPECT_EQ(level, 99);
  EXPECT_TRUE(sync);
  EXPECT_TRUE(close);
}

TEST_F(AsyncLog, LinesBelowTheLevelAreDropped) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(2, WARN, false, false);
  log.WriteLog(INFO, "a");
  log.WriteLog(WARN, "b");
  log.WriteLog(FATAL, "c");
  log.WriteLog(TRACEALL3, "d");
  log.Flush();
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"b", "c"}));
}

TEST_F(AsyncLog, ModeZeroSilencesTheLogKept) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(0, kLowest, true, false);
  StdoutCapture capture;
  EXPECT_EQ(log.WriteLog(FATAL, "x"), 0);
  log.Flush();
  EXPECT_EQ(capture.Text(), "");
  EXPECT_TRUE(ListDir(dir_.Path()).empty());
}

TEST_F(AsyncLog, ModeThreePrintsAndWrites) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(3, kLowest, false, false);
  StdoutCapture capture;
  log.WriteLog(INFO, "one");
  log.WriteLog(INFO, "two");
  EXPECT_EQ(capture.Text(), "");
  log.Flush();
  EXPECT_EQ(capture.Text(), Text());
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"one", "two"}));
}

TEST_F(AsyncLog, ANullFormatIsAnEmptyMessage) {
  CAsyncLog& log = QuietLog();
  const char* volatile none = nullptr;
  log.WriteLog(INFO, none, 1);
  log.Flush();
  EXPECT_EQ(Text().substr(kStamp), " INFO \n");
}

TEST_F(AsyncLog, TheWriterBringsTenLinesAsOneBatch) {
  CAsyncLog& log = FileLog();
  for (int i = 0; i < 10; ++i)
    log.WriteLog(INFO, "%d", i);
  EXPECT_TRUE(WaitUntil([&] { return !Text().empty(); }));
  EXPECT_EQ(MessagesOf(Text()),
            (std::vector<std::string>{"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}));
}

TEST_F(AsyncLog, TheWriterPausesForASecondAfterABatchKept) {
  const Stopwatch sinceCreate;
  CAsyncLog& log = FileLog();
  log.WriteLog(INFO, "one");
  ASSERT_TRUE(WaitUntil([&] { return !Text().empty(); }));
  EXPECT_GE(sinceCreate.ElapsedMs(), 990);
  const double firstBatch = ChangedMs(TodaysFile());
  log.WriteLog(INFO, "two");
  ASSERT_TRUE(WaitUntil([&] { return MessagesOf(Text()).size() == 2; }));
  EXPECT_GE(ChangedMs(TodaysFile()) - firstBatch, 980);
}

TEST_F(AsyncLog, AStopInThePauseLosesQueuedLinesKept) {
  CAsyncLog& log = FileLog();
  log.WriteLog(INFO, "lost");
  const Stopwatch watch;
  IAsyncLog::Delete(&log);
  Forget();
  EXPECT_LT(watch.ElapsedMs(), AtMost(500));
  EXPECT_TRUE(ListDir(dir_.Path()).empty());
}

TEST_F(AsyncLog, AStopWhileTheWriterWaitsForLinesBringsThemKept) {
  CAsyncLog& log = FileLog("stopping.log");
  const std::string writer = ThreadId("CAsyncLog_stopp");
  ASSERT_NE(writer, "");
  ASSERT_TRUE(WaitUntil([&] { return WaitsWithoutLimit(writer); }));
  // Queued without waking the writer: only the stop does.
  log.m_lock.Lock();
  log.m_queue.Append("a line\n");
  log.m_lock.UnLock();
  log.StopFileLog();
  EXPECT_EQ(ReadFile(TodaysFile("stopping")), "a line\n");
  EXPECT_EQ(log.m_pFile, nullptr);
}

TEST_F(AsyncLog, FlushBeforeDeleteKeepsEveryLine) {
  CAsyncLog& log = FileLog();
  for (int i = 0; i < 1000; ++i)
    log.WriteLog(INFO, "line %d", i);
  log.Flush();
  IAsyncLog::Delete(&log);
  Forget();
  EXPECT_EQ(LinesOf(Text()).size(), 1000U);
}

TEST_F(AsyncLog, FlushWithoutLinesDoesNothing) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(3, kLowest, false, false);
  StdoutCapture capture;
  log.Flush();
  EXPECT_EQ(capture.Text(), "");
  EXPECT_TRUE(ListDir(dir_.Path()).empty());
}

TEST_F(AsyncLog, TheSynchronousModeWritesAtOnce) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(3, kLowest, true, false);
  StdoutCapture capture;
  log.WriteLog(INFO, "now");
  EXPECT_EQ(Text().substr(kStamp), " INFO now\n");
  log.WriteLog(INFO, "again");
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"now", "again"}));
  EXPECT_EQ(capture.Text(), Text());
}

TEST_F(AsyncLog, TheFileStaysOpenBetweenBatches) {
  CAsyncLog& log = QuietLog();
  const int before = OpenDescriptors();
  log.WriteLog(INFO, "x");
  log.Flush();
  EXPECT_EQ(OpenDescriptors(), before + 1);
  EXPECT_NE(log.m_pFile, nullptr);
  EXPECT_STREQ(log.m_filePath.c_str(), TodaysFile().c_str());
  EXPECT_EQ(log.m_date, Today("%Y-%m-%d"));
}

TEST_F(AsyncLog, CloseAfterWriteLeavesNothingOpen) {
  CAsyncLog& log = QuietLog();
  const int before = OpenDescriptors();
  log.SetWriteLogMode(2, kLowest, true, true);
  log.WriteLog(INFO, "a");
  EXPECT_EQ(log.m_pFile, nullptr);
  log.WriteLog(INFO, "b");
  EXPECT_EQ(OpenDescriptors(), before);
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"a", "b"}));
}

TEST_F(AsyncLog, ChangingToCloseAfterWriteClosesTheOpenFile) {
  CAsyncLog& log = QuietLog();
  const int before = OpenDescriptors();
  log.SetWriteLogMode(2, kLowest, true, false);
  log.WriteLog(INFO, "a");
  log.SetWriteLogMode(2, kLowest, true, true);
  log.WriteLog(INFO, "b");
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(AsyncLog, ARemovedFileIsMadeAnew) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(2, kLowest, true, false);
  log.WriteLog(INFO, "a");
  std::filesystem::remove(TodaysFile());
  log.WriteLog(INFO, "b");
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"b"}));
}

TEST_F(AsyncLog, TheFirstBatchOfADayChangesTheFile) {
  CAsyncLog& log = QuietLog();
  const std::string yesterdays = dir_.File("app-2000-01-01.log");
  const int before = OpenDescriptors();
  log.m_date = "2000-01-01";
  log.m_filePath = yesterdays.c_str();
  log.m_pFile = ILog::Create(yesterdays.c_str(), LOG_TYPE_2, 2097152);
  log.WriteLog(INFO, "new day");
  log.Flush();
  EXPECT_EQ(ReadFile(yesterdays), "");
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"new day"}));
  EXPECT_EQ(log.m_date, Today("%Y-%m-%d"));
  EXPECT_STREQ(log.m_filePath.c_str(), TodaysFile().c_str());
  EXPECT_EQ(OpenDescriptors(), before + 1) << "yesterday's file is closed";
}

TEST_F(AsyncLog, GetLogFilePathPutsTheDateBeforeTheExtension) {
  EXPECT_STREQ(QuietLog().GetLogFilePath().c_str(), TodaysFile().c_str());
}

TEST_F(AsyncLog, ANameWithoutExtensionWritesNoFileKept) {
  CAsyncLog& log = QuietLog("app");
  EXPECT_STREQ(log.GetLogFilePath().c_str(), "");
  log.WriteLog(INFO, "x");
  log.Flush();
  log.SetWriteLogMode(2, kLowest, true, true);
  log.WriteLog(INFO, "y");
  EXPECT_TRUE(ListDir(dir_.Path()).empty());
}

TEST_F(AsyncLog, APathWithoutFolderMakesAFolderOfItsNameKept) {
  const std::string former = std::filesystem::current_path();
  std::filesystem::current_path(dir_.Path());
  log_ = IAsyncLog::Create("app.log", false);
  log_->SetWriteLogMode(2, kLowest, true, false);
  log_->WriteLog(INFO, "x");
  EXPECT_EQ(ListDir("."), (std::vector<std::string>{"app.log"}));
  EXPECT_TRUE(std::filesystem::is_directory("app.log"));
  EXPECT_TRUE(std::filesystem::is_empty("app.log"));
  std::filesystem::current_path(former);
}

TEST_F(AsyncLog, CreateMakesTheLastLevelOfTheFolder) {
  CAsyncLog& log = QuietLog("new/app.log");
  EXPECT_TRUE(Exists(dir_.File("new")));
  log.WriteLog(INFO, "x");
  log.Flush();
  EXPECT_EQ(ListDir(dir_.File("new")).size(), 1U);
}

TEST_F(AsyncLog, WithoutAParentTheLogIsMadeButFindsNoFileKept) {
  CAsyncLog& log = QuietLog("not/there/app.log");
  log.SetWriteLogMode(2, kLowest, true, false);
  log.WriteLog(INFO, "lost");
  EXPECT_FALSE(Exists(dir_.File("not")));
  // The next batch tries again.
  std::filesystem::create_directories(dir_.File("not/there"));
  log.WriteLog(INFO, "kept");
  const std::string text = ReadFile(TodaysFile("not/there/app"));
  EXPECT_EQ(MessagesOf(text), (std::vector<std::string>{"kept"}));
}

TEST_F(AsyncLog, ANullPathMakesALogWithoutAFile) {
  log_ = IAsyncLog::Create(nullptr, true);
  ASSERT_NE(log_, nullptr);
  log_->SetWriteLogMode(2, kLowest, true, false);
  EXPECT_EQ(log_->WriteLog(INFO, "x"), 0);
}

TEST_F(AsyncLog, TheCharacterSetChangesNothingKept) {
  CAsyncLog& log = QuietLog();
  EXPECT_EQ(log.m_charSet, CHARSET_UTF8);
  log.SetCharSet(CHARSET_GBK);
  log.WriteLog(INFO, "\xE4\xB8\xAD\xE6\x96\x87");
  log.Flush();
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"\xE4\xB8\xAD\xE6\x96\x87"}));
}

TEST_F(AsyncLog, ABatchInTheFileIsCutKept) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(3, kLowest, false, false);
  StdoutCapture capture;
  const std::string message(100000, 'm');
  for (int i = 0; i < 25; ++i)
    log.WriteLog(INFO, "%s", message.c_str());
  log.Flush();
  const std::string printed = capture.Text();
  EXPECT_EQ(printed.size(), 25 * (kStamp + 6 + 100000 + 1));
  EXPECT_EQ(Text().size(), kLimit);
  EXPECT_TRUE(printed.compare(0, kLimit, Text()) == 0);
  log.WriteLog(INFO, "next");
  log.Flush();
  EXPECT_EQ(Text().size(), kLimit + kStamp + 6 + 5);
}

TEST_F(AsyncLog, WithoutAConsoleNoMoreIsKeptThanABatchCanWrite) {
  CAsyncLog& log = QuietLog();
  const std::string message(1000, 'm');
  for (int i = 0; i < 5000; ++i)
    log.WriteLog(INFO, "%d %s", i, message.c_str());
  EXPECT_LE(log.m_queue.Length(), kLimit);
  log.Flush();
  EXPECT_EQ(Text().size(), kLimit);
  EXPECT_EQ(log.m_queue.Length(), 0U);
  log.WriteLog(INFO, "x");
  EXPECT_EQ(log.m_queue.Length(), kStamp + 6 + 2);
}

TEST_F(AsyncLog, AMessageIsCutToTwoMebibytes) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(1, kLowest, false, false);
  StdoutCapture capture;
  log.WriteLog(INFO, "%s", std::string(kLimit + 500, 'm').c_str());
  log.Flush();
  EXPECT_EQ(capture.Text().size(), kStamp + 6 + kLimit + 1);
}

TEST_F(AsyncLog, TheBatchWriterEndsItsTextWithALineEndKept) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(3, kLowest, false, false);
  StdoutCapture capture;
  std::string text = "one\ntwo";
  log.WriteLog(text);
  EXPECT_EQ(text, "one\ntwo\n");
  EXPECT_EQ(Text(), "one\ntwo\n");
  EXPECT_EQ(capture.Text(), "one\ntwo\n");
}

TEST_F(AsyncLog, WithoutAFileTheBatchWriterLeavesItsTextAloneKept) {
  CAsyncLog& log = QuietLog();
  log.SetWriteLogMode(1, kLowest, false, false);
  StdoutCapture capture;
  std::string text = "one";
  log.WriteLog(text);
  EXPECT_EQ(text, "one");
  EXPECT_EQ(capture.Text(), "one\n");
}

TEST_F(AsyncLog, EveryLineOfManyThreadsArrivesOnceAndInOrder) {
  constexpr int kThreads = 4;
  constexpr int kLines = 2000;
  CAsyncLog& log = FileLog();
  std::atomic<bool> done{false};
  std::thread flusher([&] {
    while (!done)
      log.Flush();
  });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&log, thread] {
      for (int i = 0; i < kLines; ++i) {
        log.WriteLog(INFO, "%d %d", thread, i);
        if (i % 500 == 0) log.Flush();
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  done = true;
  flusher.join();
  log.Flush();
  std::map<int, int> next;
  for (const std::string& message : MessagesOf(Text())) {
    int thread = -1;
    int number = -1;
    ASSERT_EQ(sscanf(message.c_str(), "%d %d", &thread, &number), 2) << message;
    EXPECT_EQ(number, next[thread]++);
  }
  for (int thread = 0; thread < kThreads; ++thread)
    EXPECT_EQ(next[thread], kLines);
}

TEST_F(AsyncLog, ModesChangeUnderConcurrentWriters) {
  CAsyncLog& log = FileLog();
  std::atomic<bool> done{false};
  std::thread changer([&] {
    for (int i = 0; !done; ++i) {
      log.SetWriteLogMode(2, kLowest, i % 2 == 0, i % 3 == 0);
      log.SetCharSet(i % 2 == 0 ? CHARSET_GBK : CHARSET_UTF8);
    }
  });
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&log, thread] {
      for (int i = 0; i < 500; ++i) {
        log.WriteLog(INFO, "%d %d", thread, i);
        if (i % 50 == 0) log.Flush();
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  done = true;
  changer.join();
  log.Flush();
  const std::vector<std::string> messages = MessagesOf(Text());
  EXPECT_EQ(messages.size(), 1500U);
  EXPECT_EQ(std::set<std::string>(messages.begin(), messages.end()).size(), 1500U);
}

// The file is a pipe that nobody reads: the writer of the batch hangs, its callers must not.
TEST_F(AsyncLog, AStalledDiskDoesNotStallTheCallers) {
  ASSERT_EQ(mkfifo(TodaysFile().c_str(), 0600), 0);
  const int reader = open(TodaysFile().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  CAsyncLog& log = QuietLog();
  for (int i = 0; i < 2000; ++i)
    log.WriteLog(INFO, "%s", std::string(1000, 'm').c_str());
  std::atomic<bool> flushed{false};
  std::thread stalled([&] {
    log.Flush();
    flushed = true;
  });
  ASSERT_TRUE(WaitUntil([&] {
    log.m_lock.Lock();
    const bool taken = log.m_queue.Length() == 0;
    log.m_lock.UnLock();
    return taken;
  }));
  const Stopwatch watch;
  for (int i = 0; i < 10000; ++i)
    log.WriteLog(INFO, "%s", std::string(1000, 'm').c_str());
  EXPECT_LT(watch.ElapsedMs(), AtMost(2000));
  EXPECT_FALSE(flushed);
  EXPECT_EQ(log.m_queue.Length(), kLimit) << "memory stays bounded";
  std::string block(65536, '\0');
  while (!flushed) {
    if (read(reader, block.data(), block.size()) <= 0) std::this_thread::yield();
  }
  stalled.join();
  // Nobody hangs in the pipe when the log goes.
  std::filesystem::remove(TodaysFile());
  close(reader);
}

// Two batches meet while the first hangs in the middle of its file: they must not mix.
TEST_F(AsyncLog, AFlushWaitsForTheBatchBeforeIt) {
  ASSERT_EQ(mkfifo(TodaysFile().c_str(), 0600), 0);
  const int reader = open(TodaysFile().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  CAsyncLog& log = QuietLog();
  const auto pending = [&log] {
    log.m_lock.Lock();
    const size_t length = log.m_queue.Length();
    log.m_lock.UnLock();
    return length;
  };
  std::string expected(1000000, 'a');
  log.m_queue.Append(expected);
  std::atomic<int> flushed{0};
  std::thread first([&] {
    log.Flush();
    ++flushed;
  });
  ASSERT_TRUE(WaitUntil([&] { return pending() == 0; }));
  log.m_lock.Lock();
  log.m_queue.Append(std::string(1000, 'b'));
  log.m_lock.UnLock();
  expected.append(1000, 'b');
  std::thread second([&] {
    log.Flush();
    ++flushed;
  });
  EXPECT_FALSE(WaitUntil([&] { return pending() == 0; }, 200ms)) << "it must not even drain";
  std::string received;
  std::string block(65536, '\0');
  while (flushed < 2 || received.size() < expected.size()) {
    const ssize_t count = read(reader, block.data(), block.size());
    if (count > 0) received.append(block, 0, static_cast<size_t>(count));
    if (count <= 0) std::this_thread::yield();
  }
  first.join();
  second.join();
  EXPECT_TRUE(received == expected);
  std::filesystem::remove(TodaysFile());
  close(reader);
}

TEST_F(AsyncLog, StoppingTwiceIsHarmless) {
  CAsyncLog& log = FileLog();
  log.StopFileLog();
  log.StopFileLog();
  log.WriteLog(INFO, "written by Flush alone");
  log.Flush();
  EXPECT_EQ(LinesOf(Text()).size(), 1U);
}

// The writer has been told to stop and ends by itself while the stop goes on.
TEST_F(AsyncLog, AWriterThatEndsByItselfMeetsTheStop) {
  for (int i = 0; i < 50; ++i) {
    auto* log = new CAsyncLog(dir_.File("app.log").c_str());
    log->m_stopEvent.Set();
    if (i % 2 == 0) std::this_thread::yield();
    delete log;
  }
}

TEST_F(AsyncLog, TheSlotsStandInTheirOrder) {
  auto* log = new CAsyncLog(dir_.File("app.log").c_str());
  auto* const table = *reinterpret_cast<void***>(static_cast<IAsyncLog*>(log));
  reinterpret_cast<void (*)(IAsyncLog*, CharSet)>(table[0])(log, CHARSET_GBK);
  EXPECT_EQ(log->m_charSet, CHARSET_GBK);
  reinterpret_cast<void (*)(IAsyncLog*, int, LogLevel, bool, bool)>(table[1])(log, 2, INFO, false,
                                                                              false);
  int terminal = 0;
  LogLevel level = TRACE;
  bool sync = true;
  bool close = true;
  reinterpret_cast<void (*)(IAsyncLog*, int&, LogLevel&, bool&, bool&)>(table[2])(
      log, terminal, level, sync, close);
  EXPECT_EQ(terminal, 2);
  EXPECT_EQ(level, INFO);
  reinterpret_cast<int (*)(IAsyncLog*, LogLevel, const char*, ...)>(table[3])(log, INFO, "%d", 7);
  reinterpret_cast<void (*)(IAsyncLog*)>(table[4])(log);
  EXPECT_EQ(MessagesOf(Text()), (std::vector<std::string>{"7"}));
  reinterpret_cast<void (*)(IAsyncLog*)>(table[6])(log);  // the deleting destructor
}

TEST_F(AsyncLog, TheDurationOfABatchIsStored) {
  CAsyncLog& log = QuietLog();
  EXPECT_EQ(log.m_dLastWrite, 0.0);
  log.m_dLastWrite = -1.0;
  log.WriteLog(INFO, "x");
  log.Flush();
  EXPECT_GE(log.m_dLastWrite, 0.0);
  EXPECT_LT(log.m_dLastWrite, 5000.0);
}

}  // namespace
