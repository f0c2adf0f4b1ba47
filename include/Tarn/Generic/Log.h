/// @file
/// Synchronous file log and the printers of diagnostics. Public: may include only public headers.
#ifndef TARN_GENERIC_LOG_H
#define TARN_GENERIC_LOG_H

#include <Tarn/Generic/Api.h>

#include <cstdio>

/// Selects one of the three slots of a log; the slots behave alike. Other values are refused.
enum LogType : int { LOG_TYPE_0 = 0, LOG_TYPE_1 = 1, LOG_TYPE_2 = 2 };

/// One slot of a log: an open file and the buffer in which its texts are formatted.
struct _LogerInfo {
  char path[1024];  ///< the file's path as opened; at most 1022 characters are kept
  char* buffer;     ///< `maxLen` bytes from malloc, owned; null when closed
  int maxLen;       ///< size of `buffer`: a text is cut to `maxLen` - 1 characters
  FILE* file;       ///< the open stream, owned; null when closed
};

namespace Tarn {
namespace Generic {

/// An open append-mode file into which every Write puts one formatted text, and three static
/// printers that carry the library's diagnostics.
///
/// Everything is synchronous: the calling thread formats and writes. An object is used by one
/// thread at a time. The static functions may be called from any thread; they take no lock and keep
/// no state, and each writes its whole line with one append. Nothing switches them off. Messages
/// are cut to 2,097,151 characters; a null format counts as an empty message. Times are local.
class TARN_API ILog {
 public:
  virtual ~ILog();

  /// Appends one formatted text and flushes it. Nothing is added: the caller supplies the line end.
  /// A file that has been removed or moved away is made anew; when that fails, a line on standard
  /// output tells so and the text is dropped.
  virtual void Write(const char* fmt, ...) __attribute__((format(printf, 2, 3))) = 0;

  /// Opens `path` for appending; its folder must exist. Release the result with Delete.
  /// @param type    LOG_TYPE_0, LOG_TYPE_1 or LOG_TYPE_2
  /// @param maxLen  longest text plus one, in bytes; above 0
  /// @return null when the type is unknown, the file cannot be opened or memory is short
  static ILog* Create(const char* path, LogType type, int maxLen);
  /// Closes and destroys; null is ignored.
  static void Delete(ILog* log);

  /// Appends "hh:mm:ss.mmm message\r\n" to the file yyyymmdd.log in the folder `logs` beside the
  /// program's folder and prints the same line to standard output. The folder is made when missing.
  /// A folder or file that cannot be made is told on standard output instead; the message is lost
  /// then.
  static void Trace(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

  /// As Trace, but into a folder of the given name below the program's folder; one level is made.
  static void TraceEx(const char* folder, const char* fmt, ...)
      __attribute__((format(printf, 2, 3)));

  /// Prints "hh:mm:ss.mmm message\n" to standard output only.
  static void OutputDebugStr(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_LOG_H
