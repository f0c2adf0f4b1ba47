// The rules of INI files once more, written down the plain way with stdio: what the library is
// compared with. Nothing here is shared with the library.
#ifndef TARN_TESTS_SUPPORT_INIREFERENCE_H
#define TARN_TESTS_SUPPORT_INIREFERENCE_H

#include <strings.h>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>

namespace tarn_test::ini_reference {

inline std::string Trimmed(const std::string& text) {
  size_t from = 0;
  size_t to = text.size();
  while (from < to && isspace(static_cast<unsigned char>(text[from])) != 0)
    ++from;
  while (to > from && isspace(static_cast<unsigned char>(text[to - 1])) != 0)
    --to;
  return text.substr(from, to - from);
}

inline std::string Unquoted(const std::string& text) {
  const bool single = text.size() >= 2 && text.front() == '\'' && text.back() == '\'';
  const bool twice = text.size() >= 2 && text.front() == '"' && text.back() == '"';
  return single || twice ? text.substr(1, text.size() - 2) : text;
}

inline bool Same(const std::string& a, const char* b) {
  return strcasecmp(a.c_str(), b) == 0;
}

/// Reads a text through fgets with a buffer of 255 bytes.
class Lines {
 public:
  explicit Lines(const std::string& text)
      : copy_(text), file_(text.empty() ? nullptr : fmemopen(copy_.data(), copy_.size(), "r")) {}
  ~Lines() {
    if (file_ != nullptr) fclose(file_);
  }
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

  bool Next(std::string& line) {
    char buffer[255];
    if (file_ == nullptr || fgets(buffer, sizeof(buffer), file_) == nullptr) return false;
    line = Trimmed(buffer);
    return true;
  }

 private:
  std::string copy_;
  FILE* file_;
};

inline bool IsHeader(const std::string& line) {
  return line.size() >= 2 && line.front() == '[' && line.back() == ']';
}
inline std::string HeaderName(const std::string& line) {
  return line.substr(1, line.size() - 2);
}

/// The key of a line; an empty line leaves the key of the line before it.
inline void SplitKey(const std::string& line, std::string& key) {
  if (!line.empty()) key = Trimmed(line.substr(0, line.find('=')));
}

inline std::optional<std::string> Value(const std::string& text, const char* section,
                                        const char* key) {
  Lines lines(text);
  std::string line;
  std::string lineKey;
  bool inside = false;
  while (lines.Next(line)) {
    if (!line.empty() && line[0] == ';') continue;
    if (!inside) {
      inside = IsHeader(line) && Same(HeaderName(line), section);
      continue;
    }
    if (IsHeader(line)) return std::nullopt;
    SplitKey(line, lineKey);
    if (!Same(lineKey, key)) continue;
    if (line.find('=') == std::string::npos) return std::nullopt;
    return Unquoted(Trimmed(line.substr(line.find('=') + 1)));
  }
  return std::nullopt;
}

struct List {
  bool found;
  size_t length;
};

/// A null section lists the sections. `buffer` has room for `size` bytes, 2 at least.
inline List Names(const std::string& text, const char* section, char* buffer, size_t size) {
  Lines lines(text);
  std::string line;
  std::string name;
  bool inside = section == nullptr;
  size_t count = 0;
  char* at = buffer;
  while (lines.Next(line)) {
    if (!line.empty() && line[0] == ';') continue;
    if (!inside) {
      inside = IsHeader(line) && Same(HeaderName(line), section);
      continue;
    }
    if (section == nullptr) {
      if (!IsHeader(line)) continue;
      name = HeaderName(line);
    } else {
      if (IsHeader(line)) break;
      SplitKey(line, name);
    }
    if (size <= count + name.size() + 2) {
      const size_t room = size - count - 2;
      memcpy(at, name.data(), room);
      at[room] = '\0';
      at += room;
      count += room + 1;
      break;
    }
    memcpy(at, name.c_str(), name.size() + 1);
    at += name.size() + 1;
    count += name.size() + 1;
  }
  *at = '\0';
  return {inside, count == 0 ? 0 : count - 1};
}

/// The new text in `out`; null key and value as in WritePrivateProfileString.
inline int Rewrite(const std::string& text, const char* section, const char* key, const char* value,
                   std::string& out) {
  Lines lines(text);
  std::string line;
  std::string lineKey;
  bool entered = false;
  bool done = false;
  int result = 0;
  const auto entry = [&] { return std::string(key) + "=" + value + "\n"; };
  out.clear();
  while (lines.Next(line)) {
    if (done || (!line.empty() && line[0] == ';')) {
      out += line + "\n";
      continue;
    }
    if (!entered) {
      if (IsHeader(line)) {
        entered = Same(HeaderName(line), section);
        if (!entered || key != nullptr) out += line + "\n";
      } else if (line.empty() || line[0] != '[') {
        out += line + "\n";
      }
      continue;
    }
    if (IsHeader(line)) {
      if (key != nullptr && value != nullptr) out += entry();
      out += line + "\n";
      done = true;
      result = 1;
      continue;
    }
    if (key == nullptr) continue;
    SplitKey(line, lineKey);
    if (!Same(lineKey, key)) {
      out += line + "\n";
      continue;
    }
    if (value != nullptr) out += entry();
    done = true;
    result = 1;
  }
  if (!entered && key != nullptr) out += std::string("[") + section + "]\n";
  if (!done && key != nullptr && value != nullptr) {
    out += entry();
    result = 1;
  }
  return result;
}

}  // namespace tarn_test::ini_reference

#endif  // TARN_TESTS_SUPPORT_INIREFERENCE_H
