// Opening the files that the transfer services read and write.
#include "utility/os/StreamFile.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>

#include "utility/os/Socket.h"

namespace Tarn::Os {

namespace {

constexpr int kReading = O_RDONLY | O_NONBLOCK | O_NOCTTY;
constexpr int kBeneathAttempts = 16;

Descriptor Open(const char* path, int flags) {
  int fd = -1;
  do {
    fd = open(path, flags | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  return Descriptor(fd < 0 ? -1 : AboveStandardStreams(fd));
}

/// glibc has no wrapper for this call, and older kernels do not have the call.
Descriptor OpenBeneath(const Descriptor& folder, const char* path, int flags) {
  open_how how{};
  how.flags = static_cast<uint64_t>(flags | O_CLOEXEC);
  how.resolve = RESOLVE_BENEATH;
  long fd = -1;
  int attempts = kBeneathAttempts;
  do {
    fd = syscall(SYS_openat2, folder.Get(), path, &how, sizeof how);
    // EAGAIN: something was renamed on the way, so that the kernel cannot tell.
  } while (fd < 0 && (errno == EINTR || (errno == EAGAIN && --attempts > 0)));
  return Descriptor(fd < 0 ? -1 : AboveStandardStreams(static_cast<int>(fd)));
}

FilePtr ToStream(Descriptor file, const char* mode) {
  FilePtr stream(fdopen(file.Get(), mode));
  if (stream) static_cast<void>(file.Release());
  return stream;
}

FilePtr ToRegularStream(Descriptor file, const char* mode) {
  if (!file.Valid()) return nullptr;
  struct stat status {};
  if (fstat(file.Get(), &status) != 0) return nullptr;
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return nullptr;
  }
  return ToStream(std::move(file), mode);
}

}  // namespace

FilePtr OpenRegularFile(const char* path) {
  return ToRegularStream(Open(path, kReading), "rb");
}

FilePtr OpenRegularFileBeneath(const char* folder, const char* path) {
  const Descriptor root = Open(folder, O_PATH | O_DIRECTORY);
  if (!root.Valid()) return nullptr;
  return ToRegularStream(OpenBeneath(root, path, kReading), "rb");
}

FilePtr RewriteRegularFile(const char* path) {
  return ToRegularStream(Open(path, O_RDWR | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOCTTY), "w+b");
}

FilePtr CreateNewFile(const char* path) {
  Descriptor file = Open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY);
  if (!file.Valid()) return nullptr;
  FilePtr stream = ToStream(std::move(file), "w+b");
  if (!stream) unlink(path);
  return stream;
}

int64_t FileLength(FILE* file) {
  struct stat status {};
  return fstat(fileno(file), &status) == 0 ? status.st_size : -1;
}

size_t ReadAt(FILE* file, uint64_t offset, char* buffer, size_t length) {
  size_t done = 0;
  while (done < length) {
    const ssize_t count =
        pread(fileno(file), buffer + done, length - done, static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<size_t>(count);
  }
  return done;
}

}  // namespace Tarn::Os
