// SHA-256 rounds: a portable form and one on the processor's own SHA instructions.
#include "utility/core/Sha256Block.h"

#include <immintrin.h>

#include <bit>
#include <cstring>

#include "utility/core/CpuFeatures.h"

namespace Tarn::Core {
namespace {

alignas(64) constexpr uint32_t kRoundConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

uint32_t BigEndianWord(const unsigned char* bytes) {
  uint32_t word;
  std::memcpy(&word, bytes, 4);
  return __builtin_bswap32(word);
}

uint32_t SmallSigma0(uint32_t x) {
  return std::rotr(x, 7) ^ std::rotr(x, 18) ^ (x >> 3);
}
uint32_t SmallSigma1(uint32_t x) {
  return std::rotr(x, 17) ^ std::rotr(x, 19) ^ (x >> 10);
}
uint32_t BigSigma0(uint32_t x) {
  return std::rotr(x, 2) ^ std::rotr(x, 13) ^ std::rotr(x, 22);
}
uint32_t BigSigma1(uint32_t x) {
  return std::rotr(x, 6) ^ std::rotr(x, 11) ^ std::rotr(x, 25);
}

/// One round; the caller renames the variables instead of moving them.
[[gnu::always_inline]] inline void Round(uint32_t a, uint32_t b, uint32_t c, uint32_t& d,
                                         uint32_t e, uint32_t f, uint32_t g, uint32_t& h,
                                         uint32_t word) {
  h += word + BigSigma1(e) + (((f ^ g) & e) ^ g);
  d += h;
  h += BigSigma0(a) + ((a & b) | ((a | b) & c));
}

void PortableBlock(uint32_t (&state)[8], uint32_t (&w)[64], const unsigned char* block) {
  for (int i = 0; i < 16; i++)
    w[i] = BigEndianWord(block + 4 * i);
  for (int i = 16; i < 64; i++) {
    w[i] = w[i - 16] + SmallSigma0(w[i - 15]) + w[i - 7] + SmallSigma1(w[i - 2]);
  }
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
  for (int i = 0; i < 64; i += 8) {
    Round(a, b, c, d, e, f, g, h, w[i] + kRoundConstants[i]);
    Round(h, a, b, c, d, e, f, g, w[i + 1] + kRoundConstants[i + 1]);
    Round(g, h, a, b, c, d, e, f, w[i + 2] + kRoundConstants[i + 2]);
    Round(f, g, h, a, b, c, d, e, w[i + 3] + kRoundConstants[i + 3]);
    Round(e, f, g, h, a, b, c, d, w[i + 4] + kRoundConstants[i + 4]);
    Round(d, e, f, g, h, a, b, c, w[i + 5] + kRoundConstants[i + 5]);
    Round(c, d, e, f, g, h, a, b, w[i + 6] + kRoundConstants[i + 6]);
    Round(b, c, d, e, f, g, h, a, w[i + 7] + kRoundConstants[i + 7]);
  }
  const uint32_t result[8] = {a, b, c, d, e, f, g, h};
  for (int i = 0; i < 8; i++)
    state[i] += result[i];
}

void PortableBlocks(uint32_t (&state)[8], const unsigned char* blocks, size_t count) {
  uint32_t w[64];
  for (; count != 0; count--, blocks += kSha256BlockBytes)
    PortableBlock(state, w, blocks);
  std::memset(w, 0, sizeof w);  // may hold a key
  asm volatile("" : : "r"(w) : "memory");
}

// The helpers are inlined, so that words, which may be a key, stay in registers.
#define TARN_TARGET_SHA [[gnu::target("sha,sse4.1")]]

/// Four rounds with the words `w`.
TARN_TARGET_SHA [[gnu::always_inline]] inline void FourRounds(__m128i& abef, __m128i& cdgh,
                                                              __m128i w, int round) {
  const auto* constants = reinterpret_cast<const __m128i*>(kRoundConstants + round);
  const __m128i sum = _mm_add_epi32(w, _mm_load_si128(constants));
  cdgh = _mm_sha256rnds2_epu32(cdgh, abef, sum);
  abef = _mm_sha256rnds2_epu32(abef, cdgh, _mm_shuffle_epi32(sum, 0x0e));
}

/// The four words that follow the sixteen in w0 to w3.
TARN_TARGET_SHA [[gnu::always_inline]] inline __m128i NextWords(__m128i w0, __m128i w1, __m128i w2,
                                                                __m128i w3) {
  const __m128i sum = _mm_add_epi32(_mm_sha256msg1_epu32(w0, w1), _mm_alignr_epi8(w3, w2, 4));
  return _mm_sha256msg2_epu32(sum, w3);
}

TARN_TARGET_SHA [[gnu::always_inline]] inline __m128i LoadWords(const unsigned char* bytes) {
  const __m128i order = _mm_set_epi64x(0x0c0d0e0f08090a0b, 0x0405060700010203);
  return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)), order);
}

TARN_TARGET_SHA [[gnu::always_inline]] inline void ShaNiBlock(__m128i& abef, __m128i& cdgh,
                                                              const unsigned char* block) {
  __m128i w0 = LoadWords(block), w1 = LoadWords(block + 16);
  __m128i w2 = LoadWords(block + 32), w3 = LoadWords(block + 48);
  for (int round = 0;; round += 16) {
    FourRounds(abef, cdgh, w0, round);
    FourRounds(abef, cdgh, w1, round + 4);
    FourRounds(abef, cdgh, w2, round + 8);
    FourRounds(abef, cdgh, w3, round + 12);
    if (round == 48) return;
    w0 = NextWords(w0, w1, w2, w3);
    w1 = NextWords(w1, w2, w3, w0);
    w2 = NextWords(w2, w3, w0, w1);
    w3 = NextWords(w3, w0, w1, w2);
  }
}

/// The instructions keep the state as a, b, e, f and c, d, g, h, highest lane first.
TARN_TARGET_SHA void ShaNiBlocks(uint32_t (&state)[8], const unsigned char* blocks, size_t count) {
  auto* words = reinterpret_cast<__m128i*>(state);
  const __m128i badc = _mm_shuffle_epi32(_mm_loadu_si128(words), 0xb1);
  const __m128i hgfe = _mm_shuffle_epi32(_mm_loadu_si128(words + 1), 0x1b);
  __m128i abef = _mm_alignr_epi8(badc, hgfe, 8);
  __m128i cdgh = _mm_blend_epi16(hgfe, badc, 0xf0);
  for (; count != 0; count--, blocks += kSha256BlockBytes) {
    const __m128i abefBefore = abef, cdghBefore = cdgh;
    ShaNiBlock(abef, cdgh, blocks);
    abef = _mm_add_epi32(abef, abefBefore);
    cdgh = _mm_add_epi32(cdgh, cdghBefore);
  }
  const __m128i feba = _mm_shuffle_epi32(abef, 0x1b);
  const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xb1);
  _mm_storeu_si128(words, _mm_blend_epi16(feba, dchg, 0xf0));
  _mm_storeu_si128(words + 1, _mm_alignr_epi8(dchg, feba, 8));
}

}  // namespace

void Sha256Blocks(uint32_t (&state)[8], const unsigned char* blocks, size_t count) {
  if (CpuHas(kCpuSha)) return ShaNiBlocks(state, blocks, count);
  PortableBlocks(state, blocks, count);
}

}  // namespace Tarn::Core
