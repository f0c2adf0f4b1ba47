// Leveled application log with a writer thread.
#include "utility/AsyncLog.h"

#include <Tarn/Generic/DateTime.h>
#include <Tarn/Generic/Directory.h>
#include <Tarn/Generic/Setting.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <system_error>
#include <vector>

#include "utility/Log.h"
#include "utility/core/Format.h"
#include "utility/core/LogText.h"
#include "utility/os/WallClock.h"

int g_nOutTerminal = 0;
int g_nOutLevel = 4;

namespace Tarn::Generic {

namespace {

// Bits of the terminal masks.
constexpr int kConsole = 1;
constexpr int kFile = 2;
constexpr int kStampedConsole = 4;

constexpr int kPauseMs = 1000;
constexpr int kFileBuffer = static_cast<int>(Core::kLogTextLimit) + 1;
constexpr size_t kConsoleLineLimit = 102399;

/// All logs of the process. Never destroyed: hosts may log while the process exits.
struct Registry {
  CLock lock;
  std::map<std::string, IAsyncLog*> byPath;     // the latest log of each path text
  std::set<IAsyncLog*> live;                    // what Delete may destroy
  std::atomic<IAsyncLog*> defaultLog{nullptr};  // written under the lock
};

Registry& Logs() {
  static Registry& registry = *new Registry;
  return registry;
}

const char* TextOrEmpty(const char* text) {
  return text == nullptr ? "" : text;
}

std::string ThreadName(const char* path) {
  return std::string("CAsyncLog_") + CDirectory().GetPathName(path).c_str();
}

// The stamp changes once a second and costs more than the rest of a line.
const Core::SecondStamp& StampOf(std::time_t second) {
  static thread_local constinit std::time_t stampedSecond = 0;
  static thread_local constinit Core::SecondStamp stamp{};
  if (stampedSecond != second || stamp.dateLength == 0) {
    stamp = Core::StampSecond(Os::LocalTime(second));
    stampedSecond = second;
  }
  return stamp;
}

const Core::SecondStamp& CurrentStamp() {
  return StampOf(Os::ReadWallClock().second);
}

std::vector<iovec> PiecesOf(const Core::LogChunkList& chunks) {
  std::vector<iovec> pieces;
  pieces.reserve(chunks.Count());
  for (const Core::LogChunk* chunk = chunks.First(); chunk != nullptr; chunk = chunk->next) {
    pieces.push_back({const_cast<char*>(chunk->bytes), chunk->used});
  }
  return pieces;
}

void PrintBatch(const iovec* pieces, size_t count) {
  flockfile(stdout);  // one batch, one text: nobody prints in between
  for (size_t i = 0; i < count; ++i)
    fwrite(pieces[i].iov_base, 1, pieces[i].iov_len, stdout);
  funlockfile(stdout);
}

IAsyncLog* FindSharedLocked(const Registry& logs, const char* path) {
  CDirectory directory;
  if (!directory.IsExist(path)) return nullptr;
  IAsyncLog* found = nullptr;
  for (const auto& [key, log] : logs.byPath) {
    if (!directory.IsExist(key.c_str())) continue;
    std::error_code error;
    if (std::filesystem::equivalent(path, key, error)) {
      found = log;
    } else if (error) {
      ILog::OutputDebugStr("IAsyncLog::Create %s exception %s", path, error.message().c_str());
    }
  }
  return found;
}

IAsyncLog* CreateLocked(Registry& logs, const char* path, bool share) {
  if (share) {
    if (IAsyncLog* log = FindSharedLocked(logs, path)) return log;
  }
  // Kept: a path without a folder is taken for the folder itself. Such a log writes no file anyway.
  const std::string folder(Core::FolderPart(path));
  CDirectory directory;
  if (!directory.IsExist(folder.c_str())) directory.CreateDir(folder.c_str());

  auto log = std::make_unique<CAsyncLog>(path);
  logs.live.insert(log.get());
  try {
    logs.byPath[path] = log.get();
  } catch (...) {
    logs.live.erase(log.get());
    throw;
  }
  return log.release();
}

void ConfigureDefault(IAsyncLog& log) {
  CSetting setting("config.ini");
  const int terminal = setting.GetInt("APP", "terminal", kFile);
  const int level = setting.GetInt("APP", "loglevel", DEBUG);
  const bool sync = setting.GetInt("APP", "syncFile", 0) != 0;
  const bool closeAfterWrite = setting.GetInt("APP", "closeFileAfterWrite", 0) != 0;
  log.SetWriteLogMode(terminal, static_cast<LogLevel>(level), sync, closeAfterWrite);
}

// Published only when it is configured: nobody may meet a half-made default log.
IAsyncLog* MakeDefaultLocked(Registry& logs) {
  const std::string path = std::string(CDirectory().GetCurrentPath()) + "/AsyncLogs/Log.log";
  IAsyncLog* log = CreateLocked(logs, path.c_str(), true);
  ConfigureDefault(*log);
  logs.defaultLog = log;
  return log;
}

// The log, if it lives, is the caller's to destroy now.
bool Unregister(IAsyncLog* log) {
  Registry& logs = Logs();
  const CAutoLocker lock(logs.lock);
  if (logs.live.erase(log) == 0) return false;
  const auto entry = std::find_if(logs.byPath.begin(), logs.byPath.end(),
                                  [log](const auto& item) { return item.second == log; });
  if (entry != logs.byPath.end()) logs.byPath.erase(entry);
  if (logs.defaultLog == log) logs.defaultLog = nullptr;
  return true;
}

}  // namespace

IAsyncLog::~IAsyncLog() = default;

void IAsyncLog::SetOutputDebugStrMode(int terminal, LogLevel level) {
  __atomic_store_n(&g_nOutTerminal, terminal, __ATOMIC_RELAXED);
  __atomic_store_n(&g_nOutLevel, static_cast<int>(level), __ATOMIC_RELAXED);
}

void IAsyncLog::OutputDebugStr(LogLevel level, const char* fmt, ...) {
  const int terminal = __atomic_load_n(&g_nOutTerminal, __ATOMIC_RELAXED);
  if (terminal == 0 || level < __atomic_load_n(&g_nOutLevel, __ATOMIC_RELAXED)) return;
  const std::string_view word = Core::LevelWord(level);
  va_list args;
  va_start(args, fmt);
  const Core::FormattedText line(word, {}, kConsoleLineLimit - word.size(), fmt, args);
  va_end(args);
  if ((terminal & kConsole) != 0) puts(line.Data());
  // Kept: the stamped line ends with two line feeds, this one and the printer's own. Readers of the
  // console split at the blank line.
  if ((terminal & kStampedConsole) != 0) ILog::OutputDebugStr("%s\n", line.Data());
}

CAsyncLog::CAsyncLog(const char* path)
    : m_dLastWrite(0.0),
      m_thread(ThreadName(TextOrEmpty(path)).c_str()),
      m_pFile(nullptr),
      m_level(DEBUG),
      m_terminal(kConsole),
      m_bSync(false),
      m_bCloseAfterWrite(false),
      m_path(TextOrEmpty(path)),
      m_charSet(CHARSET_UTF8) {
  m_thread.Start(this, WriteLogFileThread);  // last: the writer uses everything above
}

void CAsyncLog::SetCharSet(CharSet set) {
  m_charSet = set;
}

void CAsyncLog::SetWriteLogMode(int terminal, LogLevel level, bool syncFile,
                                bool closeFileAfterWrite) {
  m_terminal = terminal;
  m_level = level;
  m_bSync = syncFile;
  m_bCloseAfterWrite = closeFileAfterWrite;
}

void CAsyncLog::GetWriteLogMode(int& terminal, LogLevel& level, bool& syncFile,
                                bool& closeFileAfterWrite) {
  terminal = m_terminal;
  level = m_level;
  syncFile = m_bSync;
  closeFileAfterWrite = m_bCloseAfterWrite;
}

int CAsyncLog::WriteLog(LogLevel level, const char* fmt, ...) {
  const int terminal = m_terminal;
  if (terminal == 0 || level < m_level) return 0;
  const Os::WallTime now = Os::ReadWallClock();
  const Core::ShortText prefix = Core::LinePrefix(StampOf(now.second), now.millisecond, level);
  va_list args;
  va_start(args, fmt);
  const Core::FormattedText line(prefix.View(), "\n", Core::kLogTextLimit, fmt, args);
  va_end(args);
  if (!m_bSync) {
    Enqueue(line.View(), terminal);
    return 0;
  }
  iovec piece{const_cast<char*>(line.Data()), line.Length()};
  const CAutoLocker lock(m_fileLock);
  WriteBatchLocked(&piece, 1);
  return 0;
}

void CAsyncLog::Flush() {
  const CAutoLocker fileLock(m_fileLock);
  m_lock.Lock();
  Core::LogChunkList batch = m_queue.TakeAll();
  m_lock.UnLock();
  if (batch.Empty()) return;
  try {
    std::vector<iovec> pieces = PiecesOf(batch);
    WriteBatchLocked(pieces.data(), pieces.size());
  } catch (const std::bad_alloc&) {
    // The batch is lost; its memory serves the next one.
  }
  m_lock.Lock();
  m_queue.GiveBack(batch);
  m_lock.UnLock();
}

CAsyncLog::~CAsyncLog() {
  StopFileLog();
}

void CAsyncLog::WriteLog(std::string& text) {
  char lineEnd = '\n';
  iovec pieces[] = {{text.data(), text.size()}, {&lineEnd, 1}};
  const CAutoLocker lock(m_fileLock);
  if (!WriteBatchLocked(pieces, std::size(pieces))) return;
  try {
    text.push_back('\n');
  } catch (const std::exception&) {
    // The file has it; the caller's text stays without.
  }
}

CStringEx CAsyncLog::GetLogFilePath() {
  try {
    return Core::DatedFilePath(m_path, CurrentStamp().Date()).c_str();
  } catch (const std::bad_alloc&) {
    return {};
  }
}

void CAsyncLog::StopFileLog() {
  m_dataEvent.Set();
  m_stopEvent.Set();
  m_thread.Stop(-1);
  const CAutoLocker lock(m_fileLock);
  CloseFileLocked();
}

// Only the first line after a drain has to wake the writer: it takes all that it finds. While no
// console wants every line, what no batch can bring to the file is not kept, so that a stalled disk
// does not fill the memory.
void CAsyncLog::Enqueue(std::string_view line, int terminal) {
  const size_t limit = (terminal & kConsole) != 0 ? SIZE_MAX : Core::kLogTextLimit;
  m_lock.Lock();
  const bool first = m_queue.Append(line, limit);
  m_lock.UnLock();
  if (first) m_dataEvent.Set();
}

// The pieces are whole lines, "\n" behind the last included. True when there was a file to write
// to.
bool CAsyncLog::WriteBatchLocked(iovec* pieces, size_t count) {
  const double start = CDateTime::GetMilisecondTime();
  const int terminal = m_terminal;
  if ((terminal & kConsole) != 0) PrintBatch(pieces, count);
  const bool written = (terminal & kFile) != 0 && WriteFileLocked(pieces, count);
  m_dLastWrite = CDateTime::GetMilisecondTime() - start;
  return written;
}

bool CAsyncLog::WriteFileLocked(iovec* pieces, size_t count) {
  try {
    OpenTodaysFileLocked();
  } catch (const std::bad_alloc&) {
    // No memory for a name: as a file that cannot be opened.
  }
  if (m_pFile == nullptr) return false;
  // What ILog::Create returns is a CLog; its cut at the buffer's length is that of a formatted
  // write.
  static_cast<CLog*>(m_pFile)->WritePieces(pieces, count);
  if (m_bCloseAfterWrite) CloseFileLocked();
  return true;
}

// Date and path come from one reading of the clock, or midnight could fall between them.
void CAsyncLog::OpenTodaysFileLocked() {
  const std::string_view today = CurrentStamp().Date();
  if (!m_bCloseAfterWrite && m_pFile != nullptr && m_date == today) return;
  CloseFileLocked();
  m_filePath = Core::DatedFilePath(m_path, today).c_str();
  m_date = today;
  m_pFile = ILog::Create(m_filePath.c_str(), LOG_TYPE_2, kFileBuffer);
}

void CAsyncLog::CloseFileLocked() {
  ILog::Delete(m_pFile);
  m_pFile = nullptr;
}

void CAsyncLog::WriteLogFileThread(void* self) {
  auto* log = static_cast<CAsyncLog*>(self);
  while (log->m_stopEvent.TimedWait(kPauseMs) == 0) {
    if (log->m_dataEvent.Wait()) log->Flush();
  }
}

IAsyncLog* IAsyncLog::Create(const char* path, bool share) {
  try {
    Registry& logs = Logs();
    const CAutoLocker lock(logs.lock);
    return CreateLocked(logs, TextOrEmpty(path), share);
  } catch (const std::exception&) {
    return nullptr;
  }
}

IAsyncLog* IAsyncLog::GetDefaultLogPtr() {
  try {
    Registry& logs = Logs();
    if (IAsyncLog* log = logs.defaultLog) return log;
    const CAutoLocker lock(logs.lock);
    IAsyncLog* log = logs.defaultLog;
    return log != nullptr ? log : MakeDefaultLocked(logs);
  } catch (const std::exception&) {
    return nullptr;
  }
}

void IAsyncLog::Delete(IAsyncLog* log) {
  if (log == nullptr || !Unregister(log)) return;
  static_cast<CAsyncLog*>(log)->StopFileLog();
  delete log;
}

}  // namespace Tarn::Generic
