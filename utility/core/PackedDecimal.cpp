// Packed BCD and integer powers.
#include "utility/core/PackedDecimal.h"

namespace Tarn::Core {

int64_t IntegerPower(int base, int exponent) {
  // By squares: modulo 2^64 the order of the factors is all the same, and exponents reach 2^31.
  auto square = static_cast<uint64_t>(static_cast<int64_t>(base));
  uint64_t product = 1;
  for (; exponent > 0; exponent /= 2) {
    if (exponent % 2 != 0) product *= square;
    square *= square;
  }
  return static_cast<int64_t>(product);
}

int64_t FromPackedDecimal(const unsigned char* digits, size_t count) {
  uint64_t value = 0;
  for (size_t i = 0; i < count; ++i)
    value = value * 100 + (digits[i] >> 4) * 10u + (digits[i] & 0x0Fu);
  return static_cast<int64_t>(value);
}

void ToPackedDecimal(int64_t value, unsigned char* digits, size_t count) {
  for (size_t i = count; i-- > 0; value /= 100) {
    // Kept: pairs of negative values are taken with their sign. Peers read these odd nibbles back.
    const auto pair = static_cast<int>(value % 100);
    digits[i] = static_cast<unsigned char>(pair / 10 * 16 + (pair % 10 & 0x0F));
  }
}

}  // namespace Tarn::Core
