// The class AES: keys, chains, modes and what it passes over in silence.
#include <Tarn/Generic/Aes.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstring>
#include <thread>
#include <type_traits>

#include "tests/support/AesOracle.h"
#include "tests/support/Memory.h"
#include "tests/support/Support.h"
#include "utility/core/CpuFeatures.h"

using namespace tarn_test;
using Tarn::Core::kCpuAll;
using Tarn::Core::LimitCpuFeatures;

namespace {

constexpr int kSizes[] = {16, 24, 32};

std::string Encrypted(AES& cipher, const std::string& text, int mode) {
  std::string out(text.size(), '#');
  cipher.Encrypt(text.data(), out.data(), text.size(), mode);
  return out;
}

std::string Decrypted(AES& cipher, const std::string& text, int mode) {
  std::string out(text.size(), '#');
  cipher.Decrypt(text.data(), out.data(), text.size(), mode);
  return out;
}

using BlockOperation = void (AES::*)(const char*, char*);

std::string Block(AES& cipher, BlockOperation operation, const std::string& in) {
  std::string out(in.size() + 8, '#');
  (cipher.*operation)(in.data(), out.data());
  return out;
}

class Aes : public testing::TestWithParam<unsigned> {
 protected:
  void SetUp() override { LimitCpuFeatures(GetParam()); }
  void TearDown() override { LimitCpuFeatures(kCpuAll); }

  const std::string key_ = PatternBytes(32, 1);
  const std::string chain_ = PatternBytes(32, 2);
  const std::string data_ = PatternBytes(96, 3);
};

std::string FormName(const testing::TestParamInfo<unsigned>& info) {
  return info.param == kCpuAll ? "Fastest" : "Tables";
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(, Aes, testing::Values(kCpuAll, 0u), FormName);

TEST_P(Aes, EverySizeAndModeAgreesWithPlainRijndael) {
  const auto expected = RijndaelLines(
      "for k in (16, 24, 32):\n"
      "  for b in (16, 24, 32):\n"
      "    for mode in range(3):\n"
      "      print(encrypt(expand(d[:k], b), d[32:32 + b], d[64:], mode).hex())\n"
      "      print(decrypt(expand(d[:k], b), d[32:32 + b], d[64:], mode).hex())\n",
      key_ + chain_ + data_);
  ASSERT_EQ(expected.size(), 54u);
  auto line = expected.begin();
  for (const int key : kSizes) {
    for (const int block : kSizes) {
      for (int mode = 0; mode < 3; mode++) {
        AES cipher;
        cipher.MakeKey(key_.data(), chain_.data(), key, block);
        EXPECT_EQ(HexOf(Encrypted(cipher, data_, mode)), *line++) << key << " " << block;
        cipher.MakeKey(key_.data(), chain_.data(), key, block);
        EXPECT_EQ(HexOf(Decrypted(cipher, data_, mode)), *line++) << key << " " << block;
      }
    }
  }
}

TEST_P(Aes, AgreesWithOpensslInAllItsKeySizesAndModes) {
  for (const int size : kSizes) {
    for (int mode = 0; mode < 3; mode++) {
      const std::string key = key_.substr(0, static_cast<size_t>(size));
      AES cipher;
      cipher.MakeKey(key.data(), chain_.data(), size, 16);
      EXPECT_EQ(Encrypted(cipher, data_, mode),
                OpensslAes(kModeNames[mode], true, key, chain_, data_));
      cipher.MakeKey(key.data(), chain_.data(), size, 16);
      EXPECT_EQ(Decrypted(cipher, data_, mode),
                OpensslAes(kModeNames[mode], false, key, chain_, data_));
    }
  }
}

TEST_P(Aes, SingleBlocksAreThoseOfEcbAndIgnoreTheChain) {
  for (const int block : kSizes) {
    AES cipher;
    cipher.MakeKey(key_.data(), chain_.data(), 16, block);
    const std::string text = data_.substr(0, static_cast<size_t>(block));
    const std::string code = Block(cipher, &AES::EncryptBlock, text);
    EXPECT_EQ(code, Encrypted(cipher, text, 0) + "########");
    EXPECT_EQ(Block(cipher, &AES::DecryptBlock, code.substr(0, text.size())), text + "########");
    AES fresh;
    fresh.MakeKey(key_.data(), chain_.data(), 16, block);
    EXPECT_EQ(Encrypted(cipher, data_, 1), Encrypted(fresh, data_, 1)) << "the chain has moved";
  }
}

TEST_P(Aes, TheFixedBlockOperationsAreTheSameForBlocksOf16Bytes) {
  for (const int key : kSizes) {
    AES cipher;
    cipher.MakeKey(key_.data(), nullptr, key, 16);
    const std::string text = data_.substr(0, 16);
    const std::string code = Block(cipher, &AES::DefEncryptBlock, text);
    EXPECT_EQ(code, Block(cipher, &AES::EncryptBlock, text));
    EXPECT_EQ(Block(cipher, &AES::DefDecryptBlock, code.substr(0, 16)), text + "########");
  }
}

TEST_P(Aes, TheFixedBlockOperationsUseTheBeginningOfLargerRoundKeysKept) {
  const auto expected = RijndaelLines(
      "for b in (24, 32):\n"
      "  print(encrypt_block([key[:16] for key in expand(d[:24], b)], d[32:48]).hex())\n",
      key_ + data_);
  ASSERT_EQ(expected.size(), 2u);
  for (size_t i = 0; i < 2; i++) {
    AES cipher;
    cipher.MakeKey(key_.data(), nullptr, 24, kSizes[i + 1]);
    const std::string text = data_.substr(0, 16);
    const std::string code = Block(cipher, &AES::DefEncryptBlock, text);
    EXPECT_EQ(HexOf(code.substr(0, 16)), expected[i]);
    EXPECT_EQ(code.substr(16), "########");
    EXPECT_EQ(Block(cipher, &AES::DefDecryptBlock, code.substr(0, 16)), text + "########");
  }
}

TEST_P(Aes, TheChainGoesOnFromCallToCallKept) {
  for (const int block : kSizes) {
    for (int mode = 0; mode < 3; mode++) {
      AES whole, pieces;
      whole.MakeKey(key_.data(), chain_.data(), 32, block);
      pieces.MakeKey(key_.data(), chain_.data(), 32, block);
      const size_t cut = static_cast<size_t>(block);
      const std::string first = Encrypted(pieces, data_.substr(0, cut), mode);
      EXPECT_EQ(first + Encrypted(pieces, data_.substr(cut), mode), Encrypted(whole, data_, mode));
      whole.MakeKey(key_.data(), chain_.data(), 32, block);
      pieces.MakeKey(key_.data(), chain_.data(), 32, block);
      const std::string text = Decrypted(pieces, data_.substr(0, cut), mode);
      EXPECT_EQ(text + Decrypted(pieces, data_.substr(cut), mode), Decrypted(whole, data_, mode));
    }
  }
}

TEST_P(Aes, BothDirectionsMoveTheSameChain) {
  AES cipher, fresh;
  cipher.MakeKey(key_.data(), chain_.data(), 16, 16);
  const std::string code = Encrypted(cipher, data_, 1);
  fresh.MakeKey(key_.data(), code.data() + 80, 16, 16);
  EXPECT_EQ(Decrypted(cipher, code, 1), Decrypted(fresh, code, 1));
}

TEST_P(Aes, EcbLeavesTheChainWhereItIs) {
  AES cipher, fresh;
  cipher.MakeKey(key_.data(), chain_.data(), 16, 24);
  fresh.MakeKey(key_.data(), chain_.data(), 16, 24);
  Encrypted(cipher, data_, 0);
  Decrypted(cipher, data_, 0);
  EXPECT_EQ(Encrypted(cipher, data_, 2), Encrypted(fresh, data_, 2));
}

TEST_P(Aes, MakeKeyStartsTheChainAnew) {
  AES cipher;
  cipher.MakeKey(key_.data(), chain_.data(), 16, 16);
  const std::string code = Encrypted(cipher, data_, 1);
  EXPECT_NE(Encrypted(cipher, data_, 1), code);
  cipher.MakeKey(key_.data(), chain_.data(), 16, 16);
  EXPECT_EQ(Encrypted(cipher, data_, 1), code);
}

TEST_P(Aes, ANullChainMeansZerosAlsoAfterAnother) {
  for (const int block : kSizes) {
    AES cipher, zeros;
    cipher.MakeKey(key_.data(), chain_.data(), 16, 32);
    cipher.MakeKey(key_.data(), nullptr, 16, block);
    zeros.MakeKey(key_.data(), sm_chain0, 16, block);
    EXPECT_EQ(Encrypted(cipher, data_, 1), Encrypted(zeros, data_, 1)) << block;
  }
}

TEST_P(Aes, OtherModeNumbersMeanEcbKept) {
  AES cipher;
  cipher.MakeKey(key_.data(), chain_.data(), 16, 16);
  const std::string code = Encrypted(cipher, data_, 0);
  for (const int mode : {-1, 3, 4, INT_MAX, INT_MIN}) {
    EXPECT_EQ(Encrypted(cipher, data_, mode), code) << mode;
    EXPECT_EQ(Decrypted(cipher, code, mode), data_) << mode;
  }
}

TEST_P(Aes, IncompleteBlocksChangeNothingKept) {
  for (const int block : kSizes) {
    AES cipher, fresh;
    cipher.MakeKey(key_.data(), chain_.data(), 16, block);
    fresh.MakeKey(key_.data(), chain_.data(), 16, block);
    for (size_t n = 0; n < data_.size(); n++) {
      if (n != 0 && n % static_cast<size_t>(block) == 0) continue;
      for (int mode = 0; mode < 3; mode++) {
        ASSERT_EQ(Encrypted(cipher, data_.substr(0, n), mode), std::string(n, '#')) << n;
        ASSERT_EQ(Decrypted(cipher, data_.substr(0, n), mode), std::string(n, '#')) << n;
      }
    }
    EXPECT_EQ(Encrypted(cipher, data_, 1), Encrypted(fresh, data_, 1)) << "the chain has moved";
  }
}

TEST_P(Aes, NothingHappensBeforeMakeKey) {
  AES cipher;
  for (int mode = 0; mode < 3; mode++) {
    EXPECT_EQ(Encrypted(cipher, data_, mode), std::string(96, '#'));
    EXPECT_EQ(Decrypted(cipher, data_, mode), std::string(96, '#'));
  }
  for (const BlockOperation operation :
       {&AES::EncryptBlock, &AES::DecryptBlock, &AES::DefEncryptBlock, &AES::DefDecryptBlock}) {
    EXPECT_EQ(Block(cipher, operation, data_), std::string(104, '#'));
  }
  std::string text = data_;
  cipher.Xor(text.data(), chain_.data());
  EXPECT_EQ(text, data_);
}

TEST_P(Aes, UnusableKeysAndSizesLeaveTheObjectWithoutKeyKept) {
  for (const int size :
       {-1, 0, 1, 8, 15, 17, 20, 23, 25, 31, 33, 64, 128, 192, 256, INT_MAX, INT_MIN}) {
    AES cipher;
    cipher.MakeKey(key_.data(), chain_.data(), size, 16);
    cipher.MakeKey(key_.data(), chain_.data(), 16, size);
    cipher.MakeKey(nullptr, chain_.data(), 16, 16);
    EXPECT_EQ(Encrypted(cipher, data_, 0), std::string(96, '#')) << size;
  }
}

TEST_P(Aes, AFailingMakeKeyLeavesTheEarlierKeyAndTheMovedChain) {
  AES cipher, other;
  cipher.MakeKey(key_.data(), chain_.data(), 16, 16);
  other.MakeKey(key_.data(), chain_.data(), 16, 16);
  Encrypted(cipher, data_, 1);
  Encrypted(other, data_, 1);
  cipher.MakeKey(nullptr, chain_.data(), 16, 16);
  cipher.MakeKey(data_.data(), chain_.data(), 17, 16);
  cipher.MakeKey(data_.data(), chain_.data(), 16, 17);
  EXPECT_EQ(Encrypted(cipher, data_, 1), Encrypted(other, data_, 1));
}

TEST_P(Aes, AnotherKeyOfAnotherSizeReplacesTheFirst) {
  AES cipher, fresh;
  cipher.MakeKey(chain_.data(), data_.data(), 32, 32);
  cipher.MakeKey(key_.data(), chain_.data(), 16, 24);
  fresh.MakeKey(key_.data(), chain_.data(), 16, 24);
  EXPECT_EQ(Encrypted(cipher, data_, 2), Encrypted(fresh, data_, 2));
}

TEST_P(Aes, NullPointersAreHarmless) {
  AES cipher, fresh;
  cipher.MakeKey(key_.data(), chain_.data(), 16, 16);
  fresh.MakeKey(key_.data(), chain_.data(), 16, 16);
  std::string out(96, '#');
  for (int mode = 0; mode < 3; mode++) {
    cipher.Encrypt(nullptr, out.data(), 96, mode);
    cipher.Encrypt(data_.data(), nullptr, 96, mode);
    cipher.Decrypt(nullptr, out.data(), 96, mode);
    cipher.Decrypt(data_.data(), nullptr, 96, mode);
  }
  for (const BlockOperation operation :
       {&AES::EncryptBlock, &AES::DecryptBlock, &AES::DefEncryptBlock, &AES::DefDecryptBlock}) {
    (cipher.*operation)(nullptr, out.data());
    (cipher.*operation)(data_.data(), nullptr);
  }
  cipher.Xor(nullptr, chain_.data());
  cipher.Xor(out.data(), nullptr);
  EXPECT_EQ(out, std::string(96, '#'));
  EXPECT_EQ(Encrypted(cipher, data_, 1), Encrypted(fresh, data_, 1));
}

TEST_P(Aes, XorTakesOneBlock) {
  for (const int block : kSizes) {
    AES cipher;
    cipher.MakeKey(key_.data(), nullptr, 16, block);
    std::string buffer = data_;
    cipher.Xor(buffer.data(), chain_.data());
    for (size_t i = 0; i < buffer.size(); i++) {
      const char mask = i < static_cast<size_t>(block) ? chain_[i] : '\0';
      ASSERT_EQ(buffer[i], static_cast<char>(data_[i] ^ mask)) << i;
    }
  }
}

TEST_P(Aes, TheResultMayReplaceTheInput) {
  for (const int block : kSizes) {
    for (int mode = 0; mode < 3; mode++) {
      AES cipher;
      std::string both = data_;
      cipher.MakeKey(key_.data(), chain_.data(), 24, block);
      cipher.Encrypt(both.data(), both.data(), both.size(), mode);
      EXPECT_NE(both, data_);
      cipher.MakeKey(key_.data(), chain_.data(), 24, block);
      cipher.Decrypt(both.data(), both.data(), both.size(), mode);
      EXPECT_EQ(both, data_) << block << " " << mode;
    }
  }
}

TEST_P(Aes, KeyAndChainAreReadNoFurtherThanTheirSizes) {
  const BytesBeforeGuard key(key_), chain(chain_);
  for (const size_t keySize : {16u, 24u, 32u}) {
    for (const size_t block : {16u, 24u, 32u}) {
      AES guarded, plain;
      guarded.MakeKey(key.Last(keySize), chain.Last(block), static_cast<int>(keySize),
                      static_cast<int>(block));
      plain.MakeKey(key_.data() + 32 - keySize, chain_.data() + 32 - block,
                    static_cast<int>(keySize), static_cast<int>(block));
      EXPECT_EQ(Encrypted(guarded, data_, 1), Encrypted(plain, data_, 1));
    }
  }
}

TEST_P(Aes, ACopyGoesOnByItself) {
  AES first, reference;
  first.MakeKey(key_.data(), chain_.data(), 16, 16);
  reference.MakeKey(key_.data(), chain_.data(), 16, 16);
  Encrypted(first, data_, 1);
  Encrypted(reference, data_, 1);
  AES copy = first;
  const std::string next = Encrypted(reference, data_, 1);
  EXPECT_EQ(Encrypted(first, data_, 1), next);
  EXPECT_EQ(Encrypted(copy, data_, 1), next);
}

// The last key has fewer and shorter rows than the first.
TEST_P(Aes, TheEndWipesAllKeysThatTheObjectHeld) {
  alignas(AES) unsigned char storage[sizeof(AES)];
  AES* cipher = new (storage) AES;
  cipher->MakeKey(data_.data(), nullptr, 32, 32);
  const std::string larger(storage, storage + sizeof storage);
  cipher->MakeKey(key_.data(), nullptr, 16, 16);
  const std::string smaller(storage, storage + sizeof storage);
  EXPECT_TRUE(HoldsPartOf(key_.substr(0, 16), storage, sizeof storage));
  cipher->~AES();
  for (const std::string& before : {larger, smaller}) {
    for (size_t at = 24; at + 16 <= 984; at += 4) {
      const std::string piece = before.substr(at, 16);
      if (piece == std::string(16, '\0')) continue;
      ASSERT_FALSE(HoldsPartOf(piece, storage, sizeof storage)) << at;
    }
  }
}

TEST(AesObject, HasTheSizeAndTheDestructorThatHostsKnow) {
  EXPECT_EQ(sizeof(AES), 1048u);
  EXPECT_TRUE(std::has_virtual_destructor<AES>::value);
  AES* cipher = new AES;
  void* const* table = *reinterpret_cast<void* const**>(cipher);
  EXPECT_NE(table[0], nullptr);
  EXPECT_NE(table[1], nullptr);
  delete cipher;
}

TEST(AesObject, MayBeDerivedFromAndDeletedThroughItsBase) {
  struct Derived : AES {
    explicit Derived(bool& gone) : gone_(gone) {}
    ~Derived() override { gone_ = true; }
    bool& gone_;
  };
  bool gone = false;
  AES* cipher = new Derived(gone);
  delete cipher;
  EXPECT_TRUE(gone);
}

TEST(AesObject, DistinctObjectsMayBeUsedAtOnce) {
  const std::string key = PatternBytes(32, 1), data = PatternBytes(96, 2);
  AES reference;
  reference.MakeKey(key.data(), nullptr, 32, 16);
  const std::string expected = Encrypted(reference, data, 1);
  std::vector<std::thread> threads;
  std::array<bool, 4> right{};
  for (size_t t = 0; t < right.size(); t++) {
    threads.emplace_back([&, t] {
      right[t] = true;
      for (int round = 0; round < 200; round++) {
        AES cipher;
        cipher.MakeKey(key.data(), nullptr, 32, 16);
        right[t] = right[t] && Encrypted(cipher, data, 1) == expected;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (const bool ok : right)
    EXPECT_TRUE(ok);
}

TEST(AesData, TheExportedDataHoldsWhatHostsExpectKept) {
  EXPECT_EQ(std::string(sm_chain0, sizeof sm_chain0), std::string(32, '\0'));
  EXPECT_EQ(std::string(sm_szErrorMsg1, sizeof sm_szErrorMsg1),
            std::string("Object not Initialized\0", 23));
  EXPECT_EQ(std::string(sm_szErrorMsg2, sizeof sm_szErrorMsg2),
            std::string("Data not multiple of Block Size\0", 32));
}

TEST(AesField, MulGivesTheProductsOfTheField) {
  EXPECT_EQ(Mul(0x57, 0x83), 0xc1);
  EXPECT_EQ(Mul(0x57, 0x13), 0xfe);
  EXPECT_EQ(Mul(0x53, 0xca), 1);
  EXPECT_EQ(Mul(0, 0x83), 0);
  EXPECT_EQ(Mul(0x83, 0), 0);
  EXPECT_EQ(Mul(1, 0xff), 0xff);
}

TEST(AesField, EveryProductAgreesWithPlainArithmetic) {
  const auto rows =
      RijndaelLines("for a in range(256): print(bytes(mul(a, b) for b in range(256)).hex())", "");
  ASSERT_EQ(rows.size(), 256u);
  for (int a = 0; a < 256; a++) {
    std::string row;
    for (int b = 0; b < 256; b++)
      row += static_cast<char>(Mul(a, b));
    ASSERT_EQ(HexOf(row), rows[static_cast<size_t>(a)]);
  }
}

TEST(AesField, MulLooksAtTheLowBytesOnly) {
  EXPECT_EQ(Mul(0x157, -0x7d), 0xc1);
  EXPECT_EQ(Mul(INT_MIN, INT_MAX), 0);
  EXPECT_EQ(Mul(-1, 1), 0xff);
}

TEST(AesField, Mul4PutsTheFirstProductHighest) {
  char factors[] = {0x0e, 0x09, 0x0d, 0x0b};
  EXPECT_EQ(Mul4(1, factors), 0x0e090d0b);
  EXPECT_EQ(Mul4(0, factors), 0);
  char bytes[] = {'\x83', '\x13', 0, '\xff'};
  EXPECT_EQ(static_cast<unsigned>(Mul4(0x57, bytes)),
            0xc1fe0000u | static_cast<unsigned>(Mul(0x57, 0xff)));
  EXPECT_LT(Mul4(1, bytes), 0);
  EXPECT_EQ(Mul4(0x57, nullptr), 0);
}
