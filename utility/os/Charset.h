// Character-set conversion between GBK and UTF-8.
#ifndef TARN_UTILITY_OS_CHARSET_H
#define TARN_UTILITY_OS_CHARSET_H

#include <cstddef>
#include <string_view>

namespace Tarn::Os {

enum class Charset { kGbkToUtf8, kUtf8ToGbk };

/// How far a conversion has come.
struct Converted {
  size_t taken = 0;    ///< bytes of the input; all of it unless something could not be converted
  size_t written = 0;  ///< bytes of the output
};

/// Converts up to the end of the text or the first invalid or incomplete character, or until `room`
/// bytes are full. May be called from any thread. @return false when the platform has no such
/// converter
bool ConvertCharset(Charset kind, std::string_view text, char* out, size_t room, Converted& done);

}  // namespace Tarn::Os

#endif  // TARN_UTILITY_OS_CHARSET_H
