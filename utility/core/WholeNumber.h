// Doubles cut to whole numbers, defined for every double. A plain conversion is undefined for NaN,
// infinities and values out of range.
#ifndef TARN_UTILITY_CORE_WHOLENUMBER_H
#define TARN_UTILITY_CORE_WHOLENUMBER_H

#include <emmintrin.h>

#include <cstdint>

namespace Tarn::Core {

/// Towards zero; INT32_MIN for whatever does not fit. The processor's own conversion, so that the
/// odd values, too, come out as from any other program on it.
[[nodiscard]] inline int32_t CutToInt32(double value) {
  return _mm_cvttsd_si32(_mm_set_sd(value));
}

/// The same with 64 bits; INT64_MIN for whatever does not fit.
[[nodiscard]] inline int64_t CutToInt64(double value) {
  return _mm_cvttsd_si64(_mm_set_sd(value));
}

/// The lower 32 bits of the product.
[[nodiscard]] inline int32_t WrappingProduct(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

/// The lower 32 bits of the sum.
[[nodiscard]] inline int32_t WrappingSum(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

/// The lower 32 bits of the difference.
[[nodiscard]] inline int32_t WrappingDifference(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_WHOLENUMBER_H
