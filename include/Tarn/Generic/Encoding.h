/// @file
/// Base64, hexadecimal text and the GBK and UTF-8 character sets. Public: may include only public
/// headers.
#ifndef TARN_GENERIC_ENCODING_H
#define TARN_GENERIC_ENCODING_H

#include <Tarn/Generic/Api.h>

#include <string>

/// Base64 (RFC 4648, standard alphabet, "=" padding, no line breaks). Null data counts as empty.
TARN_API std::string base64_encode(const unsigned char* data, unsigned int len);

/// Decodes base64 up to the end of the text, the first "=", or the first character outside the
/// alphabet; what follows is ignored. A last group of two or three characters gives one or two
/// bytes.
TARN_API std::string base64_decode(const std::string& text);

/// Not supported. @return null
TARN_API wchar_t* AnsiToUnicode(const char* text);

/// Not supported. @return null
TARN_API char* UnicodeToAnsi(const wchar_t* text);

namespace Tarn {
namespace Generic {

using ::base64_decode;
using ::base64_encode;

/// Converts between bytes and text.
///
/// The texts that a conversion returns belong to the object: valid until its next conversion or its
/// end. Null input gives null. Threads: an object is used by one thread at a time. No call throws.
class TARN_API CEncoding {
 public:
  CEncoding();
  ~CEncoding();
  CEncoding(const CEncoding&) = delete;
  CEncoding& operator=(const CEncoding&) = delete;

  /// Base64 of the bytes. @return the text; null when len is 0 or memory is short
  char* ToBase64String(unsigned char* data, unsigned int len);

  /// Decodes base64 as base64_decode does.
  /// @param len  receives the number of bytes
  /// @return the bytes with a NUL behind them; null (and len 0) when there are none or memory is
  ///         short
  char* FromBase64String(const char* text, int& len);

  /// A copy, not converted: texts of this system are in the right character set already.
  char* ToUTF8(const char* text);

  /// A copy, not converted, as ToUTF8.
  char* ToGBK(const char* text);

  /// Converts GBK to UTF-8. When a character cannot be converted, the result is the rest of the
  /// input from that character on, unconverted, laid over the beginning of what was converted
  /// before it.
  char* ToUTF8v2(const char* text);

  /// Converts UTF-8 to GBK; failures as with ToUTF8v2.
  char* ToGBKv2(const char* text);

  /// Writes every byte as two upper-case hexadecimal digits and a blank, and a NUL at the end.
  /// @param out  3 * len + 1 bytes
  /// @return len; 0, and nothing is written, when len is negative or bytes or `out` are missing
  int Bin2Str(char* out, unsigned char* data, int len);

  /// Reads pairs of hexadecimal digits; blanks between pairs are skipped. A pair is read as scanf
  /// reads "%02hhX", so white space and signs in it are accepted; one that does not parse counts,
  /// but leaves its byte of `out` as it was. A digit alone at the end of the text is a pair.
  /// @param out  one byte for every pair
  /// @return the number of pairs
  int Str2Bin(unsigned char* out, const char* text);

 private:
  char* m_pBuffer;   // the result of the last conversion, or null
  char* m_pBuffer2;  // always null; part of the layout that hosts are built with
};

}  // namespace Generic
}  // namespace Tarn

#endif  // TARN_GENERIC_ENCODING_H
