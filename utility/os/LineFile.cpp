// Appending whole texts to files that others append to as well, and echoing them.
#include "utility/os/LineFile.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <span>

#include "utility/os/Socket.h"

namespace Tarn::Os {

namespace {

// Removes `count` written bytes from the front.
std::span<iovec> Advance(std::span<iovec> pieces, size_t count) {
  while (!pieces.empty() && count >= pieces.front().iov_len) {
    count -= pieces.front().iov_len;
    pieces = pieces.subspan(1);
  }
  if (count > 0) {
    iovec& first = pieces.front();
    first.iov_base = static_cast<char*>(first.iov_base) + count;
    first.iov_len -= count;
  }
  return pieces;
}

}  // namespace

Descriptor OpenAppend(const char* path) {
  int fd = -1;
  do {
    fd = open(path, O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  // A host that has closed its standard streams must not find a log under their numbers: the log
  // would receive the echo, too.
  return Descriptor(AboveStandardStreams(fd));
}

int AppendPieces(int fd, iovec* pieces, size_t count) {
  std::span<iovec> rest = Advance({pieces, count}, 0);
  while (!rest.empty()) {
    const auto most = static_cast<int>(std::min<size_t>(rest.size(), IOV_MAX));
    const ssize_t written = writev(fd, rest.data(), most);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return -errno;
    if (written == 0) return -EIO;
    rest = Advance(rest, static_cast<size_t>(written));
  }
  return 0;
}

int AppendText(int fd, std::string_view text) {
  iovec piece{const_cast<char*>(text.data()), text.size()};
  return AppendPieces(fd, &piece, 1);
}

void Echo(std::string_view text) {
  fwrite(text.data(), 1, text.size(), stdout);
  fflush(stdout);
}

}  // namespace Tarn::Os
