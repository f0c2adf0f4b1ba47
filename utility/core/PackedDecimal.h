// Packed BCD: two decimal digits per byte, the most significant byte first.
#ifndef TARN_UTILITY_CORE_PACKEDDECIMAL_H
#define TARN_UTILITY_CORE_PACKEDDECIMAL_H

#include <cstddef>
#include <cstdint>

namespace Tarn::Core {

/// `base` multiplied `exponent` times, modulo 2^64; 1 for exponents of 0 and below.
[[nodiscard]] int64_t IntegerPower(int base, int exponent);

/// The value of `count` bytes, modulo 2^64. Nibbles above 9 count what they hold.
[[nodiscard]] int64_t FromPackedDecimal(const unsigned char* digits, size_t count);

/// Fills `count` bytes; digits that do not fit are dropped.
void ToPackedDecimal(int64_t value, unsigned char* digits, size_t count);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_PACKEDDECIMAL_H
