/// @file
/// Leveled application log with a writer thread. Public: may include only public headers.
#ifndef TARN_GENERIC_ASYNCLOG_H
#define TARN_GENERIC_ASYNCLOG_H

#include <Tarn/Generic/Api.h>

/// What IAsyncLog::OutputDebugStr prints to: 0 nothing (the initial value), 1 standard output, 4
/// standard output with a time stamp, 5 both; the bit of value 2 has no effect. Read anew by each
/// call.
extern TARN_API int g_nOutTerminal;
/// The lowest level that IAsyncLog::OutputDebugStr prints, 4 at first. Read anew by each call.
extern TARN_API int g_nOutLevel;

namespace Tarn {
namespace Generic {

using ::g_nOutLevel;
using ::g_nOutTerminal;

/// Severity of a line, rising. Other values are allowed: they pass the filters as numbers and get
/// no tag.
enum LogLevel : int {
  TRACEALL3 = -3,
  TRACEALL2 = -2,
  TRACEALL1 = -1,
  TRACE = 0,
  DEBUG = 1,
  INFO = 2,
  WARN = 3,
  ERROR = 4,
  FATAL = 5
};

/// The wish for a character set of the output. It is stored and has no effect: console and file
/// always receive the text unchanged.
enum CharSet : int {
  CHARSET_GBK = 0,
  CHARSET_UTF8 = 1  ///< the default
};

/// A log whose lines are queued by the callers and written in batches by a thread of its own, at
/// most about one batch a second, to a file whose name carries the date: a log with the path
/// ".../app.log" writes ".../app-2024-03-05.log" on that day (local time) and changes to the next
/// file with the first batch after midnight. Old files are never removed. A path without a folder,
/// or whose file name has no ".", writes no file.
///
/// A line is "yyyy-MM-dd hh-mm-ss:mmm LEVEL message" without a line end; a batch is its lines with
/// "\n" between them and behind the last. A batch's file output is cut to 2,097,151 bytes. While
/// only the file is written, lines beyond that limit are not even queued.
///
/// All operations may be called from any thread. A new log prints to the console only, from level
/// DEBUG upward.
class TARN_API IAsyncLog {
 public:
  /// Stores the character set.
  virtual void SetCharSet(CharSet set) = 0;

  /// @param terminal             bit of value 1: batches go to standard output; bit of value 2: to
  /// the
  ///                             file; 0: lines are dropped at once
  /// @param level                lowest level that is written
  /// @param syncFile             every line is a batch of its own, written by the caller
  /// @param closeFileAfterWrite  the file is opened and closed for every batch
  virtual void SetWriteLogMode(int terminal, LogLevel level, bool syncFile,
                               bool closeFileAfterWrite) = 0;
  /// Reads what SetWriteLogMode has set.
  virtual void GetWriteLogMode(int& terminal, LogLevel& level, bool& syncFile,
                               bool& closeFileAfterWrite) = 0;

  /// Formats one line and queues it, or writes it in the synchronous mode. Messages are cut to
  /// 2,097,151 characters; a null format counts as an empty message.
  /// @return 0
  virtual int WriteLog(LogLevel level, const char* fmt, ...)
      __attribute__((format(printf, 3, 4))) = 0;

  /// Writes everything queued now as one batch, on the calling thread.
  virtual void Flush() = 0;

  // Declared last: the destructor's place in the virtual table is part of the interface.
  virtual ~IAsyncLog();

  /// Makes a log for `path` (folder, name and extension; the date is put before the extension). The
  /// last level of the folder is made when missing. Release it with Delete.
  /// @param share  true: if a live log was made for the same existing file, however its path is
  ///               written, return that log instead
  /// @return null when memory is short
  static IAsyncLog* Create(const char* path, bool share);

  /// The process-wide log "AsyncLogs/Log.log" below the program's folder, made by the first call
  /// and set up from section "APP" of "config.ini" in the program's folder: "terminal" (2 when
  /// missing), "loglevel" (1), "syncFile" (0), "closeFileAfterWrite" (0).
  static IAsyncLog* GetDefaultLogPtr();

  /// Stops the writer and destroys the log. Lines still queued may be lost: call Flush first to
  /// keep them. Null, and a log that has been deleted already, are ignored. After the default log
  /// has been deleted, GetDefaultLogPtr makes a new one.
  static void Delete(IAsyncLog* log);

  /// Sets g_nOutTerminal and g_nOutLevel.
  static void SetOutputDebugStrMode(int terminal, LogLevel level);

  /// Prints the level's word ("debug", "info", "warn", "error", else nothing), a blank and the
  /// message to standard output at once, if g_nOutTerminal and g_nOutLevel let it pass. The whole
  /// is cut to 102,399 bytes.
  static void OutputDebugStr(LogLevel level, const char* fmt, ...)
      __attribute__((format(printf, 2, 3)));
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_ASYNCLOG_H
