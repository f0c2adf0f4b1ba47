// Base64 with the standard alphabet and "=" padding (RFC 4648), without line breaks.
#ifndef TARN_UTILITY_CORE_BASE64_H
#define TARN_UTILITY_CORE_BASE64_H

#include <cstddef>
#include <string_view>

namespace Tarn::Core {

constexpr size_t Base64EncodedLength(size_t bytes) {
  return bytes / 3 * 4 + (bytes % 3 != 0 ? 4 : 0);
}

/// Writes exactly Base64EncodedLength(length) characters, without a NUL.
void EncodeBase64(const unsigned char* data, size_t length, char* out);

/// The most that a text of this length decodes to.
constexpr size_t Base64DecodedLimit(size_t characters) {
  return characters / 4 * 3 + characters % 4 * 3 / 4;
}

/// Decodes up to the first character outside the alphabet (so at the padding, too).
/// @param out  room for Base64DecodedLimit(text.size()) bytes
/// @return the bytes written
size_t DecodeBase64(std::string_view text, unsigned char* out);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_BASE64_H
