// What other programs make of the same key and data: openssl for blocks of 16 bytes, and for all
// sizes the plain Rijndael in rijndael.py.
#ifndef TARN_TESTS_SUPPORT_AESORACLE_H
#define TARN_TESTS_SUPPORT_AESORACLE_H

#include <string>
#include <vector>

#include "tests/support/Oracle.h"

namespace tarn_test {

inline std::string HexOf(const std::string& bytes) {
  return Hex(Bytes(bytes), bytes.size());
}

/// The lines that a Python script prints which knows rijndael.py and finds `data` as the bytes `d`.
inline std::vector<std::string> RijndaelLines(const std::string& script, const std::string& data) {
  return PythonLines(
      "sys.dont_write_bytecode = True\n"
      "sys.path.insert(0, '" TARN_SOURCE_DIR
      "/tests/support')\n"
      "from rijndael import *\n" +
          script,
      data);
}

/// What `openssl enc` makes of the data, without padding.
/// @param mode  "ecb", "cbc" or "cfb"
inline std::string OpensslAes(const std::string& mode, bool encrypt, const std::string& key,
                              const std::string& chain, const std::string& data) {
  const TempDir dir;
  WriteFile(dir.File("in"), data);
  const std::string iv = mode == "ecb" ? "" : " -iv " + HexOf(chain.substr(0, 16));
  RunCommand("openssl enc -aes-" + std::to_string(key.size() * 8) + "-" + mode +
             (encrypt ? " -e" : " -d") + " -nopad -K " + HexOf(key) + iv + " -in " +
             dir.File("in") + " -out " + dir.File("out"));
  return ReadFile(dir.File("out"));
}

constexpr const char* kModeNames[] = {"ecb", "cbc", "cfb"};

}  // namespace tarn_test

#endif  // TARN_TESTS_SUPPORT_AESORACLE_H
