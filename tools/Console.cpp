// The command's own output.
#include "tools/Console.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <system_error>

namespace tarn_tool {

namespace {

void PrintLine(FILE* stream, const char* format, va_list arguments) {
  // The stream's lock keeps the library's lines, printed on other threads, out of this one.
  flockfile(stream);
  fputs("tarn: ", stream);
  vfprintf(stream, format, arguments);
  fputc('\n', stream);
  fflush(stream);
  funlockfile(stream);
}

}  // namespace

void Say(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  PrintLine(stdout, format, arguments);
  va_end(arguments);
}

void Complain(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  PrintLine(stderr, format, arguments);
  va_end(arguments);
}

std::string ErrorText() {
  return std::generic_category().message(errno);
}

const char* ResultWords(unsigned int code) {
  switch (code) {
    case 0:
      return "success";
    case 1:
      return "the connection could not be made or was refused";
    case 2000:
      return "the server has no such file";
    case 2001:
      return "the file could not be created";
    case 2002:
      return "the file that arrived has another MD5";
    case 2003:
      return "the connection was closed, or reading or sending failed, before the end";
    default:
      return "an unknown result";
  }
}

Progress::Progress() : terminal_(isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  End();
}

void Progress::Show(int percent) {
  if (percent == shown_) return;
  shown_ = percent;
  if (!terminal_) {
    Complain("%3d %%", percent);
    return;
  }
  constexpr size_t kWidth = 40;
  const size_t done = kWidth * static_cast<size_t>(std::clamp(percent, 0, 100)) / 100;
  const std::string bar = std::string(done, '#') + std::string(kWidth - done, '.');
  fprintf(stderr, "\rtarn: [%s] %3d %%", bar.c_str(), percent);
  fflush(stderr);
  lineOpen_ = true;
}

void Progress::End() {
  if (!lineOpen_) return;
  fputc('\n', stderr);
  lineOpen_ = false;
}

}  // namespace tarn_tool
