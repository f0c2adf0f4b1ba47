// Two forms: look-up tables for every size, and the processor's own AES instructions for 16-byte
// blocks. Both read the same round keys, so either may continue what the other began.
//
// A column of the state is a word with its first byte lowest. One look-up per byte does byte
// substitution and column mixing at once.
#include "utility/core/AesBlock.h"

#include <immintrin.h>

#include <bit>
#include <cstring>
#include <utility>

#include "utility/core/CpuFeatures.h"

namespace Tarn::Core {
namespace {

// The tables

struct Substitution {
  uint8_t forward[256], inverse[256];

  constexpr Substitution() : forward(), inverse() {
    // 3 generates the field and 0xf6 is its inverse, so that `q` is always the inverse of `p`.
    uint8_t p = 1, q = 1;
    do {
      p = GfMultiply(p, 3);
      q = GfMultiply(q, 0xf6);
      Set(p, static_cast<uint8_t>(q ^ std::rotl(q, 1) ^ std::rotl(q, 2) ^ std::rotl(q, 3) ^
                                  std::rotl(q, 4) ^ 0x63));
    } while (p != 1);
    Set(0, 0x63);
  }

  constexpr void Set(uint8_t from, uint8_t to) {
    forward[from] = to;
    inverse[to] = from;
  }
};

constexpr Substitution kSubstitution;

/// at[row][b]: what byte b in that row contributes to its column.
struct MixTables {
  uint32_t at[4][256];

  constexpr MixTables(const uint8_t (&substitute)[256], const uint8_t (&factors)[4]) : at() {
    for (int byte = 0; byte < 256; byte++) {
      uint32_t column = 0;
      for (int row = 0; row < 4; row++)
        column |= uint32_t{GfMultiply(substitute[byte], factors[row])} << (8 * row);
      for (int row = 0; row < 4; row++)
        at[row][byte] = std::rotl(column, 8 * row);
    }
  }
};

constexpr MixTables kEncryptTables(kSubstitution.forward, {2, 1, 1, 3});
constexpr MixTables kDecryptTables(kSubstitution.inverse, {14, 9, 13, 11});

template <int kRow>
constexpr uint8_t Byte(uint32_t word) {
  return static_cast<uint8_t>(word >> (8 * kRow));
}

/// Every byte of the word substituted.
uint32_t Substitute(const uint8_t (&table)[256], uint32_t word) {
  return uint32_t{table[Byte<0>(word)]} | uint32_t{table[Byte<1>(word)]} << 8 |
         uint32_t{table[Byte<2>(word)]} << 16 | uint32_t{table[Byte<3>(word)]} << 24;
}

// The key schedule

uint32_t Word(int stored) {
  return static_cast<uint32_t>(stored);
}

void ExpandPortable(const unsigned char* key, int keyWords, int blockWords, int rounds,
                    AesRoundKeys& encrypt) {
  uint32_t last[8];  // the newest keyWords words
  std::memcpy(last, key, 4 * static_cast<size_t>(keyWords));
  uint8_t constant = 1;
  int at = 0;  // the word of `last` to store next
  for (int row = 0; row <= rounds; row++) {
    for (int column = 0; column < blockWords; column++) {
      if (at == keyWords) {
        at = 0;
        last[0] ^= Substitute(kSubstitution.forward, std::rotr(last[keyWords - 1], 8)) ^ constant;
        for (int i = 1; i < keyWords; i++) {
          const bool again = keyWords > 6 && i == 4;
          last[i] ^= again ? Substitute(kSubstitution.forward, last[i - 1]) : last[i - 1];
        }
        constant = GfMultiply(constant, 2);
      }
      encrypt[row][column] = static_cast<int>(last[at++]);
    }
  }
  explicit_bzero(last, sizeof last);
}

/// One column, mixed the inverse way.
uint32_t InverseMix(uint32_t column) {
  const uint32_t s = Substitute(kSubstitution.forward, column);  // undone by the look-up
  return kDecryptTables.at[0][Byte<0>(s)] ^ kDecryptTables.at[1][Byte<1>(s)] ^
         kDecryptTables.at[2][Byte<2>(s)] ^ kDecryptTables.at[3][Byte<3>(s)];
}

void InvertPortable(const AesRoundKeys& encrypt, int blockWords, int rounds,
                    AesRoundKeys& decrypt) {
  for (int row = 0; row <= rounds; row++) {
    const bool outer = row == 0 || row == rounds;
    for (int column = 0; column < blockWords; column++) {
      const uint32_t word = Word(encrypt[rounds - row][column]);
      decrypt[row][column] = static_cast<int>(outer ? word : InverseMix(word));
    }
  }
}

// Single blocks with tables

enum Direction { kEncrypt, kDecrypt };

/// The column that a byte of `row` comes from: rows are shifted by 0, 1, 2 and 3 columns, in blocks
/// of 32 bytes by 0, 1, 3 and 4.
template <int kWords, Direction kWay>
constexpr size_t From(size_t column, size_t row) {
  const size_t shift = kWords == 8 && row > 1 ? row + 1 : row;
  return (kWay == kEncrypt ? column + shift : column + kWords - shift) % kWords;
}

/// Keeps the word in a general register: compilers that gather the columns into vectors make the
/// look-ups twice as slow.
[[gnu::always_inline]] inline uint32_t Scalar(uint32_t word) {
  asm("" : "+r"(word));
  return word;
}

template <int kWords, Direction kWay>
[[gnu::always_inline]] inline uint32_t MixedColumn(const uint32_t (&state)[kWords], size_t column) {
  constexpr const MixTables& kTables = kWay == kEncrypt ? kEncryptTables : kDecryptTables;
  return kTables.at[0][Byte<0>(state[column])] ^
         kTables.at[1][Byte<1>(state[From<kWords, kWay>(column, 1)])] ^
         kTables.at[2][Byte<2>(state[From<kWords, kWay>(column, 2)])] ^
         kTables.at[3][Byte<3>(state[From<kWords, kWay>(column, 3)])];
}

template <int kWords, Direction kWay>
[[gnu::always_inline]] inline uint32_t LastColumn(const uint32_t (&state)[kWords], size_t column) {
  return Substitute(kWay == kEncrypt ? kSubstitution.forward : kSubstitution.inverse,
                    (state[column] & 0xff) | (state[From<kWords, kWay>(column, 1)] & 0xff00) |
                        (state[From<kWords, kWay>(column, 2)] & 0xff0000) |
                        (state[From<kWords, kWay>(column, 3)] & 0xff000000));
}

template <int kWords, Direction kWay, size_t... kColumn>
void TableRounds(const AesRoundKeys& keys, int rounds, uint32_t (&state)[kWords],
                 std::index_sequence<kColumn...> /*columns*/) {
  ((state[kColumn] = Scalar(state[kColumn] ^ Word(keys[0][kColumn]))), ...);
  for (int round = 1; round < rounds; round++) {
    const uint32_t next[] = {
        Scalar(MixedColumn<kWords, kWay>(state, kColumn) ^ Word(keys[round][kColumn]))...};
    ((state[kColumn] = next[kColumn]), ...);
  }
  const uint32_t result[] = {
      Scalar(LastColumn<kWords, kWay>(state, kColumn) ^ Word(keys[rounds][kColumn]))...};
  ((state[kColumn] = result[kColumn]), ...);
}

template <int kWords, Direction kWay>
void TableBlock(const AesRoundKeys& keys, int rounds, const unsigned char* in, unsigned char* out) {
  uint32_t state[kWords];
  std::memcpy(state, in, sizeof state);
  TableRounds<kWords, kWay>(keys, rounds, state, std::make_index_sequence<kWords>());
  std::memcpy(out, state, sizeof state);
}

// The modes with tables

/// The cipher of single blocks in one direction.
struct BlockCipher {
  void (*run)(const AesRoundKeys& keys, int rounds, const unsigned char* in, unsigned char* out);
  const AesRoundKeys& keys;
  int rounds;
  size_t bytes;

  void operator()(const unsigned char* in, unsigned char* out) const { run(keys, rounds, in, out); }
};

template <Direction kWay>
BlockCipher CipherOf(const AesKeys& keys) {
  const auto run = keys.blockBytes == 16   ? TableBlock<4, kWay>
                   : keys.blockBytes == 24 ? TableBlock<6, kWay>
                                           : TableBlock<8, kWay>;
  return {run, kWay == kEncrypt ? keys.encrypt : keys.decrypt, keys.rounds,
          static_cast<size_t>(keys.blockBytes)};
}

/// In words of 8 bytes, which make up every block.
void XorInto(unsigned char* target, const unsigned char* mask, size_t bytes) {
  for (size_t i = 0; i < bytes; i += 8) {
    uint64_t word, other;
    std::memcpy(&word, target + i, 8);
    std::memcpy(&other, mask + i, 8);
    word ^= other;
    std::memcpy(target + i, &word, 8);
  }
}

void TableEcb(const BlockCipher& cipher, const unsigned char* in, unsigned char* out,
              size_t blocks) {
  for (; blocks != 0; blocks--, in += cipher.bytes, out += cipher.bytes)
    cipher(in, out);
}

void TableCbcEncrypt(const BlockCipher& cipher, unsigned char* chain, const unsigned char* in,
                     unsigned char* out, size_t blocks) {
  for (; blocks != 0; blocks--, in += cipher.bytes, out += cipher.bytes) {
    XorInto(chain, in, cipher.bytes);
    cipher(chain, chain);
    std::memcpy(out, chain, cipher.bytes);
  }
}

void TableCbcDecrypt(const BlockCipher& cipher, unsigned char* chain, const unsigned char* in,
                     unsigned char* out, size_t blocks) {
  unsigned char before[kMaxAesBlockBytes];
  for (; blocks != 0; blocks--, in += cipher.bytes, out += cipher.bytes) {
    std::memcpy(before, chain, cipher.bytes);
    std::memcpy(chain, in, cipher.bytes);
    cipher(chain, out);
    XorInto(out, before, cipher.bytes);
  }
}

void TableCfbEncrypt(const BlockCipher& cipher, unsigned char* chain, const unsigned char* in,
                     unsigned char* out, size_t blocks) {
  for (; blocks != 0; blocks--, in += cipher.bytes, out += cipher.bytes) {
    cipher(chain, chain);
    XorInto(chain, in, cipher.bytes);
    std::memcpy(out, chain, cipher.bytes);
  }
}

void TableCfbDecrypt(const BlockCipher& cipher, unsigned char* chain, const unsigned char* in,
                     unsigned char* out, size_t blocks) {
  unsigned char mask[kMaxAesBlockBytes];
  for (; blocks != 0; blocks--, in += cipher.bytes, out += cipher.bytes) {
    cipher(chain, mask);
    std::memcpy(chain, in, cipher.bytes);
    XorInto(mask, chain, cipher.bytes);
    std::memcpy(out, mask, cipher.bytes);
  }
}

// The instructions. Helpers are inlined, so that keys and states stay in registers.
#define TARN_TARGET_AES [[gnu::target("aes,avx")]]
#define TARN_AES_HELPER TARN_TARGET_AES [[gnu::always_inline]] inline

constexpr size_t kBlock = kAesBlockBytes;
// Enough independent blocks to hide how long one round of one block takes.
constexpr size_t kLanes = 8;

TARN_AES_HELPER __m128i Load(const void* bytes) {
  return _mm_loadu_si128(static_cast<const __m128i*>(bytes));
}

TARN_AES_HELPER void Store(void* bytes, __m128i value) {
  _mm_storeu_si128(static_cast<__m128i*>(bytes), value);
}

/// The next round key of AES-128. Its last word, rotated and substituted, goes into each word; the
/// row shift within the last round does nothing, as all columns are the same.
TARN_AES_HELPER __m128i NextKey128(__m128i key, int constant) {
  const __m128i rotated = _mm_shuffle_epi8(key, _mm_set1_epi32(0x0c0f0e0d));
  const __m128i substituted = _mm_aesenclast_si128(rotated, _mm_set1_epi32(constant));
  key = _mm_xor_si128(key, _mm_slli_si128(key, 4));
  key = _mm_xor_si128(key, _mm_slli_si128(key, 8));
  return _mm_xor_si128(key, substituted);
}

/// Both directions at once, while the keys are in registers.
template <size_t... n>
TARN_AES_HELPER void ExpandNi128(__m128i key, AesRoundKeys& encrypt, AesRoundKeys& decrypt,
                                 std::index_sequence<n...> /*innerRows*/) {
  constexpr int kConstants[] = {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x1b, 0x36};
  Store(encrypt[0], key);
  Store(decrypt[10], key);
  ((key = NextKey128(key, kConstants[n]), Store(encrypt[n + 1], key),
    Store(decrypt[9 - n], _mm_aesimc_si128(key))),
   ...);
  key = NextKey128(key, kConstants[9]);
  Store(encrypt[10], key);
  Store(decrypt[0], key);
}

TARN_TARGET_AES void ExpandNi128(const unsigned char* key, AesRoundKeys& encrypt,
                                 AesRoundKeys& decrypt) {
  ExpandNi128(Load(key), encrypt, decrypt, std::make_index_sequence<9>());
}

TARN_TARGET_AES void InvertNi(const AesRoundKeys& encrypt, int rounds, AesRoundKeys& decrypt) {
  Store(decrypt[0], Load(encrypt[rounds]));
  for (int row = 1; row < rounds; row++)
    Store(decrypt[row], _mm_aesimc_si128(Load(encrypt[rounds - row])));
  Store(decrypt[rounds], Load(encrypt[0]));
}

template <Direction kWay>
TARN_AES_HELPER __m128i Round(__m128i state, __m128i key) {
  return kWay == kEncrypt ? _mm_aesenc_si128(state, key) : _mm_aesdec_si128(state, key);
}

template <Direction kWay>
TARN_AES_HELPER __m128i LastRound(__m128i state, __m128i key) {
  return kWay == kEncrypt ? _mm_aesenclast_si128(state, key) : _mm_aesdeclast_si128(state, key);
}

/// One round on some blocks side by side.
template <Direction kWay, size_t... n>
TARN_AES_HELPER void OneRound(const int (&row)[8], __m128i (&lane)[sizeof...(n)],
                              std::index_sequence<n...> /*lanes*/) {
  const __m128i key = Load(row);
  ((lane[n] = Round<kWay>(lane[n], key)), ...);
}

/// What lies between the first key and the last round. Nine rounds stand in line: a loop would take
/// as many instructions again, which is felt when one block is all there is.
template <Direction kWay, size_t... n, size_t... r>
TARN_AES_HELPER void InnerRounds(const AesRoundKeys& keys, int rounds,
                                 __m128i (&lane)[sizeof...(n)], std::index_sequence<n...> lanes,
                                 std::index_sequence<r...> /*nine*/) {
  (OneRound<kWay>(keys[r + 1], lane, lanes), ...);
  for (int round = sizeof...(r) + 1; round < rounds; round++)
    OneRound<kWay>(keys[round], lane, lanes);
}

template <Direction kWay, size_t... n>
TARN_AES_HELPER void AllRounds(const AesRoundKeys& keys, int rounds, __m128i (&lane)[sizeof...(n)],
                               std::index_sequence<n...> lanes) {
  const __m128i first = Load(keys[0]), last = Load(keys[rounds]);
  ((lane[n] = _mm_xor_si128(lane[n], first)), ...);
  InnerRounds<kWay>(keys, rounds, lane, lanes, std::make_index_sequence<9>());
  ((lane[n] = LastRound<kWay>(lane[n], last)), ...);
}

template <Direction kWay, size_t... n>
TARN_AES_HELPER void EcbStep(const AesRoundKeys& keys, int rounds, const unsigned char* in,
                             unsigned char* out, std::index_sequence<n...> lanes) {
  __m128i lane[] = {Load(in + kBlock * n)...};
  AllRounds<kWay>(keys, rounds, lane, lanes);
  (Store(out + kBlock * n, lane[n]), ...);
}

template <Direction kWay>
TARN_TARGET_AES void NiEcb(const AesRoundKeys& keys, int rounds, const unsigned char* in,
                           unsigned char* out, size_t blocks) {
  for (; blocks >= kLanes; blocks -= kLanes, in += kBlock * kLanes, out += kBlock * kLanes)
    EcbStep<kWay>(keys, rounds, in, out, std::make_index_sequence<kLanes>());
  for (; blocks != 0; blocks--, in += kBlock, out += kBlock)
    EcbStep<kWay>(keys, rounds, in, out, std::make_index_sequence<1>());
}

/// All rounds but the last, on a state that has the first key in it already.
TARN_AES_HELPER __m128i InnerRounds(const AesRoundKeys& keys, int rounds, __m128i state) {
  for (int round = 1; round < rounds; round++)
    state = _mm_aesenc_si128(state, Load(keys[round]));
  return state;
}

/// Each block waits for the one before it, so nothing but rounds stands between them: the last
/// round also brings in the next block and the first key.
TARN_TARGET_AES void NiCbcEncrypt(const AesRoundKeys& keys, int rounds, unsigned char* chain,
                                  const unsigned char* in, unsigned char* out, size_t blocks) {
  const __m128i first = Load(keys[0]), last = Load(keys[rounds]);
  __m128i next = _mm_xor_si128(first, Load(in));
  __m128i state = _mm_xor_si128(Load(chain), next);
  for (; blocks > 1; blocks--, out += kBlock) {
    in += kBlock;
    next = _mm_xor_si128(first, Load(in));
    state = InnerRounds(keys, rounds, state);
    state = _mm_aesenclast_si128(state, _mm_xor_si128(last, next));
    Store(out, _mm_xor_si128(state, next));
  }
  state = _mm_aesenclast_si128(InnerRounds(keys, rounds, state), last);
  Store(out, state);
  Store(chain, state);
}

/// As above; here the last round brings in its own block.
TARN_TARGET_AES void NiCfbEncrypt(const AesRoundKeys& keys, int rounds, unsigned char* chain,
                                  const unsigned char* in, unsigned char* out, size_t blocks) {
  const __m128i first = Load(keys[0]);
  const __m128i both = _mm_xor_si128(first, Load(keys[rounds]));
  __m128i state = _mm_xor_si128(Load(chain), first);
  for (; blocks != 0; blocks--, in += kBlock, out += kBlock) {
    state = InnerRounds(keys, rounds, state);
    state = _mm_aesenclast_si128(state, _mm_xor_si128(both, Load(in)));
    Store(out, _mm_xor_si128(state, first));
  }
  Store(chain, _mm_xor_si128(state, first));
}

/// Stores from the last block to the first, so that `out` may be `in`. @return the next chain
template <size_t... n>
TARN_AES_HELPER __m128i CbcDecryptStep(const AesRoundKeys& keys, int rounds, __m128i chain,
                                       const unsigned char* in, unsigned char* out,
                                       std::index_sequence<0, n...> lanes) {
  constexpr size_t kLast = sizeof...(n);
  __m128i lane[] = {Load(in), Load(in + kBlock * n)...};
  const __m128i next = Load(in + kBlock * kLast);
  AllRounds<kDecrypt>(keys, rounds, lane, lanes);
  (Store(out + kBlock * (kLast + 1 - n),
         _mm_xor_si128(lane[kLast + 1 - n], Load(in + kBlock * (kLast - n)))),
   ...);
  Store(out, _mm_xor_si128(lane[0], chain));
  return next;
}

TARN_TARGET_AES void NiCbcDecrypt(const AesRoundKeys& keys, int rounds, unsigned char* chain,
                                  const unsigned char* in, unsigned char* out, size_t blocks) {
  __m128i before = Load(chain);
  for (; blocks >= kLanes; blocks -= kLanes, in += kBlock * kLanes, out += kBlock * kLanes)
    before = CbcDecryptStep(keys, rounds, before, in, out, std::make_index_sequence<kLanes>());
  for (; blocks != 0; blocks--, in += kBlock, out += kBlock)
    before = CbcDecryptStep(keys, rounds, before, in, out, std::make_index_sequence<1>());
  Store(chain, before);
}

/// @return the next chain
template <size_t... n>
TARN_AES_HELPER __m128i CfbDecryptStep(const AesRoundKeys& keys, int rounds, __m128i chain,
                                       const unsigned char* in, unsigned char* out,
                                       std::index_sequence<0, n...> lanes) {
  __m128i lane[] = {chain, Load(in + kBlock * (n - 1))...};
  const __m128i next = Load(in + kBlock * sizeof...(n));
  AllRounds<kEncrypt>(keys, rounds, lane, lanes);
  Store(out, _mm_xor_si128(lane[0], Load(in)));
  (Store(out + kBlock * n, _mm_xor_si128(lane[n], Load(in + kBlock * n))), ...);
  return next;
}

TARN_TARGET_AES void NiCfbDecrypt(const AesRoundKeys& keys, int rounds, unsigned char* chain,
                                  const unsigned char* in, unsigned char* out, size_t blocks) {
  __m128i before = Load(chain);
  for (; blocks >= kLanes; blocks -= kLanes, in += kBlock * kLanes, out += kBlock * kLanes)
    before = CfbDecryptStep(keys, rounds, before, in, out, std::make_index_sequence<kLanes>());
  for (; blocks != 0; blocks--, in += kBlock, out += kBlock)
    before = CfbDecryptStep(keys, rounds, before, in, out, std::make_index_sequence<1>());
  Store(chain, before);
}

bool UseInstructions(int blockBytes) {
  return blockBytes == kAesBlockBytes && CpuHas(kCpuAes);
}

}  // namespace

void ExpandAesKey(const unsigned char* key, int keyBytes, int blockBytes, AesRoundKeys& encrypt,
                  AesRoundKeys& decrypt) {
  const bool instructions = UseInstructions(blockBytes);
  if (instructions && keyBytes == 16) return ExpandNi128(key, encrypt, decrypt);
  const int rounds = AesRounds(keyBytes, blockBytes);
  ExpandPortable(key, keyBytes / 4, blockBytes / 4, rounds, encrypt);
  if (instructions) return InvertNi(encrypt, rounds, decrypt);
  InvertPortable(encrypt, blockBytes / 4, rounds, decrypt);
}

void EncryptAes(const AesKeys& keys, AesMode mode, unsigned char* chain, const unsigned char* in,
                unsigned char* out, size_t blocks) {
  if (blocks == 0) return;
  if (UseInstructions(keys.blockBytes)) {
    const AesRoundKeys& rows = keys.encrypt;
    if (mode == AesMode::kEcb) return NiEcb<kEncrypt>(rows, keys.rounds, in, out, blocks);
    if (mode == AesMode::kCbc) return NiCbcEncrypt(rows, keys.rounds, chain, in, out, blocks);
    return NiCfbEncrypt(rows, keys.rounds, chain, in, out, blocks);
  }
  const BlockCipher cipher = CipherOf<kEncrypt>(keys);
  if (mode == AesMode::kEcb) return TableEcb(cipher, in, out, blocks);
  if (mode == AesMode::kCbc) return TableCbcEncrypt(cipher, chain, in, out, blocks);
  TableCfbEncrypt(cipher, chain, in, out, blocks);
}

void DecryptAes(const AesKeys& keys, AesMode mode, unsigned char* chain, const unsigned char* in,
                unsigned char* out, size_t blocks) {
  if (blocks == 0) return;
  if (UseInstructions(keys.blockBytes)) {
    const AesRoundKeys& rows = mode == AesMode::kCfb ? keys.encrypt : keys.decrypt;
    if (mode == AesMode::kEcb) return NiEcb<kDecrypt>(rows, keys.rounds, in, out, blocks);
    if (mode == AesMode::kCbc) return NiCbcDecrypt(rows, keys.rounds, chain, in, out, blocks);
    return NiCfbDecrypt(rows, keys.rounds, chain, in, out, blocks);
  }
  // CFB only ever encrypts the chain.
  if (mode == AesMode::kCfb)
    return TableCfbDecrypt(CipherOf<kEncrypt>(keys), chain, in, out, blocks);
  const BlockCipher cipher = CipherOf<kDecrypt>(keys);
  if (mode == AesMode::kEcb) return TableEcb(cipher, in, out, blocks);
  TableCbcDecrypt(cipher, chain, in, out, blocks);
}

}  // namespace Tarn::Core
