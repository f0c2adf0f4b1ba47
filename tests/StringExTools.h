// What the tests of the text class share.
#ifndef TARN_TESTS_STRINGEXTOOLS_H
#define TARN_TESTS_STRINGEXTOOLS_H

#include <Tarn/Generic/StringEx.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tarn_test {

using Tarn::Generic::CStringEx;

inline std::string Text(const CStringEx& s) {
  return s.c_str();
}

inline std::vector<std::string> Texts(const std::vector<CStringEx>& fields) {
  return {fields.begin(), fields.end()};
}

inline bool IsInline(const CStringEx& s) {
  const auto at = reinterpret_cast<uintptr_t>(s.c_str());
  const auto object = reinterpret_cast<uintptr_t>(&s);
  return at >= object && at < object + sizeof(s);
}

inline std::string Repeat(size_t length, char c = 'a') {
  return std::string(length, c);
}

}  // namespace tarn_test

#endif  // TARN_TESTS_STRINGEXTOOLS_H
