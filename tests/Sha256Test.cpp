// SHA-256 against hashlib and the published vectors.
#include <Tarn/Generic/Sha256.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <thread>

#include "tests/support/Oracle.h"
#include "tests/support/Support.h"

using namespace tarn_test;

namespace {

constexpr char kEmpty[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

std::string Digest(const std::string& text) {
  unsigned char out[32];
  sha256_hash(out, Bytes(text), text.size());
  return Hex(out, sizeof out);
}

std::string DividedDigest(const std::string& text, size_t cut) {
  sha256_t context;
  unsigned char out[32];
  sha256_init(&context);
  sha256_update(&context, Bytes(text), cut);
  sha256_update(&context, Bytes(text) + cut, text.size() - cut);
  sha256_final(&context, out);
  return Hex(out, sizeof out);
}

}  // namespace

TEST(Sha256, PublishedVectorsHold) {
  EXPECT_EQ(Digest(""), kEmpty);
  EXPECT_EQ(Digest("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Digest("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(Digest(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, EveryLengthAgreesWithHashlib) {
  const std::string data = PatternBytes(300);
  const auto expected =
      PythonLines("for n in range(301): print(hashlib.sha256(d[:n]).hexdigest())", data);
  ASSERT_EQ(expected.size(), 301u);
  for (size_t n = 0; n <= 300; n++)
    ASSERT_EQ(Digest(data.substr(0, n)), expected[n]) << n;
}

TEST(Sha256, LargeInputAgreesWithHashlib) {
  const std::string data = PatternBytes(3000001);
  EXPECT_EQ(Digest(data), PythonLines("print(hashlib.sha256(d).hexdigest())", data).at(0));
}

TEST(Sha256, ADivisionAtAnyPositionGivesTheSameDigest) {
  const std::string data = PatternBytes(200);
  const auto expected = PythonLines("print(hashlib.sha256(d).hexdigest())", data);
  for (size_t cut = 0; cut <= data.size(); cut++) {
    ASSERT_EQ(DividedDigest(data, cut), expected.at(0)) << cut;
  }
}

TEST(Sha256, BytesOneAtATimeGiveTheSameDigest) {
  const std::string data = PatternBytes(1000);
  sha256_t context;
  sha256_init(&context);
  for (const char& byte : data) {
    sha256_update(&context, reinterpret_cast<const unsigned char*>(&byte), 1);
  }
  unsigned char out[32];
  sha256_final(&context, out);
  EXPECT_EQ(Hex(out, 32), PythonLines("print(hashlib.sha256(d).hexdigest())", data).at(0));
}

TEST(Sha256, TheResultMayReplaceTheInput) {
  unsigned char text[64] = "abc";
  sha256_hash(text, text, 3);
  EXPECT_EQ(Hex(text, 32), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(Sha256, TheContextCountsBytesAndHoldsTheRestOfABlock) {
  sha256_t context;
  sha256_init(&context);
  EXPECT_EQ(context.state[0], 0x6a09e667u);
  EXPECT_EQ(context.count, 0u);
  const std::string data = PatternBytes(70);
  sha256_update(&context, Bytes(data), data.size());
  EXPECT_EQ(context.count, 70u);
  EXPECT_EQ(std::memcmp(context.buffer, data.data() + 64, 6), 0);
}

TEST(Sha256, AContextCanBeStartedAnew) {
  sha256_t context;
  unsigned char out[32];
  for (int round = 0; round < 2; round++) {
    sha256_init(&context);
    sha256_update(&context, Bytes("abc"), 3);
    sha256_final(&context, out);
    EXPECT_EQ(Hex(out, 4), "ba7816bf");
  }
}

TEST(Sha256, ContextsKeepTheirPlaces) {
  EXPECT_EQ(sizeof(sha256_t), 104u);
  EXPECT_EQ(offsetof(sha256_t, count), 32u);
  EXPECT_EQ(offsetof(sha256_t, buffer), 40u);
}

TEST(Sha256, NullPointersAreHarmless) {
  sha256_t context;
  unsigned char out[32];
  sha256_init(nullptr);
  sha256_update(nullptr, Bytes("abc"), 3);
  sha256_final(nullptr, out);
  sha256_hash(nullptr, Bytes("abc"), 3);
  sha256_init(&context);
  sha256_update(&context, nullptr, 3);
  sha256_final(&context, nullptr);
  sha256_final(&context, out);
  EXPECT_EQ(Hex(out, 32), kEmpty);
  sha256_hash(out, nullptr, 5);
  EXPECT_EQ(Hex(out, 32), kEmpty);
}

TEST(Sha256, LiesInTheLibrarysNamespaceToo) {
  unsigned char out[32];
  Tarn::Generic::sha256_hash(out, Bytes(""), 0);
  EXPECT_EQ(Hex(out, 32), kEmpty);
}

TEST(Sha256, DistinctContextsMayBeUsedAtOnce) {
  const std::string data = PatternBytes(1000);
  const std::string expected = PythonLines("print(hashlib.sha256(d).hexdigest())", data).at(0);
  std::vector<std::thread> threads;
  std::array<bool, 4> right{};
  for (size_t t = 0; t < right.size(); t++) {
    threads.emplace_back([&, t] {
      right[t] = true;
      for (size_t cut = 0; cut < 200; cut++) {
        right[t] = right[t] && DividedDigest(data, cut) == expected;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (const bool ok : right)
    EXPECT_TRUE(ok);
}
