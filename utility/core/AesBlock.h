// Rijndael with keys and blocks of 16, 24 and 32 bytes (with 16-byte blocks: AES, FIPS 197), and
// its modes over whole blocks.
#ifndef TARN_UTILITY_CORE_AESBLOCK_H
#define TARN_UTILITY_CORE_AESBLOCK_H

#include <cstddef>
#include <cstdint>

namespace Tarn::Core {

inline constexpr int kAesBlockBytes = 16;     // the block of AES itself
inline constexpr int kMaxAesBlockBytes = 32;  // the largest of Rijndael

/// A round key per row, in the order of the block's bytes and of the rounds; what a smaller block
/// leaves of a row is never read.
using AesRoundKeys = int[15][8];

/// What a cipher run needs to know of an expanded key.
struct AesKeys {
  const AesRoundKeys& encrypt;
  const AesRoundKeys& decrypt;
  int rounds;
  int blockBytes;
};

enum class AesMode { kEcb, kCbc, kCfb };

/// The product in GF(2^8) modulo x^8 + x^4 + x^3 + x + 1.
constexpr uint8_t GfMultiply(uint8_t a, uint8_t b) {
  unsigned product = 0, shifted = a;
  for (unsigned left = b; left != 0; left >>= 1) {
    if ((left & 1) != 0) product ^= shifted;
    shifted = (shifted << 1) ^ ((shifted & 0x80) != 0 ? 0x11bu : 0);
  }
  return static_cast<uint8_t>(product);
}

constexpr bool IsAesSize(int bytes) {
  return bytes == 16 || bytes == 24 || bytes == 32;
}

/// REQUIRES, here and below: sizes that IsAesSize accepts.
constexpr int AesRounds(int keyBytes, int blockBytes) {
  return (keyBytes > blockBytes ? keyBytes : blockBytes) / 4 + 6;
}

/// The round keys of both directions. Nothing of the key stays behind elsewhere.
void ExpandAesKey(const unsigned char* key, int keyBytes, int blockBytes, AesRoundKeys& encrypt,
                  AesRoundKeys& decrypt);

/// Runs `blocks` whole blocks through the cipher, in the fastest form that CpuHas allows.
/// @param chain  one block, taken in and moved on by the modes other than ECB, which ignores it
/// @param out    `in` itself, or memory apart from it
void EncryptAes(const AesKeys& keys, AesMode mode, unsigned char* chain, const unsigned char* in,
                unsigned char* out, size_t blocks);
void DecryptAes(const AesKeys& keys, AesMode mode, unsigned char* chain, const unsigned char* in,
                unsigned char* out, size_t blocks);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_AESBLOCK_H
