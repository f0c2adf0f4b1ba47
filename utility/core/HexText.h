// Bytes as text: two hexadecimal digits and a blank for each.
#ifndef TARN_UTILITY_CORE_HEXTEXT_H
#define TARN_UTILITY_CORE_HEXTEXT_H

#include <cstddef>

namespace Tarn::Core {

/// Writes "0A FF " for the bytes 0x0A 0xFF: exactly 3 * length characters, without a NUL.
void WriteHexText(const unsigned char* data, size_t length, char* out);

/// Reads a NUL-ended text: blanks are skipped, and every two other characters are one byte, read as
/// scanf reads "%02hhX" from there on. A byte that cannot be read keeps its old value and counts. A
/// last character alone is a byte, too.
/// @param out  room for one byte per two characters, rounded up
/// @return the number of bytes
size_t ReadHexText(const char* text, unsigned char* out);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_HEXTEXT_H
