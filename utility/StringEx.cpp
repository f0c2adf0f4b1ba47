// The library's text class: 64 bytes inside the object, a malloc block beyond 62 characters.
//
// The length is not stored: hosts shorten texts in place, through SetAt or the pointer that ToUpper
// returns. The last byte of the inline buffer and of every heap block is always NUL, so that a text
// ends inside its storage whatever is written to it.
#include <Tarn/Generic/StringEx.h>

#include <ctype.h>
#include <malloc.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>

#include "utility/core/TextSearch.h"

namespace Tarn::Generic {

namespace {

constexpr size_t kMaxInline = 62;          // characters
constexpr size_t kMaxFormatted = 10239;    // characters
constexpr size_t kMaxSmallFormatted = 63;  // characters

static_assert(sizeof(CStringEx) == 72, "hosts construct these themselves");

const char* OrEmpty(const char* s) {
  return s == nullptr ? "" : s;
}

int ToInt(size_t value) {
  return static_cast<int>(std::min<size_t>(value, INT_MAX));
}

size_t Clamp(int value, size_t most) {
  return value < 0 ? 0 : std::min(static_cast<size_t>(value), most);
}

// A block with room for `length` characters, holding what `old` held; null (and `old` as it was)
// when memory is short.
char* Resize(char* old, size_t length) {
  auto* block = static_cast<char*>(realloc(old, length + 1));
  if (block != nullptr) block[malloc_usable_size(block) - 1] = '\0';
  return block;
}

// Gives the length as the platform counts it: beyond the buffer for a text that was cut, negative
// for one that was refused. The buffer is left as it is behind the text: clearing it would cost
// more than the formatting.
__attribute__((format(printf, 3, 0))) int Print(char* text, size_t size, const char* format,
                                                va_list args) {
  *text = '\0';
  return format == nullptr ? 0 : vsnprintf(text, size, format, args);
}

char* CopyTo(char* to, const char* from, size_t length) {
  memcpy(to, from, length);
  return to + length;
}

// A text with some of its parts, `partLength` each, to be replaced.
struct Substitution {
  std::string_view text;
  const std::vector<size_t>& parts;
  size_t partLength;
  std::string_view inserted;

  [[nodiscard]] size_t Length(size_t count) const {
    return text.size() - count * partLength + count * inserted.size();
  }

  // Writes the text with the first `count` parts replaced, and a NUL.
  void Write(char* to, size_t count) const {
    size_t from = 0;
    for (size_t i = 0; i < count; ++i) {
      to = CopyTo(to, text.data() + from, parts[i] - from);
      to = CopyTo(to, inserted.data(), inserted.size());
      from = parts[i] + partLength;
    }
    *CopyTo(to, text.data() + from, text.size() - from) = '\0';
  }
};

// A new block with `head` and `tail`; null when memory is short.
char* Join(const char* head, size_t headLength, const char* tail, size_t tailLength) {
  char* block = Resize(nullptr, headLength + tailLength);
  if (block == nullptr) return nullptr;
  *CopyTo(CopyTo(block, head, headLength), tail, tailLength) = '\0';
  return block;
}

// The block, perhaps moved, with `tail` (which may lie in it) behind its text; null when memory is
// short.
char* Extend(char* block, size_t length, const char* tail, size_t tailLength) {
  const size_t size = malloc_usable_size(block);
  const size_t offset = reinterpret_cast<uintptr_t>(tail) - reinterpret_cast<uintptr_t>(block);
  const bool isOwn = offset < size;
  if (length + tailLength >= size) block = Resize(block, length + tailLength);
  if (block == nullptr) return nullptr;
  memmove(block + length, isOwn ? block + offset : tail, tailLength);
  block[length + tailLength] = '\0';
  return block;
}

}  // namespace

CStringEx::CStringEx() : m_pData(m_szBuffer) {
  m_szBuffer[0] = '\0';
  m_szBuffer[sizeof(m_szBuffer) - 1] = '\0';
}

CStringEx::CStringEx(char c) : CStringEx() {
  m_szBuffer[0] = c;
  m_szBuffer[1] = '\0';
}

CStringEx::CStringEx(const char* s, int len) : CStringEx() {
  Assign(s, len);
}

CStringEx::CStringEx(const CStringEx& other) : CStringEx() {
  Assign(other.m_pData, -1);
}

CStringEx::~CStringEx() {
  if (m_pData != m_szBuffer) free(m_pData);
}

void CStringEx::Assign(const char* s, int len) {
  s = OrEmpty(s);
  const size_t given = len < 0 ? strlen(s) : strnlen(s, static_cast<size_t>(len));
  const size_t length = len < 0 ? given : static_cast<size_t>(len);
  char* text = m_szBuffer;
  if (length > kMaxInline) {
    const bool fits = m_pData != m_szBuffer && length <= strlen(m_pData);
    text = fits ? m_pData : Resize(nullptr, length);
    if (text == nullptr) return;
  }
  memmove(text, s, given);
  if (given < length) memset(text + given, 0, length - given);
  text[length] = '\0';
  if (text == m_pData) return;
  if (m_pData != m_szBuffer) free(m_pData);  // not before: s may point into it
  m_pData = text;
}

CStringEx& CStringEx::operator=(const CStringEx& other) {
  Assign(other.m_pData, -1);
  return *this;
}

CStringEx& CStringEx::operator=(const char* s) {
  Assign(s, -1);
  return *this;
}

CStringEx& CStringEx::operator=(char c) {
  Empty();
  m_szBuffer[0] = c;
  m_szBuffer[1] = '\0';
  return *this;
}

void CStringEx::Empty() {
  if (m_pData != m_szBuffer) free(m_pData);
  m_pData = m_szBuffer;
  m_szBuffer[0] = '\0';
}

bool CStringEx::IsEmpty() const {
  return *m_pData == '\0';
}

int CStringEx::GetLength() const {
  return ToInt(strlen(m_pData));
}

CStringEx::operator const char*() const {
  return m_pData;
}

const char* CStringEx::GetData() const {
  return m_pData;
}

const char* CStringEx::c_str() const {
  return m_pData;
}

char CStringEx::GetAt(int i) const {
  const size_t size = m_pData == m_szBuffer ? sizeof(m_szBuffer) : malloc_usable_size(m_pData);
  return i >= 0 && static_cast<size_t>(i) < size ? m_pData[i] : '\0';
}

char CStringEx::operator[](int i) const {
  return GetAt(i);
}

void CStringEx::SetAt(int i, char c) {
  const size_t size = m_pData == m_szBuffer ? sizeof(m_szBuffer) : malloc_usable_size(m_pData);
  if (i >= 0 && static_cast<size_t>(i) < size - 1) m_pData[i] = c;
}

void CStringEx::Append(const char* s) {
  if (s == nullptr) return;
  const size_t added = strlen(s);
  const size_t length = strlen(m_pData);
  char* old = m_pData == m_szBuffer ? nullptr : m_pData;
  if (old != nullptr && length + added > kMaxInline) {
    char* extended = Extend(old, length, s, added);
    if (extended != nullptr) m_pData = extended;
    return;
  }
  // Kept: a long text that was shortened in place is dropped here, and s goes behind what the
  // inline buffer held last. Hosts have come to know these texts.
  const size_t kept = old == nullptr ? length : strlen(m_szBuffer);
  char* text = m_szBuffer;
  if (kept + added > kMaxInline) {
    text = Join(m_szBuffer, kept, s, added);
    if (text == nullptr) return;
  } else {
    memmove(text + kept, s, added);
    text[kept + added] = '\0';
  }
  m_pData = text;
  free(old);  // last: s may point into it
}

CStringEx& CStringEx::operator+=(const CStringEx& other) {
  Append(other.m_pData);
  return *this;
}

CStringEx& CStringEx::operator+=(const char* s) {
  Append(s);
  return *this;
}

CStringEx& CStringEx::operator+=(char c) {
  const char text[] = {c, '\0'};
  Append(text);
  return *this;
}

CStringEx CStringEx::operator+(const CStringEx& other) const {
  return *this + other.m_pData;
}

CStringEx CStringEx::operator+(const char* s) const {
  CStringEx sum(*this);
  sum.Append(s);
  return sum;
}

int CStringEx::Compare(const char* s) const {
  return strcmp(m_pData, OrEmpty(s));
}

bool CStringEx::operator==(const char* s) const {
  return Compare(s) == 0;
}

bool CStringEx::operator!=(const char* s) const {
  return Compare(s) != 0;
}

bool CStringEx::operator<(const char* s) const {
  return Compare(s) < 0;
}

bool CStringEx::operator<=(const char* s) const {
  return Compare(s) <= 0;
}

bool CStringEx::operator>(const char* s) const {
  return Compare(s) > 0;
}

bool CStringEx::operator>=(const char* s) const {
  return Compare(s) >= 0;
}

char* CStringEx::ToUpper() {
  return strtoUpper(m_pData);
}

char* CStringEx::ToLower() {
  return strtoLower(m_pData);
}

CStringEx CStringEx::Left(int n) const {
  return {m_pData, ToInt(Clamp(n, strlen(m_pData)))};
}

CStringEx CStringEx::Right(int n) const {
  const size_t length = strlen(m_pData);
  return {m_pData + length - Clamp(n, length), -1};
}

CStringEx CStringEx::SubString(int start, int count) const {
  const size_t length = strlen(m_pData);
  const size_t from = Clamp(start, length);
  const size_t rest = length - from;
  return {m_pData + from, ToInt(count < 0 ? rest : Clamp(count, rest))};
}

int CStringEx::Find(char c, int start) const {
  if (start < 0) return -1;
  const auto from = static_cast<size_t>(start);
  // Kept: unlike the text form below, a start at the end finds nothing, not even the terminator.
  if (from > 0 && strnlen(m_pData, from + 1) <= from) return -1;
  const char* found = strchr(m_pData + from, c);
  return found == nullptr ? -1 : ToInt(static_cast<size_t>(found - m_pData));
}

int CStringEx::Find(const char* s, int start) const {
  if (s == nullptr || start < 0) return -1;
  const auto from = static_cast<size_t>(start);
  if (strnlen(m_pData, from) < from) return -1;
  const char* found = strstr(m_pData + from, s);
  return found == nullptr ? -1 : ToInt(static_cast<size_t>(found - m_pData));
}

int CStringEx::ReverseFind(char c) const {
  const char* found = strrchr(m_pData, c);
  return found == nullptr ? -1 : ToInt(static_cast<size_t>(found - m_pData));
}

bool CStringEx::Contians(char c) {
  return Find(c, 0) >= 0;
}

bool CStringEx::Contians(const char* s) {
  return Find(s, 0) >= 0;
}

bool CStringEx::ContiansChinaChar() {
  const auto high = [this](size_t i) {
    return (static_cast<unsigned char>(m_pData[i]) & 0x80U) != 0;
  };
  const size_t length = strlen(m_pData);
  // Kept: only pairs at even indexes. Hosts choose a conversion by the answer.
  for (size_t i = 0; i + 1 < length; i += 2) {
    if (high(i) && high(i + 1)) return true;
  }
  return false;
}

bool CStringEx::ContiansSpecialChar() {
  for (const char* at = m_pData; *at != '\0'; ++at) {
    if (ispunct(static_cast<unsigned char>(*at)) != 0) return true;
  }
  return false;
}

int CStringEx::Replace(const char* oldText, const char* newText) try {
  if (oldText == nullptr || newText == nullptr || strcmp(oldText, newText) == 0) return 0;
  const std::vector<size_t> parts = Core::FindAll(m_pData, oldText);
  const size_t count = parts.size();
  if (count == 0) return 0;

  const Substitution replaced{m_pData, parts, strlen(oldText), newText};
  const size_t length = replaced.Length(count);
  char shortText[kMaxInline + 1];
  if (length <= kMaxInline) {
    replaced.Write(shortText, count);
    Assign(shortText, -1);
    return ToInt(count);
  }
  char* text = Resize(nullptr, length);
  if (text == nullptr) return 0;
  replaced.Write(text, count);
  if (replaced.Length(1) <= kMaxInline) {
    // Kept: the inline buffer keeps the last step that fitted, for Append to bring back to light.
    const size_t growth = replaced.inserted.size() - replaced.partLength;
    const size_t fitting = (kMaxInline - replaced.text.size()) / growth;
    replaced.Write(shortText, fitting);
    memcpy(m_szBuffer, shortText, replaced.Length(fitting) + 1);
  }
  if (m_pData != m_szBuffer) free(m_pData);
  m_pData = text;
  return ToInt(count);
} catch (const std::exception&) {
  return 0;
}

void CStringEx::Trim(char c) {
  TrimEnd(c);
  TrimStart(c);
}

void CStringEx::TrimEnd(char c) {
  for (size_t i = strlen(m_pData); i > 0 && m_pData[i - 1] == c; --i)
    m_pData[i - 1] = '\0';
}

void CStringEx::TrimStart(char c) {
  if (c == '\0') return;
  const char* rest = m_pData;
  while (*rest == c)
    ++rest;
  if (rest != m_pData) memmove(m_pData, rest, strlen(rest) + 1);
}

std::vector<CStringEx> CStringEx::Split(const char* delimiter) try {
  std::vector<CStringEx> fields;
  const std::string_view text(m_pData);
  if (text.empty()) return fields;
  const std::string_view sought(OrEmpty(delimiter));
  std::vector<size_t> ends = Core::FindAll(text, sought);
  ends.push_back(text.size());
  fields.reserve(ends.size());
  const char* from = text.data();
  for (const size_t end : ends) {
    const auto length = static_cast<size_t>(text.data() + end - from);
    CStringEx& field = fields.emplace_back();
    if (length <= kMaxInline) {
      *CopyTo(field.m_szBuffer, from, length) = '\0';
    } else {
      field.Assign(from, ToInt(length));
    }
    from += length + sought.size();
  }
  return fields;
} catch (const std::exception&) {
  return {};
}

CStringEx& CStringEx::Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  char text[kMaxFormatted + 1];
  const int length = Print(text, sizeof(text), format, args);
  va_end(args);
  // The usual case, without a look for the end of the text.
  if (m_pData == m_szBuffer && length >= 0 && static_cast<size_t>(length) <= kMaxInline) {
    memcpy(m_szBuffer, text, static_cast<size_t>(length) + 1);
  } else {
    Assign(text, -1);
  }
  return *this;
}

CStringEx& CStringEx::AppendFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  char text[kMaxFormatted + 1];
  Print(text, sizeof(text), format, args);
  va_end(args);
  Append(text);
  return *this;
}

CStringEx& CStringEx::SmallFormat(const char* format, ...) {
  va_list args;
  va_start(args, format);
  char text[kMaxSmallFormatted + 1];
  Print(text, sizeof(text), format, args);
  va_end(args);
  Assign(text, -1);
  return *this;
}

}  // namespace Tarn::Generic

char* strtoUpper(char* s) {
  for (char* at = s; at != nullptr && *at != '\0'; ++at) {
    *at = static_cast<char>(toupper(static_cast<unsigned char>(*at)));
  }
  return s;
}

char* strtoLower(char* s) {
  for (char* at = s; at != nullptr && *at != '\0'; ++at) {
    *at = static_cast<char>(tolower(static_cast<unsigned char>(*at)));
  }
  return s;
}
