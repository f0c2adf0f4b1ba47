// What the upload and the download protocol have in common, without sockets and files.
#include "utility/core/TransferWire.h"

namespace Tarn::Core {

std::string_view UpToNul(std::string_view text) {
  return text.substr(0, text.find('\0'));
}

size_t FileBlocks::Length() const {
  if (offset_ >= fileSize_) return 0;
  return static_cast<size_t>(std::min<uint64_t>(fileSize_ - offset_, kTransferBlockBytes));
}

int FileBlocks::Advance(size_t readBytes) {
  offset_ += kTransferBlockBytes;
  sent_ += readBytes;
  if (sent_ >= fileSize_) return 100;
  return static_cast<int>(100.0 * static_cast<double>(sent_) / static_cast<double>(fileSize_));
}

}  // namespace Tarn::Core
