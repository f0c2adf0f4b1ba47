// What the command itself says. The library prints its diagnostics to standard output too; the
// command's own lines all begin with "tarn: ".
#ifndef TARN_TOOLS_CONSOLE_H
#define TARN_TOOLS_CONSOLE_H

#include <string>

namespace tarn_tool {

/// One line on standard output, flushed at once so that a script can wait for it.
__attribute__((format(printf, 1, 2))) void Say(const char* format, ...);

/// One line on standard error.
__attribute__((format(printf, 1, 2))) void Complain(const char* format, ...);

/// The platform's words for the current error number.
std::string ErrorText();

/// What a transfer result code means.
const char* ResultWords(unsigned int code);

/// Progress on standard error: a bar that is drawn over on a terminal, plain lines elsewhere.
class Progress {
 public:
  Progress();
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Shows `percent` when it differs from what was shown last.
  void Show(int percent);
  /// Ends the bar's line, so that the next output begins at the left.
  void End();

 private:
  const bool terminal_;
  bool lineOpen_ = false;
  int shown_ = -1;
};

}  // namespace tarn_tool

#endif  // TARN_TOOLS_CONSOLE_H
