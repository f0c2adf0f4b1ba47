// Synchronous file log and the printers of diagnostics.
#include "utility/Log.h"

#include <Tarn/Generic/Directory.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string>
#include <string_view>

#include "utility/core/Format.h"
#include "utility/core/LogText.h"
#include "utility/os/LineFile.h"
#include "utility/os/WallClock.h"

namespace Tarn::Generic {

namespace {

/// What a printer says about a folder or file that it cannot make.
struct Complaint {
  int folderLine;
  int fileLine;
  const char* lineEnd;
};

// Kept: source path, line numbers and the blank before one line end. Monitors look for these texts.
constexpr char kSource[] = "utility/Log";
constexpr Complaint kTraceComplaint = {90, 109, "\n"};
constexpr Complaint kTraceExComplaint = {167, 187, " \n"};

FILE* OpenStream(const char* path) {
  Os::Descriptor file = Os::OpenAppend(path);
  if (!file.Valid()) return nullptr;
  FILE* stream = fdopen(file.Get(), "a+");
  if (stream != nullptr) static_cast<void>(file.Release());
  return stream;
}

void CloseSlot(_LogerInfo& slot) {
  if (slot.file != nullptr) fclose(slot.file);
  slot.file = nullptr;
  free(slot.buffer);
  slot.buffer = nullptr;
}

// The program's folder as it was when it was first asked for; null while it cannot be told. Made
// without a lock, which a forked child might find taken for ever; never freed.
const char* StartFolder() {
  static std::atomic<const char*> known{nullptr};
  const char* folder = known;
  if (folder != nullptr) return folder;
  CDirectory directory;
  const char* const current = directory.GetCurrentPath();
  char* const copy = *current == '\0' ? nullptr : strdup(current);
  if (copy == nullptr) return nullptr;
  if (known.compare_exchange_strong(folder, copy)) return copy;
  free(copy);
  return folder;
}

std::string Joined(std::string_view a, std::string_view b) {
  std::string path;
  path.reserve(a.size() + 1 + b.size());
  return path.append(a).append(1, '/').append(b);
}

// As a rule the program is where it was and the folder is there, so the file is simply opened. Only
// when that fails everything is looked at anew: somebody may have moved the program, and the folder
// may have to be made.
Os::Descriptor OpenDailyFile(const char* place, std::string_view name, const Complaint& complaint) {
  if (const char* program = StartFolder()) {
    Os::Descriptor file = Os::OpenAppend(Joined(Joined(program, place), name).c_str());
    if (file.Valid()) return file;
  }
  CDirectory directory;
  const std::string folder = Joined(directory.GetCurrentPath(), place);
  if (!directory.IsExist(folder.c_str()) && !directory.CreateDir(folder.c_str())) {
    printf("%s:%d.....................create dir %s error !%s", kSource, complaint.folderLine,
           folder.c_str(), complaint.lineEnd);
    return Os::Descriptor();
  }
  const std::string path = Joined(folder, name);
  Os::Descriptor file = Os::OpenAppend(path.c_str());
  if (!file.Valid()) {
    printf("%s:%d.....................open file %s error !%s", kSource, complaint.fileLine,
           path.c_str(), complaint.lineEnd);
  }
  return file;
}

/// `place` is the folder, seen from the program's.
__attribute__((format(printf, 3, 0))) void TraceInto(const char* place, const Complaint& complaint,
                                                     const char* fmt, va_list args) {
  const Os::WallTime now = Os::ReadWallClock();
  const std::tm time = Os::LocalTime(now.second);
  const Core::FormattedText line(Core::ClockPrefix(time, now.millisecond).View(), "\r\n",
                                 Core::kLogTextLimit, fmt, args);
  try {
    const Os::Descriptor file = OpenDailyFile(place, Core::DailyFileName(time).View(), complaint);
    if (!file.Valid()) return;
    Os::AppendText(file.Get(), line.View());
    Os::Echo(line.View());
  } catch (const std::bad_alloc&) {
    // No memory for a path: the line is lost, as without a file.
  }
}

}  // namespace

ILog::~ILog() = default;

void ILog::Trace(const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  TraceInto("../logs", kTraceComplaint, fmt, args);
  va_end(args);
}

void ILog::TraceEx(const char* folder, const char* fmt, ...) {
  va_list args;
  va_start(args, fmt);
  TraceInto(folder == nullptr ? "" : folder, kTraceExComplaint, fmt, args);
  va_end(args);
}

void ILog::OutputDebugStr(const char* fmt, ...) {
  const Os::WallTime now = Os::ReadWallClock();
  const std::tm time = Os::LocalTime(now.second);
  va_list args;
  va_start(args, fmt);
  const Core::FormattedText line(Core::ClockPrefix(time, now.millisecond).View(), "\n",
                                 Core::kLogTextLimit, fmt, args);
  va_end(args);
  Os::Echo(line.View());
}

CLog::CLog() : m_type(LOG_TYPE_0), m_info() {}

CLog::~CLog() {
  for (_LogerInfo& slot : m_info)
    CloseSlot(slot);
}

void CLog::Write(const char* fmt, ...) {
  _LogerInfo* slot = ReadySlot();
  if (slot == nullptr || fmt == nullptr) return;
  const auto size = static_cast<size_t>(slot->maxLen);
  slot->buffer[0] = '\0';
  va_list args;
  va_start(args, fmt);
  vsnprintf(slot->buffer, size, fmt, args);
  va_end(args);
  Os::AppendText(fileno(slot->file), {slot->buffer, strnlen(slot->buffer, size)});
}

int CLog::Open(const char* path, LogType type, int maxLen) {
  m_type = type;
  _LogerInfo* slot = Slot();
  if (slot == nullptr) return -1;
  CloseSlot(*slot);
  slot->maxLen = maxLen;
  if (maxLen <= 0) return -ENOENT;
  slot->buffer = static_cast<char*>(malloc(static_cast<size_t>(maxLen)));
  // Kept: "no such file" for a lack of memory. Callers know the number.
  if (slot->buffer == nullptr) return -ENOENT;
  slot->file = path == nullptr ? nullptr : OpenStream(path);
  if (slot->file == nullptr) {
    CloseSlot(*slot);
    return -ESRCH;
  }
  snprintf(slot->path, sizeof(slot->path) - 1, "%s", path);
  return 0;
}

void CLog::Close() {
  if (_LogerInfo* slot = Slot()) CloseSlot(*slot);
}

void CLog::WritePieces(iovec* pieces, size_t count) {
  _LogerInfo* slot = ReadySlot();
  if (slot == nullptr) return;
  auto room = static_cast<size_t>(slot->maxLen) - 1;
  size_t used = 0;
  while (used < count && room > 0) {
    iovec& piece = pieces[used++];
    piece.iov_len = std::min(piece.iov_len, room);
    room -= piece.iov_len;
  }
  Os::AppendPieces(fileno(slot->file), pieces, used);
}

_LogerInfo* CLog::Slot() {
  const auto index = static_cast<size_t>(m_type);
  return index < std::size(m_info) ? &m_info[index] : nullptr;
}

// The open slot, its file made anew when somebody has removed it; null when there is nothing to
// write to.
_LogerInfo* CLog::ReadySlot() {
  _LogerInfo* slot = Slot();
  if (slot == nullptr || slot->buffer == nullptr) return nullptr;
  if (slot->file != nullptr && access(slot->path, F_OK) == 0) return slot;
  if (slot->file != nullptr) fclose(slot->file);
  slot->file = OpenStream(slot->path);
  if (slot->file != nullptr) return slot;
  const int error = errno;
  char reason[128];
  printf("open log file '%s' failed, errmsg: %s.\n", slot->path,
         strerror_r(error, reason, sizeof(reason)));
  return nullptr;
}

ILog* ILog::Create(const char* path, LogType type, int maxLen) {
  auto* log = new (std::nothrow) CLog;
  if (log != nullptr && log->Open(path, type, maxLen) != 0) {
    Delete(log);
    log = nullptr;
  }
  return log;
}

void ILog::Delete(ILog* log) {
  delete log;
}

}  // namespace Tarn::Generic
