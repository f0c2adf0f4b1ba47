// The asynchronous log behind IAsyncLog::Create.
#ifndef TARN_UTILITY_ASYNCLOG_H
#define TARN_UTILITY_ASYNCLOG_H

#include <Tarn/Generic/AsyncLog.h>
#include <Tarn/Generic/Lock.h>
#include <Tarn/Generic/Log.h>
#include <Tarn/Generic/StringEx.h>
#include <Tarn/Generic/SyncEvent.h>
#include <Tarn/Generic/Thread.h>
#include <sys/uio.h>

#include <atomic>
#include <string>
#include <string_view>

#include "utility/core/LogQueue.h"

namespace Tarn::Generic {

/// A log with a queue and a writer thread.
///
/// Inside, the queue is one growing text in recycled chunks and not a sequence of texts: a caller
/// pays for formatting and one copy, and nothing is ever joined. Every line in it ends with "\n".
///
/// Two locks, always taken in this order: m_fileLock covers draining the queue and opening, writing
/// and closing the file, so that batches stay in order wherever the writer, Flush and the
/// synchronous mode meet; m_lock covers the queue alone and is held for one copy or a pointer
/// exchange.
class TARN_API CAsyncLog : public IAsyncLog {
 public:
  explicit CAsyncLog(const char* path);
  CAsyncLog(const CAsyncLog&) = delete;
  CAsyncLog& operator=(const CAsyncLog&) = delete;

  void SetCharSet(CharSet set) override;
  void SetWriteLogMode(int terminal, LogLevel level, bool syncFile,
                       bool closeFileAfterWrite) override;
  void GetWriteLogMode(int& terminal, LogLevel& level, bool& syncFile,
                       bool& closeFileAfterWrite) override;
  int WriteLog(LogLevel level, const char* fmt, ...) override __attribute__((format(printf, 3, 4)));
  void Flush() override;
  /// Stops the writer; lines still queued are dropped.
  ~CAsyncLog() override;

  /// Writes one batch, given without the line end behind its last line; one is added to `text` when
  /// the batch goes to a file.
  void WriteLog(std::string& text);
  /// Today's file.
  CStringEx GetLogFilePath();
  /// Wakes and joins the writer, then closes the file. A writer in its pause ends without a last
  /// Flush.
  void StopFileLog();
  /// The writer's body: at most one batch a second.
  static void WriteLogFileThread(void* self);

  std::atomic<double> m_dLastWrite;      // duration of the last batch in milliseconds
  CLock m_lock;                          // guards m_queue
  SyncEvent m_dataEvent;                 // lines are waiting
  SyncEvent m_stopEvent;                 // the writer is to end
  CThread m_thread;                      // the writer
  Core::LogQueue m_queue;                // guarded by m_lock
  ILog* m_pFile;                         // owned; null while no file is open; guarded by m_fileLock
  std::atomic<LogLevel> m_level;         // lowest level that is written
  std::atomic<int> m_terminal;           // bits: 1 console, 2 file
  std::atomic<bool> m_bSync;             // callers write by themselves
  std::atomic<bool> m_bCloseAfterWrite;  // the file is open for one batch only
  const std::string m_path;              // as given to Create
  std::string m_date;                    // of the open file, yyyy-MM-dd; guarded by m_fileLock
  CStringEx m_filePath;                  // of the open file; guarded by m_fileLock
  std::atomic<CharSet> m_charSet;
  CLock m_fileLock;  // see the class comment

 private:
  void Enqueue(std::string_view line, int terminal);
  bool WriteBatchLocked(iovec* pieces, size_t count);
  bool WriteFileLocked(iovec* pieces, size_t count);
  void OpenTodaysFileLocked();
  void CloseFileLocked();
};

}  // namespace Tarn::Generic

#endif  // TARN_UTILITY_ASYNCLOG_H
