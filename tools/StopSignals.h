// SIGINT and SIGTERM as something to wait for instead of handlers.
#ifndef TARN_TOOLS_STOPSIGNALS_H
#define TARN_TOOLS_STOPSIGNALS_H

#include <functional>
#include <initializer_list>

namespace tarn_tool {

/// Exit status of what a signal has interrupted, plus the signal's number, as shells have it.
constexpr int kInterrupted = 128;

/// Holds SIGINT and SIGTERM back and ignores SIGPIPE, as the library asks of its hosts. Make it
/// before the first thread starts: threads inherit the mask, so that only this object hears the
/// signals.
class StopSignals {
 public:
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// False when the platform refused; the signals then act as they always do.
  [[nodiscard]] bool Valid() const { return descriptor_ >= 0; }

  /// Waits for one of the signals, or until one of `others` (at most 2; -1 counts as none) can be
  /// read, or for `timeoutMs` (-1: without end).
  /// @return the signal's number, 0 otherwise
  int Wait(std::initializer_list<int> others = {}, int timeoutMs = -1) const;

 private:
  int descriptor_ = -1;
};

/// Runs what the library's threads work for: with the signals held back, and with the log written
/// in the end.
/// @return what `run` returned, 1 when signals cannot be waited for
int WithStopSignals(const std::function<int(const StopSignals&)>& run);

}  // namespace tarn_tool

#endif  // TARN_TOOLS_STOPSIGNALS_H
