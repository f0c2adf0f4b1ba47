// The synchronous file log behind ILog::Create.
#ifndef TARN_UTILITY_LOG_H
#define TARN_UTILITY_LOG_H

#include <Tarn/Generic/Log.h>
#include <sys/uio.h>

namespace Tarn::Generic {

/// One open append-mode file. An object is used by one thread at a time.
///
/// Texts go straight to the stream's descriptor, each with one append: nothing stays in the
/// stream's own buffer, where a failed write would be tried again behind the next text.
class TARN_API CLog : public ILog {
 public:
  CLog();
  CLog(const CLog&) = delete;
  CLog& operator=(const CLog&) = delete;
  ~CLog() override;

  void Write(const char* fmt, ...) override __attribute__((format(printf, 2, 3)));

  /// @return 0; -1 unknown type; -2 no buffer (also when `maxLen` is not above 0); -3 the file
  /// cannot
  ///         be opened
  int Open(const char* path, LogType type, int maxLen);
  void Close();

  /// Appends the pieces as one text, cut to the slot's maxLen - 1 bytes. The pieces are used up.
  void WritePieces(iovec* pieces, size_t count);

  LogType m_type;        // the slot in use
  _LogerInfo m_info[3];  // indexed by LogType

 private:
  _LogerInfo* Slot();
  _LogerInfo* ReadySlot();
};

}  // namespace Tarn::Generic

#endif  // TARN_UTILITY_LOG_H
