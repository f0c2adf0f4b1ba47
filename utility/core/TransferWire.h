// What the upload and the download protocol have in common, without sockets and files: a header
// whose first field is the length of everything, itself included, and then the file in blocks.
#ifndef TARN_UTILITY_CORE_TRANSFERWIRE_H
#define TARN_UTILITY_CORE_TRANSFERWIRE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Tarn::Core {

constexpr size_t kTransferBlockBytes = 1048576;
/// An MD5 as hexadecimal text.
constexpr size_t kTransferMd5Bytes = 32;

/// The longest file whose total length fits the header's 32-bit field.
constexpr uint64_t LongestTransfer(size_t headerBytes) {
  return UINT32_MAX - headerBytes;
}

/// A length that can be announced; -1, which is none, cannot.
constexpr bool IsTransferable(int64_t fileBytes, size_t headerBytes) {
  return fileBytes >= 0 && static_cast<uint64_t>(fileBytes) <= LongestTransfer(headerBytes);
}

/// Copies what fits before the last byte and fills the rest with zeros.
template <size_t kSize>
void CopyText(char (&out)[kSize], std::string_view text) {
  text = text.substr(0, kSize - 1);
  std::fill(std::copy(text.begin(), text.end(), out), out + kSize, '\0');
}

/// The text before the first NUL.
std::string_view UpToNul(std::string_view text);

/// The blocks of one file. Peers see the end of a transfer by this rule: the loop runs up to the
/// file's size plus the header's, so that a file which ends on a block's edge, or less than the
/// header's size before it, is read once more, at its end.
class FileBlocks {
 public:
  FileBlocks(uint64_t fileSize, size_t headerBytes)
      : fileSize_(fileSize), total_(fileSize + headerBytes) {}

  [[nodiscard]] bool HasNext() const { return offset_ < total_; }
  [[nodiscard]] uint64_t Offset() const { return offset_; }
  /// How much to read at Offset(); 0 for the read at the file's end.
  [[nodiscard]] size_t Length() const;
  /// Counts what was read and moves to the next block; the progress in percent.
  int Advance(size_t readBytes);

 private:
  uint64_t fileSize_;
  uint64_t total_;
  uint64_t offset_ = 0;
  uint64_t sent_ = 0;
};

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_TRANSFERWIRE_H
