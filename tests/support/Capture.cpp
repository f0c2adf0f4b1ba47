#include "tests/support/Capture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace tarn_test {

StreamCapture::StreamCapture(FILE* stream)
    : stream_(stream), saved_(dup(fileno(stream))), file_(memfd_create("capture", MFD_CLOEXEC)) {
  if (saved_ == -1 || file_ == -1) std::abort();
  fflush(stream_);
  dup2(file_, fileno(stream_));
}

StreamCapture::~StreamCapture() {
  fflush(stream_);
  dup2(saved_, fileno(stream_));
  close(saved_);
  close(file_);
}

std::string StreamCapture::Text() {
  fflush(stream_);
  std::string text;
  std::array<char, 65536> block{};
  ssize_t count = 0;
  while ((count = pread(file_, block.data(), block.size(), static_cast<off_t>(text.size()))) > 0) {
    text.append(block.data(), static_cast<size_t>(count));
  }
  return text;
}

}  // namespace tarn_test
