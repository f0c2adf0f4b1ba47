// HMAC-SHA-256 against Python, openssl and the published vectors.
#include <Tarn/Generic/HmacSHA256.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include <array>
#include <cstring>
#include <thread>

#include "tests/support/Oracle.h"
#include "tests/support/Support.h"
#include "utility/core/CpuFeatures.h"

using namespace tarn_test;
using Tarn::Generic::CHmacSHA256;

namespace {

constexpr char kEmpty[] = "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad";

std::string Code(const std::string& data, const std::string& key) {
  unsigned char out[32];
  hmac_sha256(out, Bytes(data), data.size(), Bytes(key), key.size());
  return Hex(out, sizeof out);
}

std::string Text(CHmacSHA256& object, const std::string& data, const std::string& key) {
  return object.Encrypt(const_cast<char*>(data.data()), static_cast<int>(data.size()),
                        const_cast<char*>(key.data()), static_cast<int>(key.size()));
}

// Runs hmac_sha256 on a stack of its own, which stays to be looked at.
class ObservedStack {
 public:
  ObservedStack() : memory_(mmap(nullptr, kSize, PROT_READ | PROT_WRITE, kFlags, -1, 0)) {}
  ~ObservedStack() { munmap(memory_, kSize); }

  void Run(const std::string& key) {
    pthread_attr_t attributes;
    pthread_t thread;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstack(&attributes, memory_, kSize), 0);
    ASSERT_EQ(pthread_create(&thread, &attributes, Body, const_cast<std::string*>(&key)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
  }

  // Looks for 8 bytes of `secret`, from any multiple of 4 on.
  [[nodiscard]] bool Holds(const std::string& secret) const {
    for (size_t at = 0; at + 8 <= secret.size(); at += 4) {
      if (memmem(memory_, kSize, secret.data() + at, 8) != nullptr) return true;
    }
    return false;
  }

 private:
  static constexpr size_t kSize = 1 << 20;
  static constexpr int kFlags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK;

  static void* Body(void* key) {
    const auto& text = *static_cast<std::string*>(key);
    unsigned char out[32];
    hmac_sha256(out, Bytes("message"), 7, Bytes(text), text.size());
    return nullptr;
  }

  void* memory_;
};

std::string Masked(std::string key, char mask) {
  for (char& c : key)
    c = static_cast<char>(c ^ mask);
  return key;
}

std::string WordsSwapped(std::string bytes) {
  for (size_t at = 0; at + 4 <= bytes.size(); at += 4) {
    std::swap(bytes[at], bytes[at + 3]);
    std::swap(bytes[at + 1], bytes[at + 2]);
  }
  return bytes;
}

}  // namespace

TEST(HmacSHA256, PublishedVectorsHold) {
  EXPECT_EQ(Code("Hi There", std::string(20, '\x0b')),
            "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
  EXPECT_EQ(Code("what do ya want for nothing?", "Jefe"),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
  EXPECT_EQ(Code(std::string(50, '\xdd'), std::string(20, '\xaa')),
            "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe");
  EXPECT_EQ(
      Code("Test Using Larger Than Block-Size Key - Hash Key First", std::string(131, '\xaa')),
      "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
  EXPECT_EQ(Code("This is a test using a larger than block-size key and a larger than block-size "
                 "data. The key needs to be hashed before being used by the HMAC algorithm.",
                 std::string(131, '\xaa')),
            "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2");
}

TEST(HmacSHA256, EveryKeyAndMessageLengthAgreesWithPython) {
  const std::string data = PatternBytes(400);
  const auto expected = PythonLines(
      "for n in range(201): print(hmac.new(d[:n], d[200:200 + n * 7 % 200], 'sha256').hexdigest())",
      data);
  ASSERT_EQ(expected.size(), 201u);
  for (size_t n = 0; n <= 200; n++) {
    ASSERT_EQ(Code(data.substr(200, n * 7 % 200), data.substr(0, n)), expected[n]) << n;
  }
}

TEST(HmacSHA256, AgreesWithOpenssl) {
  const TempDir dir;
  WriteFile(dir.File("data"), PatternBytes(100000));
  const std::string out = RunCommand("openssl dgst -sha256 -hmac swordfish " + dir.File("data"));
  EXPECT_NE(out.find(Code(PatternBytes(100000), "swordfish")), std::string::npos) << out;
}

TEST(HmacSHA256, TheResultMayReplaceKeyOrMessage) {
  const std::string key = PatternBytes(32, 1), data = PatternBytes(32, 2);
  unsigned char both[64];
  std::memcpy(both, key.data(), 32);
  std::memcpy(both + 32, data.data(), 32);
  hmac_sha256(both, both + 32, 32, both, 32);
  EXPECT_EQ(Hex(both, 32), Code(data, key));
  std::memcpy(both, key.data(), 32);
  hmac_sha256(both + 32, both + 32, 32, both, 32);
  EXPECT_EQ(Hex(both + 32, 32), Code(data, key));
}

TEST(HmacSHA256, NullPointersAreHarmless) {
  unsigned char out[32];
  hmac_sha256(nullptr, Bytes("a"), 1, Bytes("b"), 1);
  hmac_sha256(out, nullptr, 0, nullptr, 0);
  EXPECT_EQ(Hex(out, 32), kEmpty);
  hmac_sha256(out, nullptr, 9, nullptr, 9);
  EXPECT_EQ(Hex(out, 32), kEmpty);
  hmac_sha256(out, nullptr, 9, nullptr, 900);
  EXPECT_EQ(Hex(out, 32), kEmpty);
}

TEST(HmacSHA256, LiesInTheLibrarysNamespaceToo) {
  unsigned char out[32];
  Tarn::Generic::hmac_sha256(out, nullptr, 0, nullptr, 0);
  EXPECT_EQ(Hex(out, 32), kEmpty);
}

TEST(HmacSHA256, LeavesNothingOfTheKeyOnTheStack) {
#ifndef __OPTIMIZE__
  GTEST_SKIP() << "the compiler itself leaves copies of registers behind";
#endif
  const std::string shortKey = PatternBytes(64, 3), longKey = PatternBytes(100, 4);
  for (const unsigned allowed : {Tarn::Core::kCpuAll, 0u}) {
    Tarn::Core::LimitCpuFeatures(allowed);
    Code("", std::string(65, 'k'));  // binds all symbols, which would save registers on the stack
    for (const std::string& key : {shortKey, longKey}) {
      ObservedStack stack;
      stack.Run(key);
      for (const std::string& secret : {key, Masked(key, 0x36), Masked(key, 0x5c)}) {
        EXPECT_FALSE(stack.Holds(secret)) << key.size();
        EXPECT_FALSE(stack.Holds(WordsSwapped(secret))) << key.size();
      }
    }
  }
  Tarn::Core::LimitCpuFeatures(Tarn::Core::kCpuAll);
}

// The class

TEST(CHmacSHA256, AnEmptyMessageUnderAnEmptyKeyHasTheKnownCode) {
  CHmacSHA256 object;
  EXPECT_EQ(Text(object, "", ""), kEmpty);
  EXPECT_STREQ(object.Encrypt(nullptr, 0, nullptr, 0), kEmpty);
}

TEST(CHmacSHA256, TheMessageComesFirstAndTheKeySecondKept) {
  CHmacSHA256 object;
  EXPECT_EQ(Text(object, "what do ya want for nothing?", "Jefe"),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

TEST(CHmacSHA256, BothMayHoldZeroBytes) {
  CHmacSHA256 object;
  const std::string data("a\0b", 3), key("\0k\0", 3);
  EXPECT_EQ(Text(object, data, key),
            PythonLines("print(hmac.new(b'\\0k\\0', d, 'sha256').hexdigest())", data).at(0));
}

TEST(CHmacSHA256, EveryCallUsesTheObjectsOneBufferKept) {
  CHmacSHA256 object;
  EXPECT_STREQ(reinterpret_cast<char*>(&object), "");
  char text[] = "x";
  char* first = object.Encrypt(text, 1, text, 1);
  EXPECT_EQ(first, reinterpret_cast<char*>(&object));
  EXPECT_EQ(object.Encrypt(text, 0, text, 0), first);
  EXPECT_STREQ(first, kEmpty);
  EXPECT_EQ(sizeof(CHmacSHA256), 65u);
}

TEST(CHmacSHA256, UnusableArgumentsGiveEmptyText) {
  CHmacSHA256 object;
  char text[] = "x";
  object.Encrypt(text, 1, text, 1);
  EXPECT_STREQ(object.Encrypt(text, -1, text, 1), "");
  EXPECT_STREQ(object.Encrypt(text, 1, text, -1), "");
  EXPECT_STREQ(object.Encrypt(nullptr, 1, text, 1), "");
  EXPECT_STREQ(object.Encrypt(text, 1, nullptr, 1), "");
  EXPECT_STREQ(object.Encrypt(nullptr, -2147483647 - 1, nullptr, -2147483647 - 1), "");
}

TEST(CHmacSHA256, DistinctObjectsMayBeUsedAtOnce) {
  std::vector<std::thread> threads;
  std::array<bool, 4> right{};
  for (size_t t = 0; t < right.size(); t++) {
    threads.emplace_back([&, t] {
      CHmacSHA256 object;
      right[t] = true;
      for (int round = 0; round < 200; round++)
        right[t] = right[t] && Text(object, "", "") == kEmpty;
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (const bool ok : right)
    EXPECT_TRUE(ok);
}
