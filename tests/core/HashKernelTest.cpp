// Every form of every kernel on one machine, at all lengths, places and divisions.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "tests/support/Oracle.h"
#include "tests/support/Support.h"
#include "utility/core/CpuFeatures.h"
#include "utility/core/CrcFold.h"
#include "utility/core/DigestText.h"
#include "utility/core/Md5Block.h"
#include "utility/core/Sha256Block.h"

using namespace tarn_test;
using namespace Tarn::Core;

namespace {

// Bytes that end where the readable memory ends.
class GuardedBytes {
 public:
  explicit GuardedBytes(const std::string& content)
      : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
        size_((content.size() + page_ - 1) / page_ * page_ + page_),
        memory_(static_cast<unsigned char*>(
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    std::memcpy(memory_ + size_ - page_ - content.size(), content.data(), content.size());
    mprotect(memory_ + size_ - page_, page_, PROT_NONE);
  }
  ~GuardedBytes() { munmap(memory_, size_); }
  GuardedBytes(const GuardedBytes&) = delete;
  GuardedBytes& operator=(const GuardedBytes&) = delete;

  // The last `count` bytes.
  [[nodiscard]] const unsigned char* Last(size_t count) const {
    return memory_ + size_ - page_ - count;
  }

 private:
  size_t page_, size_;
  unsigned char* memory_;
};

uint32_t BitwiseCrc(uint32_t polynomial, uint32_t crc, const unsigned char* data, size_t len) {
  for (; len != 0; len--, data++) {
    crc ^= *data;
    for (int bit = 0; bit < 8; bit++)
      crc = (crc >> 1) ^ ((crc & 1) != 0 ? polynomial : 0);
  }
  return crc;
}

uint32_t Bitwise32(uint32_t crc, const unsigned char* data, size_t len) {
  return BitwiseCrc(0xedb88320, crc, data, len);
}

uint8_t Bitwise8(uint8_t crc, const unsigned char* data, size_t len) {
  return static_cast<uint8_t>(BitwiseCrc(0x8c, crc, data, len));
}

// The words of a digest as digits, for a message of whole blocks plus the padding block behind it.
template <size_t kWords>
std::string Digits(const uint32_t (&state)[kWords], bool bigEndian) {
  unsigned char bytes[4 * kWords];
  for (size_t i = 0; i < kWords; i++) {
    const uint32_t word = bigEndian ? __builtin_bswap32(state[i]) : state[i];
    std::memcpy(bytes + 4 * i, &word, 4);
  }
  return Hex(bytes, sizeof bytes);
}

std::string PaddingBlock(uint64_t messageBytes, bool bigEndian) {
  std::string block(64, '\0');
  block[0] = '\x80';
  uint64_t bits = messageBytes * 8;
  if (bigEndian) bits = __builtin_bswap64(bits);
  std::memcpy(&block[56], &bits, 8);
  return block;
}

std::string Sha256ByBlocks(const unsigned char* data, size_t blocks) {
  uint32_t state[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                       0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  Sha256Blocks(state, data, blocks);
  Sha256Blocks(state, Bytes(PaddingBlock(blocks * 64, true)), 1);
  return Digits(state, true);
}

class Kernels : public testing::TestWithParam<unsigned> {
 protected:
  void SetUp() override { LimitCpuFeatures(GetParam()); }
  void TearDown() override { LimitCpuFeatures(kCpuAll); }
};

std::string FormName(const testing::TestParamInfo<unsigned>& info) {
  if (info.param == kCpuAll) return "Fastest";
  return info.param == 0 ? "Portable" : "Narrow";
}

bool CpuInfoHas(const std::string& flag) {
  const std::string info = ReadFile("/proc/cpuinfo");
  const size_t at = info.find("\nflags");
  const std::string line = info.substr(at + 1, info.find('\n', at + 1) - at - 1) + " ";
  return line.find(" " + flag + " ") != std::string::npos;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(, Kernels, testing::Values(kCpuAll, unsigned{kCpuSha | kCpuClmul}, 0u),
                         FormName);

TEST_P(Kernels, Sha256AgreesWithHashlibForAnyNumberOfBlocks) {
  const std::string data = PatternBytes(64 * 40);
  const auto expected =
      PythonLines("for n in range(41): print(hashlib.sha256(d[:64 * n]).hexdigest())", data);
  ASSERT_EQ(expected.size(), 41u);
  for (size_t n = 0; n <= 40; n++)
    ASSERT_EQ(Sha256ByBlocks(Bytes(data), n), expected[n]) << n;
}

TEST_P(Kernels, Sha256TakesBlocksAtAnyAddress) {
  const std::string data = PatternBytes(64 * 3 + 64);
  const auto expected =
      PythonLines("for n in range(64): print(hashlib.sha256(d[n:n + 192]).hexdigest())", data);
  ASSERT_EQ(expected.size(), 64u);
  for (size_t n = 0; n < 64; n++)
    ASSERT_EQ(Sha256ByBlocks(Bytes(data) + n, 3), expected[n]) << n;
}

TEST_P(Kernels, Sha256ReadsNothingBehindItsBlocks) {
  const std::string data = PatternBytes(64 * 20);
  const GuardedBytes guarded(data);
  for (size_t n = 0; n <= 20; n++) {
    ASSERT_EQ(Sha256ByBlocks(guarded.Last(64 * n), n),
              Sha256ByBlocks(Bytes(data) + data.size() - 64 * n, n));
  }
}

TEST_P(Kernels, Crc32AgreesWithBitwiseComputationAtEveryLength) {
  const std::string data = PatternBytes(1400);
  for (size_t n = 0; n <= data.size(); n++) {
    ASSERT_EQ(Crc32Register(~0u, Bytes(data), n), Bitwise32(~0u, Bytes(data), n)) << n;
  }
}

TEST_P(Kernels, Crc8AgreesWithBitwiseComputationAtEveryLength) {
  const std::string data = PatternBytes(1400);
  for (size_t n = 0; n <= data.size(); n++) {
    ASSERT_EQ(Crc8Register(0x3c, Bytes(data), n), Bitwise8(0x3c, Bytes(data), n)) << n;
  }
}

TEST_P(Kernels, ChecksumsTakeDataAtAnyAddress) {
  const std::string data = PatternBytes(1100);
  for (size_t at = 0; at < 70; at++) {
    ASSERT_EQ(Crc32Register(1, Bytes(data) + at, 1000), Bitwise32(1, Bytes(data) + at, 1000)) << at;
    ASSERT_EQ(Crc8Register(1, Bytes(data) + at, 1000), Bitwise8(1, Bytes(data) + at, 1000)) << at;
  }
}

TEST_P(Kernels, ChecksumsGoOnFromAnyRegister) {
  const std::string data = PatternBytes(700);
  const uint32_t whole32 = Bitwise32(0x12345678, Bytes(data), data.size());
  const uint8_t whole8 = Bitwise8(0x5a, Bytes(data), data.size());
  for (size_t cut = 0; cut <= data.size(); cut++) {
    const uint32_t crc32 = Crc32Register(0x12345678, Bytes(data), cut);
    ASSERT_EQ(Crc32Register(crc32, Bytes(data) + cut, data.size() - cut), whole32) << cut;
    const uint8_t crc8 = Crc8Register(0x5a, Bytes(data), cut);
    ASSERT_EQ(Crc8Register(crc8, Bytes(data) + cut, data.size() - cut), whole8) << cut;
  }
}

TEST_P(Kernels, EverySingleBitOfTheInputCounts) {
  std::string data(600, '\0');
  const uint32_t crc32 = Crc32Register(0, Bytes(data), data.size());
  const uint8_t crc8 = Crc8Register(0, Bytes(data), data.size());
  for (size_t bit = 0; bit < data.size() * 8; bit++) {
    data[bit / 8] = static_cast<char>(1 << (bit % 8));
    ASSERT_NE(Crc32Register(0, Bytes(data), data.size()), crc32) << bit;
    ASSERT_NE(Crc8Register(0, Bytes(data), data.size()), crc8) << bit;
    data[bit / 8] = 0;
  }
}

TEST_P(Kernels, ChecksumsReadNothingOutsideTheirData) {
  const GuardedBytes guarded(PatternBytes(900));
  for (size_t n = 0; n <= 900; n++) {
    ASSERT_EQ(Crc32Register(7, guarded.Last(n), n), Bitwise32(7, guarded.Last(n), n)) << n;
    ASSERT_EQ(Crc8Register(7, guarded.Last(n), n), Bitwise8(7, guarded.Last(n), n)) << n;
  }
}

TEST_P(Kernels, LongInputAgreesWithZlib) {
  const std::string data = PatternBytes(3000017);
  EXPECT_EQ(std::to_string(~Crc32Register(~0u, Bytes(data), data.size())),
            PythonLines("print(zlib.crc32(d))", data).at(0));
}

TEST(Md5Kernel, AgreesWithHashlibForAnyNumberOfBlocksAtAnyAddress) {
  const std::string data = PatternBytes(64 * 40 + 40);
  const auto expected =
      PythonLines("for n in range(41): print(hashlib.md5(d[n:n + 64 * n]).hexdigest())", data);
  ASSERT_EQ(expected.size(), 41u);
  for (size_t n = 0; n <= 40; n++) {
    uint32_t state[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    Md5Blocks(state, Bytes(data) + n, n);
    Md5Blocks(state, Bytes(PaddingBlock(64 * n, false)), 1);
    ASSERT_EQ(Digits(state, false), expected[n]) << n;
  }
}

TEST(Md5Kernel, ReadsNothingBehindItsBlocks) {
  const GuardedBytes guarded(PatternBytes(64 * 5));
  uint32_t state[4] = {1, 2, 3, 4};
  for (size_t n = 0; n <= 5; n++)
    Md5Blocks(state, guarded.Last(64 * n), n);
  EXPECT_NE(state[0], 1u);
}

TEST(DigestText, EveryByteBecomesTwoLowerCaseDigits) {
  unsigned char bytes[256];
  for (int i = 0; i < 256; i++)
    bytes[i] = static_cast<unsigned char>(i);
  char text[513];
  std::memset(text, '#', sizeof text);
  WriteDigest(text, bytes, 256);
  EXPECT_EQ(text, Hex(bytes, 256));
}

TEST(DigestText, WritesNothingBehindItsNul) {
  const std::string data = PatternBytes(32);
  for (const size_t count : {0u, 8u, 16u, 32u}) {
    char text[80];
    std::memset(text, '#', sizeof text);
    WriteDigest(text, Bytes(data), count);
    ASSERT_EQ(std::string(text), Hex(Bytes(data), count));
    for (size_t i = 2 * count + 1; i < sizeof text; i++)
      ASSERT_EQ(text[i], '#') << i;
  }
}

TEST(CpuFeatures, AnswersAsThePlatformSays) {
  LimitCpuFeatures(kCpuAll);
  EXPECT_EQ(CpuHas(kCpuSha), CpuInfoHas("sha_ni") && CpuInfoHas("sse4_1"));
  EXPECT_EQ(CpuHas(kCpuClmul), CpuInfoHas("pclmulqdq") && CpuInfoHas("sse4_1"));
  EXPECT_EQ(CpuHas(kCpuWideClmul), CpuInfoHas("vpclmulqdq") && CpuInfoHas("avx512f"));
}

TEST(CpuFeatures, CanBeWithdrawnAndGivenBack) {
  LimitCpuFeatures(0);
  EXPECT_FALSE(CpuHas(kCpuSha) || CpuHas(kCpuClmul) || CpuHas(kCpuWideClmul));
  LimitCpuFeatures(kCpuClmul);
  EXPECT_FALSE(CpuHas(kCpuSha) || CpuHas(kCpuWideClmul));
  EXPECT_EQ(CpuHas(kCpuClmul), CpuInfoHas("pclmulqdq"));
  LimitCpuFeatures(kCpuAll);
  EXPECT_EQ(CpuHas(kCpuSha), CpuInfoHas("sha_ni"));
}

TEST(CpuFeatures, TheFirstQuestionMayComeFromSeveralThreads) {
  std::vector<std::thread> threads;
  std::vector<char> answers(4);
  for (char& answer : answers) {
    threads.emplace_back([&answer] { answer = CpuHas(kCpuSha) ? 'y' : 'n'; });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (const char answer : answers)
    EXPECT_EQ(answer, CpuInfoHas("sha_ni") ? 'y' : 'n');
}
