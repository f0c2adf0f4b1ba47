// INI profile files: whole texts in, whole texts out; the rules are in core/IniText.
#include <Tarn/Generic/Profile.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "utility/core/IniText.h"
#include "utility/os/File.h"

namespace Core = Tarn::Core;
namespace Os = Tarn::Os;

namespace {

// One rewrite at a time, so that writers of this process do not lose each other's changes.
std::mutex rewriteLock;

// `text` may lie in `buffer`.
size_t PutText(std::string_view text, char* buffer, size_t size) {
  const size_t length = std::min(text.size(), size - 1);
  std::memmove(buffer, text.data(), length);
  buffer[length] = '\0';
  return length;
}

size_t PutDefault(const char* def, char* buffer, size_t size) {
  if (def == nullptr) return 0;
  // Cut first: a closing quote that does not fit leaves the opening one.
  std::string_view text(def, strnlen(def, size - 1));
  text = Core::TrimIniEnd(Core::TrimIniStart(text));
  Core::StripIniQuotes(text);
  return PutText(text, buffer, size);
}

// Keeps a piece of the text that it lies in.
void KeepOnly(char* text, std::string_view piece) {
  PutText(piece, text, piece.size() + 1);
}

}  // namespace

size_t GetPrivateProfileString(const char* section, const char* key, const char* def, char* buffer,
                               size_t size, const char* file) try {
  if (buffer == nullptr || file == nullptr || size == 0) return 0;
  buffer[0] = '\0';
  std::string text;
  if (Os::ReadWholeFile(file, text) != 0) return PutDefault(def, buffer, size);
  if (section == nullptr) return Core::ListIniSections(text, buffer, size).length;
  if (key == nullptr) {
    const Core::IniList keys = Core::ListIniKeys(text, section, buffer, size);
    return keys.found ? keys.length : PutDefault(def, buffer, size);
  }
  const std::optional<std::string_view> value = Core::FindIniValue(text, section, key);
  return value ? PutText(*value, buffer, size) : PutDefault(def, buffer, size);
} catch (const std::exception&) {
  return PutDefault(def, buffer, size);
}

size_t GetPrivateProfileSectionNames(char* buffer, size_t size, const char* file) {
  return GetPrivateProfileString(nullptr, nullptr, nullptr, buffer, size, file);
}

int WritePrivateProfileString(const char* section, const char* key, const char* value,
                              const char* file) try {
  if (section == nullptr || file == nullptr) return 0;
  const std::lock_guard<std::mutex> guard(rewriteLock);
  Os::EditedFile edited;
  if (edited.Open(file, key != nullptr && value != nullptr) != 0) return 0;
  std::string text;
  const bool result = Core::RewriteIni(edited.Content(), {section, key, value}, text);
  return edited.Replace(text) == 0 && result ? 1 : 0;
} catch (const std::exception&) {
  return 0;
}

void rmlead(char* text) {
  if (text != nullptr) KeepOnly(text, Core::TrimIniStart(text));
}

void rmtrail(char* text) {
  if (text != nullptr) KeepOnly(text, Core::TrimIniEnd(text));
}

int rmquotes(char* text) {
  if (text == nullptr) return 0;
  std::string_view inner(text);
  if (!Core::StripIniQuotes(inner)) return 0;
  KeepOnly(text, inner);
  return 1;
}

int rmbrackets(char* text) {
  if (text == nullptr) return 0;
  std::string_view inner;
  if (!Core::ParseIniHeader(text, inner)) return 0;
  KeepOnly(text, inner);
  return 1;
}

char* stptok(const char* src, char* dst, size_t size, const char* delimiters) {
  if (src == nullptr || dst == nullptr || size == 0 || *src == '\0') return nullptr;
  if (delimiters == nullptr) delimiters = "";
  const size_t length = strnlen(src, std::min(size - 1, std::strcspn(src, delimiters)));
  std::memmove(dst, src, length);
  const char* rest = src + length;
  rest += std::strspn(rest, delimiters);
  dst[length] = '\0';
  return *rest == '\0' ? nullptr : const_cast<char*>(rest);
}

void filecopy(FILE* dest, FILE* src) {
  if (dest == nullptr || src == nullptr) return;
  char block[512];
  size_t got = 0;
  do {
    got = fread(block, 1, sizeof(block), src);
    fwrite(block, 1, got, dest);
  } while (got == sizeof(block));
}
