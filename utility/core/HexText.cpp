// Hexadecimal text, read with the rules of scanf but never beyond the terminator.
#include "utility/core/HexText.h"

namespace Tarn::Core {

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

constexpr bool IsSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

// -1 for a character that is no digit, the terminator included.
constexpr int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Reads "%02hhX" behind its white space: two digits, or one digit behind a sign or in front of
// anything else ("0x" is the digit 0). False when there is no digit.
bool ReadPair(const char* text, unsigned char& value) {
  const bool sign = text[0] == '+' || text[0] == '-';
  const int first = DigitValue(text[sign ? 1 : 0]);
  if (first < 0) return false;
  const int second = sign ? -1 : DigitValue(text[1]);
  const int number = second < 0 ? first : first * 16 + second;
  value = static_cast<unsigned char>(text[0] == '-' ? -number : number);
  return true;
}

}  // namespace

void WriteHexText(const unsigned char* data, size_t length, char* out) {
  for (size_t i = 0; i < length; ++i, out += 3) {
    out[0] = kDigits[data[i] >> 4];
    out[1] = kDigits[data[i] & 15];
    out[2] = ' ';
  }
}

size_t ReadHexText(const char* text, unsigned char* out) {
  size_t count = 0;
  const char* pair =
      text;  // behind the white space at `text`; only moves on, so runs are walked once
  while (*text != '\0') {
    if (*text == ' ') {
      ++text;
      continue;
    }
    if (pair < text) pair = text;
    while (IsSpace(*pair))
      ++pair;
    ReadPair(pair, out[count++]);
    if (text[1] == '\0') break;  // a character alone at the end
    text += 2;
  }
  return count;
}

}  // namespace Tarn::Core
