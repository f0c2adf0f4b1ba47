// Both checks run on one engine of 32 bits: a CRC-8 is a CRC-32 whose polynomial is its own times
// x^24, with the register in the low byte.
//
// Portable form: 16 bytes per step through 16 tables. Fast forms: carry-less multiplication moves
// 16 bytes ahead by D bits (times x^D modulo the polynomial) onto the bytes there, until 16 bytes
// remain that have the same remainder as all; one step through the tables ends it.
#include "utility/core/CrcFold.h"

#include <immintrin.h>

#include <cstring>
#include <utility>

#include "utility/core/CpuFeatures.h"

namespace Tarn::Core {
namespace {

constexpr uint32_t kPolynomial32 = 0xedb88320;
constexpr uint32_t kPolynomial8 = 0x8c;
constexpr size_t kStep = 16;       // bytes of a step through the tables, and of a lane
constexpr size_t kNarrowMin = 64;  // below, folding does not pay
constexpr size_t kWideMin = 256;

template <uint32_t kPolynomial>
constexpr uint32_t TimesX(uint32_t value) {
  return (value >> 1) ^ ((value & 1) != 0 ? kPolynomial : 0);
}

/// at[n][b]: what byte b does to the register, n bytes later.
template <uint32_t kPolynomial, typename Entry>
struct Tables {
  Entry at[kStep][256];

  constexpr Tables() : at() {
    for (uint32_t byte = 0; byte < 256; byte++) {
      uint32_t value = byte;
      for (int bit = 0; bit < 8; bit++)
        value = TimesX<kPolynomial>(value);
      at[0][byte] = static_cast<Entry>(value);
    }
    for (size_t n = 1; n < kStep; n++) {
      for (size_t byte = 0; byte < 256; byte++) {
        const uint32_t before = at[n - 1][byte];
        at[n][byte] = static_cast<Entry>((before >> 8) ^ at[0][before & 0xff]);
      }
    }
  }
};

/// The multipliers that move a lane ahead: x^(D+32) for its first half, x^(D-32) for its second,
/// both reflected; reflected products come out one bit low, hence the shift.
struct Multiplier {
  uint64_t first, second;
};

template <uint32_t kPolynomial>
constexpr Multiplier MultiplierFor(int distanceBits) {
  uint32_t power = 0x80000000;  // x^0
  Multiplier result{};
  for (int n = 0; n <= distanceBits + 32; n++, power = TimesX<kPolynomial>(power)) {
    if (n == distanceBits - 32) result.second = uint64_t{power} << 1;
    if (n == distanceBits + 32) result.first = uint64_t{power} << 1;
  }
  return result;
}

template <uint32_t kPolynomial, typename Entry>
struct Model {
  static constexpr Tables<kPolynomial, Entry> kTables{};
  static constexpr Multiplier kAhead128 = MultiplierFor<kPolynomial>(128);
  static constexpr Multiplier kAhead256 = MultiplierFor<kPolynomial>(256);
  static constexpr Multiplier kAhead384 = MultiplierFor<kPolynomial>(384);
  static constexpr Multiplier kAhead512 = MultiplierFor<kPolynomial>(512);
  static constexpr Multiplier kAhead1024 = MultiplierFor<kPolynomial>(1024);
  static constexpr Multiplier kAhead1536 = MultiplierFor<kPolynomial>(1536);
  static constexpr Multiplier kAhead2048 = MultiplierFor<kPolynomial>(2048);
};
using Model32 = Model<kPolynomial32, uint32_t>;
using Model8 = Model<kPolynomial8, uint8_t>;

template <typename M, size_t... kIndex>
[[gnu::always_inline]] inline uint32_t LookUp(const uint64_t (&half)[2],
                                              std::index_sequence<kIndex...>) {
  return (... ^ (uint32_t{M::kTables.at[15 - kIndex][(half[0] >> (8 * kIndex)) & 0xff]} ^
                 uint32_t{M::kTables.at[7 - kIndex][(half[1] >> (8 * kIndex)) & 0xff]}));
}

/// One step of 16 bytes: all look-ups are independent of each other.
template <typename M>
[[gnu::always_inline]] inline uint32_t WholeStep(uint32_t crc, const unsigned char* data) {
  uint64_t half[2];
  std::memcpy(half, data, kStep);
  half[0] ^= crc;
  return LookUp<M>(half, std::make_index_sequence<8>());
}

/// The same for the last `len` < 16 bytes.
template <typename M>
uint32_t LastStep(uint32_t crc, const unsigned char* data, size_t len) {
  uint64_t ahead = crc;
  uint32_t result = 0;
  for (; len != 0; len--, data++, ahead >>= 8)
    result ^= M::kTables.at[len - 1][*data ^ (ahead & 0xff)];
  return result ^ static_cast<uint32_t>(ahead);
}

template <typename M>
uint32_t Portable(uint32_t crc, const unsigned char* data, size_t len) {
  for (; len >= kStep; len -= kStep, data += kStep)
    crc = WholeStep<M>(crc, data);
  return LastStep<M>(crc, data, len);
}

// The helpers must be inlined: called, they would keep the lanes in memory through the loops.
#define TARN_TARGET_CLMUL [[gnu::target("pclmul,sse4.1")]]
#define TARN_TARGET_WIDE [[gnu::target("avx512f,vpclmulqdq,pclmul,sse4.1")]]

TARN_TARGET_CLMUL [[gnu::always_inline]] inline __m128i Lane(const unsigned char* data) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
}

TARN_TARGET_CLMUL [[gnu::always_inline]] inline __m128i Broadcast(Multiplier ahead) {
  return _mm_set_epi64x(static_cast<long long>(ahead.second), static_cast<long long>(ahead.first));
}

/// `lane` moved ahead onto `target`.
TARN_TARGET_CLMUL [[gnu::always_inline]] inline __m128i Fold(__m128i lane, __m128i ahead,
                                                             __m128i target) {
  const __m128i first = _mm_clmulepi64_si128(lane, ahead, 0x00);
  const __m128i second = _mm_clmulepi64_si128(lane, ahead, 0x11);
  return _mm_xor_si128(_mm_xor_si128(first, second), target);
}

/// Joins four neighbouring lanes, takes in the rest and reads the register off.
template <typename M>
TARN_TARGET_CLMUL [[gnu::always_inline]] inline uint32_t Finish(const __m128i (&lane)[4],
                                                                const unsigned char* data,
                                                                size_t len) {
  __m128i all = Fold(lane[0], Broadcast(M::kAhead384), lane[3]);
  all = Fold(lane[1], Broadcast(M::kAhead256), all);
  all = Fold(lane[2], Broadcast(M::kAhead128), all);
  for (; len >= kStep; len -= kStep, data += kStep)
    all = Fold(all, Broadcast(M::kAhead128), Lane(data));
  alignas(16) unsigned char bytes[kStep];
  _mm_store_si128(reinterpret_cast<__m128i*>(bytes), all);
  return LastStep<M>(WholeStep<M>(0, bytes), data, len);
}

/// REQUIRES: len >= kNarrowMin
template <typename M>
TARN_TARGET_CLMUL uint32_t FoldNarrow(uint32_t crc, const unsigned char* data, size_t len) {
  __m128i lane[4] = {Lane(data), Lane(data + 16), Lane(data + 32), Lane(data + 48)};
  lane[0] = _mm_xor_si128(lane[0], _mm_cvtsi32_si128(static_cast<int>(crc)));
  const __m128i ahead = Broadcast(M::kAhead512);
  for (data += 64, len -= 64; len >= 64; data += 64, len -= 64) {
    lane[0] = Fold(lane[0], ahead, Lane(data));
    lane[1] = Fold(lane[1], ahead, Lane(data + 16));
    lane[2] = Fold(lane[2], ahead, Lane(data + 32));
    lane[3] = Fold(lane[3], ahead, Lane(data + 48));
  }
  return Finish<M>(lane, data, len);
}

TARN_TARGET_WIDE [[gnu::always_inline]] inline __m512i WideLane(const unsigned char* data) {
  return _mm512_loadu_si512(data);
}

TARN_TARGET_WIDE [[gnu::always_inline]] inline __m512i WideBroadcast(Multiplier ahead) {
  const auto first = static_cast<long long>(ahead.first);
  const auto second = static_cast<long long>(ahead.second);
  return _mm512_set_epi64(second, first, second, first, second, first, second, first);
}

TARN_TARGET_WIDE [[gnu::always_inline]] inline __m512i WideFold(__m512i lane, __m512i ahead,
                                                                __m512i target) {
  const __m512i first = _mm512_clmulepi64_epi128(lane, ahead, 0x00);
  const __m512i second = _mm512_clmulepi64_epi128(lane, ahead, 0x11);
  return _mm512_ternarylogic_epi64(first, second, target, 0x96);  // exclusive-or of all three
}

/// REQUIRES: len >= kWideMin
template <typename M>
TARN_TARGET_WIDE uint32_t FoldWide(uint32_t crc, const unsigned char* data, size_t len) {
  __m512i wide[4] = {WideLane(data), WideLane(data + 64), WideLane(data + 128),
                     WideLane(data + 192)};
  const __m128i start = _mm_cvtsi32_si128(static_cast<int>(crc));
  wide[0] = _mm512_xor_si512(wide[0], _mm512_zextsi128_si512(start));
  const __m512i ahead = WideBroadcast(M::kAhead2048);
  for (data += 256, len -= 256; len >= 256; data += 256, len -= 256) {
    wide[0] = WideFold(wide[0], ahead, WideLane(data));
    wide[1] = WideFold(wide[1], ahead, WideLane(data + 64));
    wide[2] = WideFold(wide[2], ahead, WideLane(data + 128));
    wide[3] = WideFold(wide[3], ahead, WideLane(data + 192));
  }
  __m512i all = WideFold(wide[0], WideBroadcast(M::kAhead1536), wide[3]);
  all = WideFold(wide[1], WideBroadcast(M::kAhead1024), all);
  const __m512i next = WideBroadcast(M::kAhead512);
  all = WideFold(wide[2], next, all);
  for (; len >= 64; data += 64, len -= 64)
    all = WideFold(all, next, WideLane(data));
  alignas(64) unsigned char bytes[64];
  _mm512_store_si512(bytes, all);
  const __m128i lane[4] = {Lane(bytes), Lane(bytes + 16), Lane(bytes + 32), Lane(bytes + 48)};
  return Finish<M>(lane, data, len);
}

template <typename M>
uint32_t Register(uint32_t crc, const unsigned char* data, size_t len) {
  if (len >= kWideMin && CpuHas(kCpuWideClmul)) return FoldWide<M>(crc, data, len);
  if (len >= kNarrowMin && CpuHas(kCpuClmul)) return FoldNarrow<M>(crc, data, len);
  return Portable<M>(crc, data, len);
}

}  // namespace

uint32_t Crc32Register(uint32_t crc, const unsigned char* data, size_t len) {
  return Register<Model32>(crc, data, len);
}

uint8_t Crc8Register(uint8_t crc, const unsigned char* data, size_t len) {
  return static_cast<uint8_t>(Register<Model8>(crc, data, len));
}

}  // namespace Tarn::Core
