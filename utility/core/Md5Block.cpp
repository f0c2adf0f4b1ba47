// MD5 rounds, written for the length of their dependency chain: each step waits for the one before,
// so nothing but that chain counts. What a step can know without the newest word is computed apart,
// and `Hold` keeps the compiler from regrouping the sums.
#include "utility/core/Md5Block.h"

#include <bit>
#include <cstring>

namespace Tarn::Core {
namespace {

[[gnu::always_inline]] inline void Hold(uint32_t& value) {
  asm("" : "+r"(value));
}

[[gnu::always_inline]] inline uint32_t Word(const unsigned char* block, int index) {
  uint32_t word;
  std::memcpy(&word, block + 4 * index, 4);
  return word;
}

// In each step b is the newest word: a += function(b, c, d) + word + constant, rotated, plus b.
template <uint32_t kConstant, int kShift>
[[gnu::always_inline]] inline void StepF(uint32_t& a, uint32_t b, uint32_t c, uint32_t d,
                                         uint32_t word) {
  a += word + kConstant;
  Hold(a);
  a += ((c ^ d) & b) ^ d;
  a = std::rotl(a, kShift) + b;
}

template <uint32_t kConstant, int kShift>
[[gnu::always_inline]] inline void StepG(uint32_t& a, uint32_t b, uint32_t c, uint32_t d,
                                         uint32_t word) {
  a += word + kConstant;
  Hold(a);
  a += c & ~d;  // no bit in common with b & d: a sum serves as the "or", off the chain
  Hold(a);
  a += b & d;
  a = std::rotl(a, kShift) + b;
}

template <uint32_t kConstant, int kShift>
[[gnu::always_inline]] inline void StepH(uint32_t& a, uint32_t b, uint32_t c, uint32_t d,
                                         uint32_t word) {
  a += word + kConstant;
  Hold(a);
  a += (c ^ d) ^ b;
  a = std::rotl(a, kShift) + b;
}

template <uint32_t kConstant, int kShift>
[[gnu::always_inline]] inline void StepI(uint32_t& a, uint32_t b, uint32_t c, uint32_t d,
                                         uint32_t word) {
  a += word + kConstant;
  Hold(a);
  a += (b | ~d) ^ c;
  a = std::rotl(a, kShift) + b;
}

[[gnu::always_inline]] inline void Block(uint32_t& a, uint32_t& b, uint32_t& c, uint32_t& d,
                                         const unsigned char* block) {
  StepF<0xd76aa478, 7>(a, b, c, d, Word(block, 0));
  StepF<0xe8c7b756, 12>(d, a, b, c, Word(block, 1));
  StepF<0x242070db, 17>(c, d, a, b, Word(block, 2));
  StepF<0xc1bdceee, 22>(b, c, d, a, Word(block, 3));
  StepF<0xf57c0faf, 7>(a, b, c, d, Word(block, 4));
  StepF<0x4787c62a, 12>(d, a, b, c, Word(block, 5));
  StepF<0xa8304613, 17>(c, d, a, b, Word(block, 6));
  StepF<0xfd469501, 22>(b, c, d, a, Word(block, 7));
  StepF<0x698098d8, 7>(a, b, c, d, Word(block, 8));
  StepF<0x8b44f7af, 12>(d, a, b, c, Word(block, 9));
  StepF<0xffff5bb1, 17>(c, d, a, b, Word(block, 10));
  StepF<0x895cd7be, 22>(b, c, d, a, Word(block, 11));
  StepF<0x6b901122, 7>(a, b, c, d, Word(block, 12));
  StepF<0xfd987193, 12>(d, a, b, c, Word(block, 13));
  StepF<0xa679438e, 17>(c, d, a, b, Word(block, 14));
  StepF<0x49b40821, 22>(b, c, d, a, Word(block, 15));
  StepG<0xf61e2562, 5>(a, b, c, d, Word(block, 1));
  StepG<0xc040b340, 9>(d, a, b, c, Word(block, 6));
  StepG<0x265e5a51, 14>(c, d, a, b, Word(block, 11));
  StepG<0xe9b6c7aa, 20>(b, c, d, a, Word(block, 0));
  StepG<0xd62f105d, 5>(a, b, c, d, Word(block, 5));
  StepG<0x02441453, 9>(d, a, b, c, Word(block, 10));
  StepG<0xd8a1e681, 14>(c, d, a, b, Word(block, 15));
  StepG<0xe7d3fbc8, 20>(b, c, d, a, Word(block, 4));
  StepG<0x21e1cde6, 5>(a, b, c, d, Word(block, 9));
  StepG<0xc33707d6, 9>(d, a, b, c, Word(block, 14));
  StepG<0xf4d50d87, 14>(c, d, a, b, Word(block, 3));
  StepG<0x455a14ed, 20>(b, c, d, a, Word(block, 8));
  StepG<0xa9e3e905, 5>(a, b, c, d, Word(block, 13));
  StepG<0xfcefa3f8, 9>(d, a, b, c, Word(block, 2));
  StepG<0x676f02d9, 14>(c, d, a, b, Word(block, 7));
  StepG<0x8d2a4c8a, 20>(b, c, d, a, Word(block, 12));
  StepH<0xfffa3942, 4>(a, b, c, d, Word(block, 5));
  StepH<0x8771f681, 11>(d, a, b, c, Word(block, 8));
  StepH<0x6d9d6122, 16>(c, d, a, b, Word(block, 11));
  StepH<0xfde5380c, 23>(b, c, d, a, Word(block, 14));
  StepH<0xa4beea44, 4>(a, b, c, d, Word(block, 1));
  StepH<0x4bdecfa9, 11>(d, a, b, c, Word(block, 4));
  StepH<0xf6bb4b60, 16>(c, d, a, b, Word(block, 7));
  StepH<0xbebfbc70, 23>(b, c, d, a, Word(block, 10));
  StepH<0x289b7ec6, 4>(a, b, c, d, Word(block, 13));
  StepH<0xeaa127fa, 11>(d, a, b, c, Word(block, 0));
  StepH<0xd4ef3085, 16>(c, d, a, b, Word(block, 3));
  StepH<0x04881d05, 23>(b, c, d, a, Word(block, 6));
  StepH<0xd9d4d039, 4>(a, b, c, d, Word(block, 9));
  StepH<0xe6db99e5, 11>(d, a, b, c, Word(block, 12));
  StepH<0x1fa27cf8, 16>(c, d, a, b, Word(block, 15));
  StepH<0xc4ac5665, 23>(b, c, d, a, Word(block, 2));
  StepI<0xf4292244, 6>(a, b, c, d, Word(block, 0));
  StepI<0x432aff97, 10>(d, a, b, c, Word(block, 7));
  StepI<0xab9423a7, 15>(c, d, a, b, Word(block, 14));
  StepI<0xfc93a039, 21>(b, c, d, a, Word(block, 5));
  StepI<0x655b59c3, 6>(a, b, c, d, Word(block, 12));
  StepI<0x8f0ccc92, 10>(d, a, b, c, Word(block, 3));
  StepI<0xffeff47d, 15>(c, d, a, b, Word(block, 10));
  StepI<0x85845dd1, 21>(b, c, d, a, Word(block, 1));
  StepI<0x6fa87e4f, 6>(a, b, c, d, Word(block, 8));
  StepI<0xfe2ce6e0, 10>(d, a, b, c, Word(block, 15));
  StepI<0xa3014314, 15>(c, d, a, b, Word(block, 6));
  StepI<0x4e0811a1, 21>(b, c, d, a, Word(block, 13));
  StepI<0xf7537e82, 6>(a, b, c, d, Word(block, 4));
  StepI<0xbd3af235, 10>(d, a, b, c, Word(block, 11));
  StepI<0x2ad7d2bb, 15>(c, d, a, b, Word(block, 2));
  StepI<0xeb86d391, 21>(b, c, d, a, Word(block, 9));
}

}  // namespace

void Md5Blocks(uint32_t (&state)[4], const unsigned char* blocks, size_t count) {
  uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  for (const unsigned char* end = blocks + count * kMd5BlockBytes; blocks != end;
       blocks += kMd5BlockBytes) {
    const uint32_t a0 = a, b0 = b, c0 = c, d0 = d;
    Block(a, b, c, d, blocks);
    a += a0;
    b += b0;
    c += c0;
    d += d0;
  }
  state[0] = a;
  state[1] = b;
  state[2] = c;
  state[3] = d;
}

}  // namespace Tarn::Core
