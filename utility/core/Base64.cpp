// Base64 with look-up tables: twelve bits to two characters, and four characters to three bytes.
#include "utility/core/Base64.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace Tarn::Core {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct Pair {
  char text[2];
};

constexpr auto kPairs = [] {
  std::array<Pair, 4096> table{};
  for (size_t i = 0; i < table.size(); ++i)
    table[i] = {{kAlphabet[i >> 6], kAlphabet[i & 63]}};
  return table;
}();

// Beyond the 24 bits of a group: some character of it is outside the alphabet.
constexpr uint32_t kInvalid = 1U << 24;

// The bits of each character, already in the place that they have in a group.
constexpr auto kBits = [] {
  std::array<std::array<uint32_t, 256>, 4> table{};
  for (auto& place : table)
    place.fill(kInvalid);
  for (uint32_t i = 0; i < 64; ++i) {
    for (uint32_t place = 0; place < 4; ++place) {
      table[place][static_cast<unsigned char>(kAlphabet[i])] = i << (18 - 6 * place);
    }
  }
  return table;
}();

// Up to three bytes of the last, incomplete group.
size_t DecodeTail(const unsigned char* in, size_t length, unsigned char* out) {
  uint32_t group = 0;
  size_t count = 0;
  while (count < length && count < 4 && kBits[count][in[count]] != kInvalid) {
    group |= kBits[count][in[count]];
    ++count;
  }
  const size_t bytes = count * 3 / 4;
  for (size_t i = 0; i < bytes; ++i)
    out[i] = static_cast<unsigned char>(group >> (16 - 8 * i));
  return bytes;
}

}  // namespace

void EncodeBase64(const unsigned char* data, size_t length, char* out) {
  for (; length >= 3; length -= 3, data += 3, out += 4) {
    const uint32_t group = uint32_t{data[0]} << 16 | uint32_t{data[1]} << 8 | data[2];
    std::memcpy(out, kPairs[group >> 12].text, 2);
    std::memcpy(out + 2, kPairs[group & 4095].text, 2);
  }
  if (length == 0) return;
  const uint32_t group = uint32_t{data[0]} << 16 | (length == 2 ? uint32_t{data[1]} << 8 : 0);
  std::memcpy(out, kPairs[group >> 12].text, 2);
  out[2] = length == 2 ? kAlphabet[group >> 6 & 63] : '=';
  out[3] = '=';
}

size_t DecodeBase64(std::string_view text, unsigned char* out) {
  const unsigned char* in = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* const start = out;
  size_t left = text.size();
  for (; left >= 4; left -= 4, in += 4, out += 3) {
    const uint32_t group = kBits[0][in[0]] | kBits[1][in[1]] | kBits[2][in[2]] | kBits[3][in[3]];
    if (group >= kInvalid) break;
    out[0] = static_cast<unsigned char>(group >> 16);
    out[1] = static_cast<unsigned char>(group >> 8);
    out[2] = static_cast<unsigned char>(group);
  }
  return static_cast<size_t>(out - start) + DecodeTail(in, left, out);
}

}  // namespace Tarn::Core
