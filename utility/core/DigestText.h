// Digests as text.
#ifndef TARN_UTILITY_CORE_DIGESTTEXT_H
#define TARN_UTILITY_CORE_DIGESTTEXT_H

#include <emmintrin.h>

#include <cstddef>

namespace Tarn::Core {

/// Writes two lower-case hexadecimal digits per byte and a NUL; `out` holds 2 * count + 1
/// characters. REQUIRES: count is a multiple of 8
inline void WriteDigest(char* out, const unsigned char* bytes, size_t count) {
  const __m128i low = _mm_set1_epi8(0x0f);
  for (const unsigned char* end = bytes + count; bytes != end; bytes += 8, out += 16) {
    const __m128i eight = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes));
    const __m128i nibbles = _mm_and_si128(_mm_unpacklo_epi8(_mm_srli_epi16(eight, 4), eight), low);
    const __m128i letters = _mm_cmpgt_epi8(nibbles, _mm_set1_epi8(9));
    const __m128i toLetter = _mm_and_si128(letters, _mm_set1_epi8('a' - '0' - 10));
    const __m128i digits = _mm_add_epi8(_mm_add_epi8(nibbles, _mm_set1_epi8('0')), toLetter);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), digits);
  }
  *out = '\0';
}

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_DIGESTTEXT_H
