// Rijndael in both forms: published vectors, openssl, and the plain rijndael.py for all sizes.
#include "utility/core/AesBlock.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "tests/support/AesOracle.h"
#include "tests/support/Memory.h"
#include "tests/support/Support.h"
#include "utility/core/CpuFeatures.h"

using namespace tarn_test;
using namespace Tarn::Core;

namespace {

constexpr int kSizes[] = {16, 24, 32};
constexpr AesMode kModes[] = {AesMode::kEcb, AesMode::kCbc, AesMode::kCfb};

unsigned char* Writable(std::string& bytes) {
  return reinterpret_cast<unsigned char*>(bytes.data());
}

std::string FromHex(const std::string& digits) {
  std::string bytes;
  for (size_t i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

// An expanded key and a chain.
class Cipher {
 public:
  Cipher(const std::string& key, int blockBytes, const std::string& chain = std::string(32, '\0'))
      : chain_(chain),
        rounds_(AesRounds(static_cast<int>(key.size()), blockBytes)),
        blockBytes_(blockBytes) {
    ExpandAesKey(Bytes(key), static_cast<int>(key.size()), blockBytes, encrypt_, decrypt_);
  }

  std::string Run(bool encrypt, AesMode mode, const std::string& data) {
    std::string out(data.size(), '#');
    RunTo(encrypt, mode, Bytes(data), Writable(out), data.size());
    return out;
  }

  void RunTo(bool encrypt, AesMode mode, const unsigned char* in, unsigned char* out, size_t size) {
    const AesKeys keys{encrypt_, decrypt_, rounds_, blockBytes_};
    (encrypt ? EncryptAes : DecryptAes)(keys, mode, Writable(chain_), in, out,
                                        size / static_cast<size_t>(blockBytes_));
  }

  [[nodiscard]] std::string Chain() const {
    return chain_.substr(0, static_cast<size_t>(blockBytes_));
  }

  // The bytes of the round keys that count.
  [[nodiscard]] std::string Keys(bool encrypt) const {
    std::string bytes;
    for (int row = 0; row <= rounds_; row++) {
      bytes.append(reinterpret_cast<const char*>((encrypt ? encrypt_ : decrypt_)[row]),
                   static_cast<size_t>(blockBytes_));
    }
    return bytes;
  }

 private:
  AesRoundKeys encrypt_, decrypt_;
  std::string chain_;
  int rounds_, blockBytes_;
};

class AesForms : public testing::TestWithParam<unsigned> {
 protected:
  void SetUp() override { LimitCpuFeatures(GetParam()); }
  void TearDown() override { LimitCpuFeatures(kCpuAll); }
};

std::string FormName(const testing::TestParamInfo<unsigned>& info) {
  return info.param == kCpuAll ? "Fastest" : "Tables";
}

bool CpuInfoHas(const std::string& flag) {
  const std::string info = ReadFile("/proc/cpuinfo");
  const size_t at = info.find("\nflags");
  const std::string line = info.substr(at + 1, info.find('\n', at + 1) - at - 1) + " ";
  return line.find(" " + flag + " ") != std::string::npos;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(, AesForms, testing::Values(kCpuAll, 0u), FormName);

TEST_P(AesForms, PublishedAesVectorsHold) {
  const std::string key =
      FromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
  const std::string text = FromHex("00112233445566778899aabbccddeeff");
  const std::string expected[] = {"69c4e0d86a7b0430d8cdb78070b4c55a",
                                  "dda97ca4864cdfe06eaf70a0ec0d7191",
                                  "8ea2b7ca516745bfeafc49904b496089"};
  for (size_t i = 0; i < 3; i++) {
    Cipher cipher(key.substr(0, 16 + 8 * i), 16);
    EXPECT_EQ(HexOf(cipher.Run(true, AesMode::kEcb, text)), expected[i]);
    EXPECT_EQ(cipher.Run(false, AesMode::kEcb, FromHex(expected[i])), text);
  }
}

TEST_P(AesForms, PublishedVectorsOfLargerBlocksHold) {
  const std::string key =
      FromHex("2b7e151628aed2a6abf7158809cf4f3c762e7160f38b4da56a784d9045190cfe");
  const std::string text =
      FromHex("3243f6a8885a308d313198a2e03707344a4093822299f31d0082efa98ec4e6c8");
  struct {
    size_t block, key;
    const char* expected;
  } const vectors[] = {
      {16, 16, "3925841d02dc09fbdc118597196a0b32"},
      {16, 24, "f9fb29aefc384a250340d833b87ebc00"},
      {16, 32, "1a6e6c2c662e7da6501ffb62bc9e93f3"},
      {24, 16, "b24d275489e82bb8f7375e0d5fcdb1f481757c538b65148a"},
      {24, 24, "725ae43b5f3161de806a7c93e0bca93c967ec1ae1b71e1cf"},
      {24, 32, "0ebacf199e3315c2e34b24fcc7c46ef4388aa475d66c194c"},
      {32, 16, "7d15479076b69a46ffb3b3beae97ad8313f622f67fedb487de9f06b9ed9c8f19"},
      {32, 32, "a49406115dfb30a40418aafa4869b7c6a886ff31602a7dd19c889dc64f7e4e7a"}};
  for (const auto& vector : vectors) {
    Cipher cipher(key.substr(0, vector.key), static_cast<int>(vector.block));
    const std::string block = text.substr(0, vector.block);
    EXPECT_EQ(HexOf(cipher.Run(true, AesMode::kEcb, block)), vector.expected);
    EXPECT_EQ(cipher.Run(false, AesMode::kEcb, FromHex(vector.expected)), block);
  }
}

TEST_P(AesForms, TheFirstAndTheLastRoundKeysAreThePublishedOnes) {
  const std::string key = FromHex("2b7e151628aed2a6abf7158809cf4f3c");
  const Cipher cipher(key, 16);
  const std::string rows = cipher.Keys(true);
  EXPECT_EQ(rows.substr(0, 16), key);
  EXPECT_EQ(HexOf(rows.substr(160)), "d014f9a8c9ee2589e13f0cc8b6630ca6");
  EXPECT_EQ(cipher.Keys(false).substr(0, 16), rows.substr(160));
  EXPECT_EQ(cipher.Keys(false).substr(160), key);
}

// The data holds 32 bytes of key, 32 of chain, then whole blocks of every size.
TEST_P(AesForms, EverySizeAndModeAgreesWithPlainRijndael) {
  const std::string data = PatternBytes(64 + 96 * 3, 5);
  const auto expected = RijndaelLines(
      "for k in (16, 24, 32):\n"
      "  for b in (16, 24, 32):\n"
      "    keys = expand(d[:k], b)\n"
      "    for mode in range(3):\n"
      "      print(encrypt(keys, d[32:32 + b], d[64:], mode).hex())\n"
      "      print(decrypt(keys, d[32:32 + b], d[64:], mode).hex())\n",
      data);
  ASSERT_EQ(expected.size(), 54u);
  auto line = expected.begin();
  for (const int key : kSizes) {
    for (const int block : kSizes) {
      for (const AesMode mode : kModes) {
        for (const bool encrypt : {true, false}) {
          Cipher cipher(data.substr(0, static_cast<size_t>(key)), block, data.substr(32, 32));
          EXPECT_EQ(HexOf(cipher.Run(encrypt, mode, data.substr(64))), *line++)
              << key << " " << block << " " << static_cast<int>(mode) << " " << encrypt;
        }
      }
    }
  }
}

// One run over many blocks; each shorter run must be its beginning, with the chain where it ended.
TEST_P(AesForms, AnyNumberOfBlocksAgreesWithOpenssl) {
  const std::string data = PatternBytes(16 * 37, 6), chain = PatternBytes(32, 7);
  for (const int keyBytes : kSizes) {
    const std::string key = PatternBytes(static_cast<size_t>(keyBytes), 8);
    for (const AesMode mode : kModes) {
      for (const bool encrypt : {true, false}) {
        const std::string expected =
            OpensslAes(kModeNames[static_cast<int>(mode)], encrypt, key, chain, data);
        ASSERT_EQ(expected.size(), data.size());
        for (size_t n = 0; n <= data.size(); n += 16) {
          Cipher cipher(key, 16, chain);
          ASSERT_EQ(cipher.Run(encrypt, mode, data.substr(0, n)), expected.substr(0, n)) << n;
          const std::string& coded = encrypt ? expected : data;
          const bool moved = mode != AesMode::kEcb && n != 0;
          ASSERT_EQ(cipher.Chain(), moved ? coded.substr(n - 16, 16) : chain.substr(0, 16)) << n;
        }
      }
    }
  }
}

TEST_P(AesForms, ALongRunMayBeCutAnywhere) {
  const std::string key = PatternBytes(32, 9), chain = PatternBytes(32, 10);
  const std::string data = PatternBytes(96 * 8, 11);
  for (const int block : kSizes) {
    const size_t step = static_cast<size_t>(block);
    for (const AesMode mode : kModes) {
      for (const bool encrypt : {true, false}) {
        const std::string whole = Cipher(key, block, chain).Run(encrypt, mode, data);
        for (size_t cut = 0; cut <= data.size(); cut += step) {
          Cipher cipher(key, block, chain);
          const std::string first = cipher.Run(encrypt, mode, data.substr(0, cut));
          ASSERT_EQ(first + cipher.Run(encrypt, mode, data.substr(cut)), whole) << cut;
        }
      }
    }
  }
}

TEST_P(AesForms, TheResultMayReplaceTheInput) {
  const std::string key = PatternBytes(24, 12), chain = PatternBytes(32, 13);
  for (const int block : kSizes) {
    const std::string data = PatternBytes(static_cast<size_t>(block) * 19, 14);
    for (const AesMode mode : kModes) {
      for (const bool encrypt : {true, false}) {
        std::string both = data;
        Cipher(key, block, chain).RunTo(encrypt, mode, Bytes(both), Writable(both), both.size());
        ASSERT_EQ(both, Cipher(key, block, chain).Run(encrypt, mode, data)) << block;
      }
    }
  }
}

TEST_P(AesForms, BlocksAndKeysMayLieAtAnyAddress) {
  const std::string key = PatternBytes(16, 15), data = PatternBytes(16 * 12, 16);
  for (const AesMode mode : kModes) {
    const std::string expected = Cipher(key, 16).Run(true, mode, data);
    for (size_t at = 0; at < 17; at++) {
      alignas(64) unsigned char in[300], out[300], keyAt[48], chain[48] = {};
      std::memcpy(in + at, data.data(), data.size());
      std::memcpy(keyAt + at, key.data(), key.size());
      AesRoundKeys encrypt, decrypt;
      ExpandAesKey(keyAt + at, 16, 16, encrypt, decrypt);
      EncryptAes({encrypt, decrypt, 10, 16}, mode, chain + at, in + at, out + 20 - at, 12);
      ASSERT_EQ(std::memcmp(out + 20 - at, expected.data(), expected.size()), 0) << at;
    }
  }
}

TEST_P(AesForms, NothingIsReadOrWrittenOutsideTheBlocks) {
  const std::string data = PatternBytes(32 * 19, 17);
  const BytesBeforeGuard in(data), out(data), key(data), chain(data);
  for (const int keyBytes : kSizes) {
    for (const int block : kSizes) {
      const size_t bytes = static_cast<size_t>(block), keySize = static_cast<size_t>(keyBytes);
      AesRoundKeys encrypt, decrypt;
      ExpandAesKey(reinterpret_cast<unsigned char*>(key.Last(keySize)), keyBytes, block, encrypt,
                   decrypt);
      const AesKeys keys{encrypt, decrypt, AesRounds(keyBytes, block), block};
      for (const AesMode mode : kModes) {
        for (const auto run : {EncryptAes, DecryptAes}) {
          std::memset(out.Last(data.size()), '#', data.size());
          run(keys, mode, reinterpret_cast<unsigned char*>(chain.Last(bytes)),
              reinterpret_cast<unsigned char*>(in.Last(bytes * 18)),
              reinterpret_cast<unsigned char*>(out.Last(bytes * 18)), 18);
          ASSERT_EQ(*out.Last(bytes * 18 + 1), '#');
        }
      }
    }
  }
}

TEST_P(AesForms, NoBlocksMeansNothingHappens) {
  Cipher cipher(PatternBytes(16), 16, PatternBytes(32, 2));
  for (const AesMode mode : kModes) {
    cipher.RunTo(true, mode, nullptr, nullptr, 0);
    cipher.RunTo(false, mode, nullptr, nullptr, 0);
  }
  EXPECT_EQ(cipher.Chain(), PatternBytes(32, 2).substr(0, 16));
}

TEST_P(AesForms, TheScheduleLeavesNothingOfTheKeyOnTheStack) {
  if (kStackHoldsRegisters) GTEST_SKIP() << "the compiler itself leaves copies of registers behind";
  for (const int keyBytes : kSizes) {
    for (const int block : kSizes) {
      const std::string key = PatternBytes(static_cast<size_t>(keyBytes), 18);
      AesRoundKeys encrypt, decrypt;
      const auto expand = [&] { ExpandAesKey(Bytes(key), keyBytes, block, encrypt, decrypt); };
      expand();  // binds all symbols, which would save registers on the stack
      ObservedStack stack;
      stack.Run(expand);
      const int last = AesRounds(keyBytes, block);
      const std::string end(reinterpret_cast<char*>(encrypt[last]), static_cast<size_t>(block));
      EXPECT_FALSE(stack.HoldsPartOf(key)) << keyBytes << " " << block;
      EXPECT_FALSE(stack.HoldsPartOf(end)) << keyBytes << " " << block;
    }
  }
}

TEST(AesBlock, BothFormsMakeTheSameRoundKeys) {
  for (const int keyBytes : kSizes) {
    for (const unsigned seed : {1u, 2u, 3u}) {
      const std::string key = PatternBytes(static_cast<size_t>(keyBytes), seed);
      const Cipher fast(key, 16);
      LimitCpuFeatures(0);
      const Cipher tables(key, 16);
      LimitCpuFeatures(kCpuAll);
      EXPECT_EQ(fast.Keys(true), tables.Keys(true)) << keyBytes;
      EXPECT_EQ(fast.Keys(false), tables.Keys(false)) << keyBytes;
    }
  }
}

TEST(AesBlock, EitherFormGoesOnWhereTheOtherStopped) {
  const std::string data = PatternBytes(16 * 20, 4), key = PatternBytes(16, 5);
  for (const AesMode mode : kModes) {
    for (const bool encrypt : {true, false}) {
      const std::string whole = Cipher(key, 16).Run(encrypt, mode, data);
      Cipher cipher(key, 16);
      const std::string first = cipher.Run(encrypt, mode, data.substr(0, 160));
      LimitCpuFeatures(0);
      EXPECT_EQ(first + cipher.Run(encrypt, mode, data.substr(160)), whole);
      LimitCpuFeatures(kCpuAll);
    }
  }
}

TEST(AesBlock, TheModelAgreesWithOpenssl) {
  const std::string data = PatternBytes(64 + 160, 20);
  const auto lines = RijndaelLines(
      "for k in (16, 24, 32):\n"
      "  for mode in range(3):\n"
      "    print(encrypt(expand(d[:k], 16), d[32:48], d[64:], mode).hex())\n"
      "    print(decrypt(expand(d[:k], 16), d[32:48], d[64:], mode).hex())\n",
      data);
  ASSERT_EQ(lines.size(), 18u);
  auto line = lines.begin();
  for (const size_t key : {16u, 24u, 32u}) {
    for (const char* mode : kModeNames) {
      for (const bool encrypt : {true, false}) {
        EXPECT_EQ(*line++, HexOf(OpensslAes(mode, encrypt, data.substr(0, key), data.substr(32),
                                            data.substr(64))));
      }
    }
  }
}

TEST(AesBlock, RoundsFollowTheLargerOfTheSizes) {
  const int expected[3][3] = {{10, 12, 14}, {12, 12, 14}, {14, 14, 14}};
  for (size_t key = 0; key < 3; key++) {
    for (size_t block = 0; block < 3; block++)
      EXPECT_EQ(AesRounds(kSizes[key], kSizes[block]), expected[key][block]);
  }
}

TEST(AesBlock, OnlyThreeSizesAreAccepted) {
  for (int size = -40; size <= 300; size++)
    EXPECT_EQ(IsAesSize(size), size == 16 || size == 24 || size == 32) << size;
}

TEST(AesBlock, EveryProductOfTheFieldIsRight) {
  // All products of polynomials, then the remainder: another order than the function's own.
  for (unsigned a = 0; a < 256; a++) {
    for (unsigned b = 0; b < 256; b++) {
      unsigned product = 0;
      for (unsigned bit = 0; bit < 8; bit++)
        product ^= (b >> bit & 1) != 0 ? a << bit : 0;
      for (unsigned bit = 14; bit >= 8; bit--)
        product ^= (product >> bit & 1) != 0 ? 0x11bu << (bit - 8) : 0;
      ASSERT_EQ(GfMultiply(static_cast<uint8_t>(a), static_cast<uint8_t>(b)), product);
    }
  }
}

TEST(AesBlock, TheInstructionsCanBeWithdrawnAndGivenBack) {
  const bool there = CpuInfoHas("aes") && CpuInfoHas("avx");
  LimitCpuFeatures(kCpuAll);
  EXPECT_EQ(CpuHas(kCpuAes), there);
  LimitCpuFeatures(kCpuAll & ~kCpuAes);
  EXPECT_FALSE(CpuHas(kCpuAes));
  LimitCpuFeatures(kCpuAes);
  EXPECT_EQ(CpuHas(kCpuAes), there);
  EXPECT_FALSE(CpuHas(kCpuSha));
  LimitCpuFeatures(kCpuAll);
}
