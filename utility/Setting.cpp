// Typed access to one INI file.
#include <Tarn/Generic/Setting.h>

#include <Tarn/Generic/Directory.h>
#include <Tarn/Generic/Profile.h>

#include <cfloat>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <mutex>

#include "utility/os/NumberText.h"

namespace Tarn {
namespace Generic {

namespace {

// The text that GetString hands out. The last byte stays 0, so that even a reader who is overtaken
// by another call finds an end.
constexpr size_t kSharedLength = 256;
char sharedText[kSharedLength];
std::mutex sharedLock;

// Beyond the largest float a conversion is left to the compiler; from half a step above it, it is
// infinite.
float ToFloat(double value) {
  constexpr double kInfiniteFrom = 0x1.ffffffp127;
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  if (value >= kInfiniteFrom) return kInfinity;
  if (value <= -kInfiniteFrom) return -kInfinity;
  if (value > FLT_MAX) return FLT_MAX;
  if (value < -FLT_MAX) return -FLT_MAX;
  return static_cast<float>(value);
}

}  // namespace

CSetting::CSetting() : m_szPath() {}

CSetting::CSetting(const char* name) : m_szPath() {
  if (name == nullptr) return;
  CDirectory directory;
  snprintf(m_szPath, sizeof(m_szPath), "%s/%s", directory.GetCurrentPath(), name);
}

bool CSetting::Load(const char* path) {
  snprintf(m_szPath, sizeof(m_szPath), "%s", path == nullptr ? "" : path);
  CDirectory directory;
  return directory.IsExist(m_szPath);
}

const char* CSetting::GetString(const char* section, const char* key, const char* def) {
  // Read into a buffer of our own first: the arguments may be results of earlier calls.
  char text[kSharedLength] = {};
  GetPrivateProfileString(section, key, def, text, sizeof(text) - 1, m_szPath);
  const std::lock_guard<std::mutex> guard(sharedLock);
  std::memcpy(sharedText, text, sizeof(text));
  return sharedText;
}

std::string CSetting::GetString2(const char* section, const char* key, const char* def) try {
  char text[4096] = {};
  GetPrivateProfileString(section, key, def, text, sizeof(text) - 1, m_szPath);
  return text;
} catch (const std::exception&) {
  return std::string();
}

int CSetting::GetInt(const char* section, const char* key, int def) {
  char text[256] = {};
  GetPrivateProfileString(section, key, "", text, sizeof(text), m_szPath);
  return text[0] == '\0' ? def : Os::IntFromText(text);
}

float CSetting::GetFloat(const char* section, const char* key, float def) {
  char text[256] = {};
  GetPrivateProfileString(section, key, "", text, sizeof(text), m_szPath);
  return text[0] == '\0' ? def : ToFloat(Os::DoubleFromText(text));
}

int CSetting::WriteString(const char* section, const char* key, const char* value) {
  return WritePrivateProfileString(section, key, value, m_szPath);
}

int CSetting::WriteInt(const char* section, const char* key, int value) {
  char text[16] = {};
  std::to_chars(text, text + sizeof(text) - 1, value);
  return WritePrivateProfileString(section, key, text, m_szPath);
}

int CSetting::WriteFloat(const char* section, const char* key, float value) {
  char text[64] = {};  // the largest float has 39 digits in front of the point
  std::to_chars(text, text + sizeof(text) - 1, value, std::chars_format::fixed, 2);
  return WritePrivateProfileString(section, key, text, m_szPath);
}

}  // namespace Generic
}  // namespace Tarn
