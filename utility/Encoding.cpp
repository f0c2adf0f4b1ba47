// Base64, hexadecimal text and character sets.
#include <Tarn/Generic/Encoding.h>

#include <climits>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string_view>

#include "utility/core/Base64.h"
#include "utility/core/HexText.h"
#include "utility/os/Charset.h"

namespace {

namespace Core = Tarn::Core;
namespace Os = Tarn::Os;

// Frees the last result only when the next one is ready: it may have been the input.
char* Replace(char*& buffer, char* result) {
  delete[] buffer;
  buffer = result;
  return result;
}

// Room for a text of that length in either character set; null when memory is short.
char* NewText(size_t length) {
  return new (std::nothrow) char[2 * length + 1];
}

char* CopyText(const char* text) {
  if (text == nullptr) return nullptr;
  const size_t length = std::strlen(text);
  char* copy = NewText(length);
  if (copy != nullptr) std::memcpy(copy, text, length + 1);
  return copy;
}

char* ConvertText(Os::Charset kind, const char* text) {
  if (text == nullptr) return nullptr;
  const size_t length = std::strlen(text);
  const size_t room = 2 * length;
  char* result = NewText(length);
  if (result == nullptr) return nullptr;
  Os::Converted done;
  if (!Os::ConvertCharset(kind, {text, length}, result, room, done)) {
    std::memcpy(result, text, length + 1);
    return result;
  }
  std::memset(result + done.written, 0, room - done.written + 1);
  if (done.taken < length) {
    // Kept: the rest that could not be converted takes the place of what could. Callers show it as
    // the text that it is.
    std::memcpy(result, text + done.taken, length - done.taken + 1);
  }
  return result;
}

}  // namespace

std::string base64_encode(const unsigned char* data, unsigned int len) try {
  std::string text(data == nullptr ? 0 : Core::Base64EncodedLength(len), '\0');
  if (data != nullptr) Core::EncodeBase64(data, len, text.data());
  return text;
} catch (const std::exception&) {
  return std::string();
}

std::string base64_decode(const std::string& text) try {
  std::string bytes(Core::Base64DecodedLimit(text.size()), '\0');
  bytes.resize(Core::DecodeBase64(text, reinterpret_cast<unsigned char*>(bytes.data())));
  return bytes;
} catch (const std::exception&) {
  return std::string();
}

wchar_t* AnsiToUnicode(const char* /*text*/) {
  return nullptr;
}

char* UnicodeToAnsi(const wchar_t* /*text*/) {
  return nullptr;
}

namespace Tarn {
namespace Generic {

CEncoding::CEncoding() : m_pBuffer(nullptr), m_pBuffer2(nullptr) {}

CEncoding::~CEncoding() {
  delete[] m_pBuffer;
  delete[] m_pBuffer2;
}

char* CEncoding::ToBase64String(unsigned char* data, unsigned int len) {
  if (data == nullptr || len == 0) return Replace(m_pBuffer, nullptr);
  const size_t length = Core::Base64EncodedLength(len);
  char* text = new (std::nothrow) char[length + 1];
  if (text != nullptr) {
    Core::EncodeBase64(data, len, text);
    text[length] = '\0';
  }
  return Replace(m_pBuffer, text);
}

char* CEncoding::FromBase64String(const char* text, int& len) {
  len = 0;
  if (text == nullptr) return Replace(m_pBuffer, nullptr);
  const std::string_view input(text);
  std::unique_ptr<char[]> bytes(
      new (std::nothrow) char[Core::Base64DecodedLimit(input.size()) + 1]);
  if (bytes == nullptr) return Replace(m_pBuffer, nullptr);
  const size_t count = Core::DecodeBase64(input, reinterpret_cast<unsigned char*>(bytes.get()));
  if (count == 0 || count > INT_MAX) return Replace(m_pBuffer, nullptr);
  bytes[count] = '\0';
  len = static_cast<int>(count);
  return Replace(m_pBuffer, bytes.release());
}

char* CEncoding::ToUTF8(const char* text) {
  return Replace(m_pBuffer, CopyText(text));
}

char* CEncoding::ToGBK(const char* text) {
  return Replace(m_pBuffer, CopyText(text));
}

char* CEncoding::ToUTF8v2(const char* text) {
  return Replace(m_pBuffer, ConvertText(Os::Charset::kGbkToUtf8, text));
}

char* CEncoding::ToGBKv2(const char* text) {
  return Replace(m_pBuffer, ConvertText(Os::Charset::kUtf8ToGbk, text));
}

int CEncoding::Bin2Str(char* out, unsigned char* data, int len) {
  if (out == nullptr || len < 0 || (data == nullptr && len > 0)) return 0;
  const size_t length = static_cast<size_t>(len);
  Core::WriteHexText(data, length, out);
  out[3 * length] = '\0';
  return len;
}

int CEncoding::Str2Bin(unsigned char* out, const char* text) {
  if (out == nullptr || text == nullptr) return 0;
  return static_cast<int>(Core::ReadHexText(text, out));
}

}  // namespace Generic
}  // namespace Tarn
