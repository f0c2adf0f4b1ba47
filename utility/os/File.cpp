// Whole files.
#include "utility/os/File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace Tarn::Os {

namespace {

constexpr size_t kFirstBlock = 4096;
// A pipe or device is read this far at most; one without an end must not take all memory.
constexpr size_t kStreamLimit = size_t{16} << 20;

// The size of a regular file, or -errno; any other file is an error with `regularOnly`, else of
// size 0.
off_t FileSize(int fd, bool regularOnly) {
  struct stat status;
  if (fstat(fd, &status) != 0) return -errno;
  if (S_ISREG(status.st_mode)) return status.st_size;
  return regularOnly ? -EINVAL : 0;
}

ssize_t ReadSome(int fd, char* to, size_t room) {
  ssize_t got;
  do {
    got = read(fd, to, room);
  } while (got < 0 && errno == EINTR);
  return got < 0 ? -errno : got;
}

// Reads from the current position to the end; `size` is what the file seems to hold, 0 when
// unknown.
int ReadToEnd(int fd, size_t size, std::string& content) {
  size_t have = 0;
  content.resize(size > 0 ? size + 1 : kFirstBlock);  // one more, so that one read shows the end
  while (true) {
    const ssize_t got = ReadSome(fd, content.data() + have, content.size() - have);
    if (got < 0) return static_cast<int>(got);
    have += static_cast<size_t>(got);
    if (got == 0 || have == size) break;
    if (have == content.size()) content.resize(content.size() * 2);
    if (size == 0 && have >= kStreamLimit) return -EFBIG;
  }
  content.resize(have);
  return 0;
}

int WriteAt(int fd, std::string_view content) {
  size_t done = 0;
  while (done < content.size()) {
    const ssize_t put =
        pwrite(fd, content.data() + done, content.size() - done, static_cast<off_t>(done));
    if (put < 0 && errno != EINTR) return -errno;
    if (put > 0) done += static_cast<size_t>(put);
  }
  return 0;
}

// Takes the room for a longer file before anything in it is changed.
int Grow(int fd, size_t from, size_t to) {
  int error;
  do {
    error = posix_fallocate(fd, static_cast<off_t>(from), static_cast<off_t>(to - from));
  } while (error == EINTR);
  return -error;
}

int Cut(int fd, size_t size) {
  int result;
  do {
    result = ftruncate(fd, static_cast<off_t>(size));
  } while (result != 0 && errno == EINTR);
  return result != 0 ? -errno : 0;
}

}  // namespace

int OpenFile(const char* path, int flags, mode_t mode) {
  int fd;
  do {
    fd = open(path, flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return -errno;
  if (fd > STDERR_FILENO) return fd;
  // A host that closed its standard streams must not find our file behind them.
  const Descriptor low(fd);
  const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  return moved < 0 ? -errno : moved;
}

int ReadWholeFile(const char* path, std::string& content) {
  const int fd = OpenFile(path, O_RDONLY);
  if (fd < 0) return fd;
  const Descriptor file(fd);
  const off_t size = FileSize(fd, false);
  return size < 0 ? static_cast<int>(size) : ReadToEnd(fd, static_cast<size_t>(size), content);
}

int EditedFile::Open(const char* path, bool create) {
  int fd = OpenFile(path, O_RDWR);
  if (fd == -ENOENT && create) {
    fd = OpenFile(path, O_RDWR | O_CREAT | O_EXCL, 0666);
    // Somebody was quicker, or the path is a link to a file that does not exist yet: whatever is
    // there then is edited like any other file.
    if (fd == -EEXIST) fd = OpenFile(path, O_RDWR | O_CREAT, 0666);
  }
  if (fd < 0) return fd;
  file_.Reset(fd);
  const off_t size = FileSize(fd, true);
  return size < 0 ? static_cast<int>(size) : ReadToEnd(fd, static_cast<size_t>(size), content_);
}

int EditedFile::Replace(std::string_view content) {
  const int fd = file_.Get();
  int error = 0;
  if (content.size() > content_.size()) error = Grow(fd, content_.size(), content.size());
  if (error == 0) error = WriteAt(fd, content);
  if (error == 0 && content.size() < content_.size()) error = Cut(fd, content.size());
  if (error != 0) Restore();
  return error;
}

void EditedFile::Restore() {
  // Best effort: the old bytes have their blocks, so this needs no room.
  WriteAt(file_.Get(), content_);
  Cut(file_.Get(), content_.size());
}

}  // namespace Tarn::Os
