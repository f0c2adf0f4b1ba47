// Answers from other programs, to compare the library with.
#ifndef TARN_TESTS_SUPPORT_ORACLE_H
#define TARN_TESTS_SUPPORT_ORACLE_H

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Support.h"

namespace tarn_test {

/// The lines that a Python script prints; it finds `data` as the bytes `d`.
inline std::vector<std::string> PythonLines(const std::string& script, const std::string& data) {
  const TempDir dir;
  WriteFile(dir.File("data"), data);
  WriteFile(dir.File("oracle.py"),
            "import sys, hashlib, hmac, zlib\nd = open(sys.argv[1], 'rb').read()\n" + script);
  std::istringstream out(RunCommand("python3 " + dir.File("oracle.py") + " " + dir.File("data")));
  std::vector<std::string> lines;
  for (std::string line; std::getline(out, line);)
    lines.push_back(line);
  return lines;
}

/// Lower-case hexadecimal digits of `bytes`.
inline std::string Hex(const unsigned char* bytes, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; i++) {
    text += "0123456789abcdef"[bytes[i] / 16];
    text += "0123456789abcdef"[bytes[i] % 16];
  }
  return text;
}

inline const unsigned char* Bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_ORACLE_H
