#include "utility/core/Base64.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Oracle.h"

using namespace Tarn::Core;
using namespace tarn_test;

namespace {

std::string Encode(const std::string& bytes) {
  std::string text(Base64EncodedLength(bytes.size()), '?');
  EncodeBase64(Bytes(bytes), bytes.size(), text.data());
  return text;
}

std::string Decode(const std::string& text) {
  // A block of the exact size: one byte too many is seen by the address sanitizer.
  std::vector<unsigned char> out(Base64DecodedLimit(text.size()));
  const size_t count = DecodeBase64(text, out.data());
  return std::string(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(count));
}

}  // namespace

TEST(Base64, EncodesTheVectorsOfTheRfc) {
  EXPECT_EQ(Encode(""), "");
  EXPECT_EQ(Encode("f"), "Zg==");
  EXPECT_EQ(Encode("fo"), "Zm8=");
  EXPECT_EQ(Encode("foo"), "Zm9v");
  EXPECT_EQ(Encode("foob"), "Zm9vYg==");
  EXPECT_EQ(Encode("fooba"), "Zm9vYmE=");
  EXPECT_EQ(Encode("foobar"), "Zm9vYmFy");
}

TEST(Base64, EncodesEveryLengthAsPythonDoes) {
  const std::string bytes = PatternBytes(300);
  const auto lines = PythonLines(
      "import base64\nfor n in range(len(d)): print(base64.b64encode(d[:n]).decode())", bytes);
  ASSERT_EQ(lines.size(), bytes.size());
  for (size_t n = 0; n < lines.size(); ++n)
    EXPECT_EQ(Encode(bytes.substr(0, n)), lines[n]);
}

TEST(Base64, DecodesEveryLengthThatPythonEncoded) {
  const std::string bytes = PatternBytes(300, 7);
  const auto lines = PythonLines(
      "import base64\nfor n in range(len(d)): print(base64.b64encode(d[:n]).decode())", bytes);
  ASSERT_EQ(lines.size(), bytes.size());
  for (size_t n = 0; n < lines.size(); ++n)
    EXPECT_EQ(Decode(lines[n]), bytes.substr(0, n));
}

TEST(Base64, StopsAtTheFirstCharacterOutsideTheAlphabet) {
  for (int c = 0; c < 256; ++c) {
    const bool inside = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                        (c >= 'a' && c <= 'z') || c == '+' || c == '/';
    if (inside) continue;
    for (size_t at = 0; at < 5; ++at) {
      std::string text = "YWJjYWJj";
      text[at] = static_cast<char>(c);
      EXPECT_EQ(Decode(text), std::string("abca").substr(0, at * 3 / 4)) << c << " at " << at;
    }
  }
}

TEST(Base64, DecodesAnUnfinishedLastGroup) {
  EXPECT_EQ(Decode("YWJjY"), "abc");
  EXPECT_EQ(Decode("YWJjYQ"), "abca");
  EXPECT_EQ(Decode("YWJjYWI"), "abcab");
}

TEST(Base64, IgnoresTheUnusedBitsOfTheLastGroup) {
  EXPECT_EQ(Decode("YR=="), "a");
  EXPECT_EQ(Decode("YWL="), "ab");
}

TEST(Base64, SizesOfHugeInputsDoNotWrap) {
  EXPECT_EQ(Base64EncodedLength(0xFFFFFFFFu), size_t{5726623060});
  EXPECT_EQ(Base64DecodedLimit(size_t{1} << 40), (size_t{1} << 40) / 4 * 3);
}
