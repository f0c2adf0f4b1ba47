// MD5 in its three forms against hashlib, md5sum and the published vectors.
#include <Tarn/Generic/Md5.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <thread>

#include "tests/support/Capture.h"
#include "tests/support/FailingNew.h"
#include "tests/support/Oracle.h"
#include "tests/support/Support.h"

using namespace tarn_test;
using Tarn::Generic::CMd5;

namespace {

constexpr char kEmpty[] = "d41d8cd98f00b204e9800998ecf8427e";

std::vector<std::pair<std::string, std::string>> PublishedVectors() {
  return {{"", kEmpty},
          {"a", "0cc175b9c0f1b6a831c399e269772661"},
          {"abc", "900150983cd24fb0d6963f7d28e17f72"},
          {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
          {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
          {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
           "d174ab98d277d9f5a5611c2c9f419d9f"},
          {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
           "57edf4a22be3c955ac49da2e2107b67a"}};
}

unsigned char* Mutable(const std::string& text, size_t at = 0) {
  return const_cast<unsigned char*>(Bytes(text)) + at;
}

std::string PlainDigest(const std::string& text, size_t cut) {
  MD5_CTX context;
  MD5Init(&context);
  MD5Update(&context, Mutable(text), static_cast<unsigned int>(cut));
  MD5Update(&context, Mutable(text, cut), static_cast<unsigned int>(text.size() - cut));
  MD5Final(&context);
  return Hex(context.digest, sizeof context.digest);
}

std::string StreamedDigest(const std::string& text, size_t cut) {
  MD5 digest;
  digest.update(text.data(), static_cast<unsigned int>(cut));
  digest.update(Bytes(text) + cut, static_cast<unsigned int>(text.size() - cut));
  return digest.finalize().hexdigest();
}

std::string FileDigest(const std::string& path, int len) {
  char* text = MD5_file(const_cast<char*>(path.c_str()), len);
  if (text == nullptr) return "null";
  std::string result = text;
  free(text);
  return result;
}

}  // namespace

TEST(Md5, PublishedVectorsHold) {
  for (const auto& [text, digits] : PublishedVectors()) {
    EXPECT_EQ(md5(text), digits) << text;
  }
}

TEST(Md5, EveryLengthAgreesWithHashlibInAllForms) {
  std::string data = PatternBytes(300);
  for (char& c : data) {
    if (c == '\0') c = 'z';  // CMd5 stops there
  }
  const auto expected =
      PythonLines("for n in range(301): print(hashlib.md5(d[:n]).hexdigest())", data);
  ASSERT_EQ(expected.size(), 301u);
  CMd5 converter;
  for (size_t n = 0; n <= 300; n++) {
    const std::string text = data.substr(0, n);
    ASSERT_EQ(md5(text), expected[n]) << n;
    ASSERT_EQ(MD5(text).hexdigest(), expected[n]) << n;
    ASSERT_EQ(PlainDigest(text, 0), expected[n]) << n;
    ASSERT_STREQ(converter.String(text.c_str()), expected[n].c_str()) << n;
  }
}

TEST(Md5, LargeTextsAgreeWithHashlib) {
  const std::string data = PatternBytes(3000001);
  const auto expected = PythonLines(
      "for n in (65535, 65536, 65537, 1048576, 3000001): print(hashlib.md5(d[:n]).hexdigest())",
      data);
  ASSERT_EQ(expected.size(), 5u);
  size_t i = 0;
  for (const size_t n : {65535u, 65536u, 65537u, 1048576u, 3000001u}) {
    EXPECT_EQ(md5(data.substr(0, n)), expected[i++]) << n;
  }
}

TEST(Md5, ADivisionAtAnyPositionGivesTheSameDigest) {
  const std::string data = PatternBytes(200);
  const auto expected = PythonLines("print(hashlib.md5(d).hexdigest())", data);
  ASSERT_EQ(expected.size(), 1u);
  for (size_t cut = 0; cut <= data.size(); cut++) {
    ASSERT_EQ(StreamedDigest(data, cut), expected[0]) << cut;
    ASSERT_EQ(PlainDigest(data, cut), expected[0]) << cut;
  }
}

TEST(Md5, BytesOneAtATimeGiveTheSameDigest) {
  const std::string data = PatternBytes(1000);
  MD5 digest;
  for (const char& byte : data)
    digest.update(&byte, 1);
  EXPECT_EQ(digest.finalize().hexdigest(),
            PythonLines("print(hashlib.md5(d).hexdigest())", data).at(0));
}

TEST(Md5, TextsMayHoldZeroBytes) {
  const std::string data("a\0b\0", 4);
  EXPECT_EQ(md5(data), PythonLines("print(hashlib.md5(d).hexdigest())", data).at(0));
}

TEST(Md5, LiesInTheLibrarysNamespaceToo) {
  EXPECT_EQ(Tarn::Generic::md5("abc"), ::md5("abc"));
}

// The class

TEST(Md5Class, GivesNoDigitsBeforeTheEndKept) {
  MD5 digest;
  EXPECT_EQ(digest.hexdigest(), "");
  digest.update("abc", 3);
  EXPECT_EQ(digest.hexdigest(), "");
  std::ostringstream out;
  out << digest;
  EXPECT_EQ(out.str(), "");
}

TEST(Md5Class, FinalizeReturnsTheObjectItself) {
  MD5 digest;
  EXPECT_EQ(&digest.finalize(), &digest);
  EXPECT_EQ(digest.hexdigest(), kEmpty);
}

TEST(Md5Class, ASecondFinalizeChangesNothing) {
  MD5 digest("abc");
  digest.finalize().finalize();
  EXPECT_EQ(digest.hexdigest(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Class, InputAfterTheEndIsIgnoredKept) {
  MD5 digest("abc");
  digest.update("more", 4);
  digest.update(Bytes("more"), 4);
  digest.finalize();
  EXPECT_EQ(digest.hexdigest(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Class, ACopyGoesItsOwnWay) {
  MD5 first;
  first.update("ab", 2);
  MD5 second = first;
  first.update("c", 1);
  EXPECT_EQ(first.finalize().hexdigest(), md5("abc"));
  EXPECT_EQ(second.finalize().hexdigest(), md5("ab"));
}

TEST(Md5Class, IsWrittenAsItsDigits) {
  std::ostringstream out;
  out << "[" << MD5("abc") << "]";
  EXPECT_EQ(out.str(), "[900150983cd24fb0d6963f7d28e17f72]");
}

TEST(Md5Class, HoldsItsFieldsInOrderAndWipesInputAtTheEnd) {
  MD5 digest;
  digest.update("secret input", 12);
  std::array<unsigned char, sizeof(MD5)> raw;
  std::memcpy(raw.data(), &digest, sizeof digest);
  EXPECT_EQ(raw[0], 0);                                    // finished
  EXPECT_EQ(std::memcmp(&raw[1], "secret input", 12), 0);  // buffer
  EXPECT_EQ(raw[68], 96);                                  // count
  digest.finalize();
  std::memcpy(raw.data(), &digest, sizeof digest);
  EXPECT_EQ(raw[0], 1);
  for (size_t i = 1; i < 65; i++)
    ASSERT_EQ(raw[i], 0) << i;
  for (size_t i = 68; i < 76; i++)
    ASSERT_EQ(raw[i], 0) << i;
  EXPECT_EQ(Hex(&raw[92], 16), md5("secret input"));
  EXPECT_EQ(Hex(&raw[76], 16), md5("secret input"));  // chaining words
}

TEST(Md5Class, GivesNoDigitsWhenMemoryIsShort) {
  const MD5 digest("abc");
  std::string digits = "untouched";
  {
    const FailingNew shortage(1, 0);
    digits = digest.hexdigest();
    EXPECT_EQ(shortage.Failed(), 1);
  }
  EXPECT_EQ(digits, "");
  EXPECT_EQ(digest.hexdigest(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Class, NullOrEmptyInputAddsNothing) {
  MD5 digest;
  digest.update(static_cast<const char*>(nullptr), 5);
  digest.update(static_cast<const unsigned char*>(nullptr), 5);
  digest.update("abc", 0);
  EXPECT_EQ(digest.finalize().hexdigest(), kEmpty);
}

// The plain routines

TEST(Md5Plain, CountsBitsInTwoWords) {
  MD5_CTX context;
  MD5Init(&context);
  EXPECT_EQ(context.count[0], 0u);
  EXPECT_EQ(context.state[0], 0x67452301u);
  context.count[0] = 0xfffffe00;  // a whole block before the low word is full
  MD5Update(&context, Mutable(PatternBytes(65)), 65);
  EXPECT_EQ(context.count[0], 8u);
  EXPECT_EQ(context.count[1], 1u);
}

TEST(Md5Plain, KeepsTheRestOfABlockInTheBuffer) {
  MD5_CTX context;
  MD5Init(&context);
  MD5Update(&context, Mutable("hello"), 5);
  EXPECT_EQ(std::memcmp(context.buffer, "hello", 5), 0);
  EXPECT_EQ(context.count[0], 40u);
}

TEST(Md5Plain, AContextCanBeStartedAnew) {
  MD5_CTX context;
  for (int round = 0; round < 2; round++) {
    MD5Init(&context);
    MD5Update(&context, Mutable("abc"), 3);
    MD5Final(&context);
    EXPECT_EQ(Hex(context.digest, 16), "900150983cd24fb0d6963f7d28e17f72");
  }
}

TEST(Md5Plain, NullPointersAreHarmless) {
  MD5Init(nullptr);
  MD5Update(nullptr, Mutable("abc"), 3);
  MD5Final(nullptr);
  MD5_CTX context;
  MD5Init(&context);
  MD5Update(&context, nullptr, 3);
  MD5Update(&context, nullptr, 0);
  MD5Final(&context);
  EXPECT_EQ(Hex(context.digest, 16), kEmpty);
}

// Half a gigabyte would be too much for the sanitizers. The digest is md5sum's.
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
TEST(Md5Plain, OneCallMayAddMoreBitsThanAWordCounts) {
  constexpr unsigned int kLen = 0x20000000 + 70;
  void* zeros = mmap(nullptr, kLen, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(zeros, MAP_FAILED);
  MD5_CTX context;
  MD5Init(&context);
  MD5Update(&context, static_cast<unsigned char*>(zeros), kLen);
  MD5Final(&context);
  munmap(zeros, kLen);
  EXPECT_EQ(Hex(context.digest, 16), "c4e29a7718ff5c0ab949f5f721c63fe0");
}
#endif

// Files

TEST(Md5File, AnEmptyFileGivesTheEmptyDigest) {
  const TempDir dir;
  WriteFile(dir.File("empty"), "");
  EXPECT_EQ(FileDigest(dir.File("empty"), 32), kEmpty);
  EXPECT_EQ(FileDigest(dir.File("empty"), 16), "8f00b204e9800998");
}

TEST(Md5File, FilesOfAllSizesAgreeWithMd5sum) {
  const TempDir dir;
  CMd5 converter;
  for (const size_t size : {1u, 55u, 56u, 63u, 64u, 65u, 1023u, 1024u, 1025u, 65535u, 65536u,
                            65537u, 131072u, 131073u, 2000000u}) {
    const std::string path = dir.File("f" + std::to_string(size));
    WriteFile(path, PatternBytes(size));
    const std::string expected = RunCommand("md5sum " + path).substr(0, 32);
    ASSERT_EQ(FileDigest(path, 32), expected) << size;
    ASSERT_EQ(FileDigest(path, 16), expected.substr(8, 16)) << size;
    ASSERT_EQ(converter.File(path.c_str()), expected) << size;
  }
}

TEST(Md5File, AFifoThatDeliversInPiecesIsReadToItsEnd) {
  const TempDir dir;
  const std::string path = dir.File("fifo");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const std::string data = PatternBytes(200000);
  std::thread writer([&] {
    FILE* out = fopen(path.c_str(), "wbe");
    for (size_t at = 0; at < data.size(); at += 777) {
      fwrite(data.data() + at, 1, std::min<size_t>(777, data.size() - at), out);
      fflush(out);
    }
    fclose(out);
  });
  EXPECT_EQ(FileDigest(path, 32), md5(data));
  writer.join();
}

TEST(Md5File, AMissingFileIsReportedKept) {
  const TempDir dir;
  const std::string path = dir.File("no such %s file");
  StderrCapture err;
  EXPECT_EQ(FileDigest(path, 32), "null");
  EXPECT_EQ(err.Text(), "fopen " + path + " failed\n");
}

TEST(Md5File, ANullPathIsReportedLikeAMissingFile) {
  StderrCapture err;
  EXPECT_EQ(MD5_file(nullptr, 32), nullptr);
  EXPECT_EQ(err.Text(), "fopen (null) failed\n");
}

TEST(Md5File, OtherLengthsGiveNothingAndSayNothingKept) {
  const TempDir dir;
  WriteFile(dir.File("f"), "abc");
  StderrCapture err;
  for (const int len : {-1, 0, 1, 8, 15, 17, 31, 33, 64, 2147483647}) {
    EXPECT_EQ(FileDigest(dir.File("f"), len), "null") << len;
  }
  EXPECT_EQ(err.Text(), "");
}

TEST(Md5File, ALengthThatWrapsCountsAsMemoryThatCannotBeHadKept) {
  const TempDir dir;
  WriteFile(dir.File("f"), "abc");
  StderrCapture err;
  EXPECT_EQ(FileDigest(dir.File("f"), -2), "null");
  EXPECT_EQ(err.Text(), "malloc failed.\n");
}

TEST(Md5File, AFolderCountsAsEmptyKept) {
  const TempDir dir;
  StderrCapture err;
  EXPECT_EQ(FileDigest(dir.Path(), 32), kEmpty);
  EXPECT_EQ(err.Text(), "");
}

TEST(Md5File, EveryPathClosesTheFile) {
  const TempDir dir;
  WriteFile(dir.File("f"), "abc");
  const int before = OpenDescriptors();
  StderrCapture err;
  const int capturing = OpenDescriptors();
  for (int round = 0; round < 50; round++) {
    for (const int len : {32, 16, 7, -2})
      FileDigest(dir.File("f"), len);
    FileDigest(dir.File("missing"), 32);
    FileDigest(dir.Path(), 32);
  }
  EXPECT_EQ(OpenDescriptors(), capturing);
  EXPECT_GE(capturing, before);
}

// The convenience class

TEST(CMd5, EmptyTextHasTheKnownDigest) {
  CMd5 converter;
  EXPECT_STREQ(converter.String(""), kEmpty);
}

TEST(CMd5, TextEndsAtItsZero) {
  CMd5 converter;
  EXPECT_EQ(converter.String("abc\0def"), md5("abc"));
}

TEST(CMd5, EveryCallUsesTheObjectsOneBufferKept) {
  CMd5 converter;
  char* first = converter.String("abc");
  EXPECT_EQ(first, reinterpret_cast<char*>(&converter));
  EXPECT_EQ(converter.String("xyz"), first);
  EXPECT_EQ(first, md5("xyz"));
  EXPECT_EQ(sizeof(CMd5), 33u);
}

TEST(CMd5, AFailureClearsTheLastResult) {
  const TempDir dir;
  CMd5 converter;
  converter.String("abc");
  StderrCapture err;
  EXPECT_STREQ(converter.File(dir.File("missing").c_str()), "");
  EXPECT_EQ(err.Text(), "fopen " + dir.File("missing") + " failed\n");
  converter.String("abc");
  EXPECT_STREQ(converter.String(nullptr), "");
  converter.String("abc");
  EXPECT_STREQ(converter.File(nullptr), "");
}

TEST(CMd5, TextsNeedNoMemory) {
  CMd5 converter;
  const char* digits = nullptr;
  {
    const FailingNew shortage(1, 0);
    digits = converter.String("abc");
  }
  EXPECT_STREQ(digits, "900150983cd24fb0d6963f7d28e17f72");
}

TEST(CMd5, ANewObjectsBufferIsEmpty) {
  const CMd5 converter;
  EXPECT_STREQ(reinterpret_cast<const char*>(&converter), "");
}

TEST(Md5, DistinctObjectsMayBeUsedAtOnce) {
  const TempDir dir;
  WriteFile(dir.File("f"), "abc");
  std::vector<std::thread> threads;
  std::array<bool, 4> right{};
  for (size_t t = 0; t < right.size(); t++) {
    threads.emplace_back([&, t] {
      CMd5 converter;
      right[t] = true;
      for (int round = 0; round < 50; round++) {
        const std::string file = converter.File(dir.File("f").c_str());
        right[t] = right[t] && file == converter.String("abc") && file == md5("abc");
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  for (const bool ok : right)
    EXPECT_TRUE(ok);
}
