#include "utility/core/UploadWire.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/support/Support.h"

namespace {

using namespace Tarn::Core;
using tarn_test::PatternBytes;
using tarn_test::RunCommand;

const std::string kMd5 = "0123456789abcdef0123456789abcdef";

std::string Header(uint32_t total, const std::string& md5 = kMd5, const std::string& ext = ".txt") {
  const UploadHeaderBytes bytes = BuildUploadHeader({total, md5, ext});
  return {bytes.data(), bytes.size()};
}

/// What a receiver made of a stream.
struct Received {
  std::string stored;
  int created = 0;
  int finished = 0;
  bool rejected = false;
  UploadState state;
};

/// Feeds deliveries as a server does. The header block is 50 bytes exactly: one byte too far is
/// seen by the address sanitizer.
class Receiver {
 public:
  bool Feed(std::string_view delivery) {
    while (true) {
      std::string_view part;
      switch (NextUploadStep(result_.state, header_.data(), delivery, part)) {
        case UploadStep::kMore:
          EXPECT_TRUE(delivery.empty() || result_.state.phase == UploadPhase::kDone);
          return true;
        case UploadStep::kReject:
          result_.rejected = true;
          return false;
        case UploadStep::kCreate:
          ++result_.created;
          break;
        case UploadStep::kStoreAndFinish:
          ++result_.finished;
          [[fallthrough]];
        case UploadStep::kStore:
          result_.stored.append(part);
          break;
      }
    }
  }
  [[nodiscard]] const Received& Result() const { return result_; }
  [[nodiscard]] std::string HeaderBytes() const { return {header_.begin(), header_.end()}; }

 private:
  std::vector<char> header_ = std::vector<char>(kUploadHeaderBytes);
  Received result_;
};

TEST(UploadWire, PutsTheHeaderOfATenByteFileIntoFiftyBytes) {
  const std::string expected = std::string("\x3C\0\0\0", 4) + kMd5 + ".txt" + std::string(10, '\0');
  EXPECT_EQ(Header(60), expected);
  EXPECT_EQ(expected.size(), 50u);
}

TEST(UploadWire, BuildsTheHeaderThatAnotherEncoderBuilds) {
  const std::string python = RunCommand(
      "python3 -c \"import struct,sys;sys.stdout.buffer.write(struct.pack('<I32s14s',0xFEDCBA98,"
      "b'" +
      kMd5 + "',b'.jpeg'))\"");
  EXPECT_EQ(Header(0xFEDCBA98u, kMd5, ".jpeg"), python);
}

TEST(UploadWire, CutsALongExtensionAndPadsAMissingMd5) {
  std::string expected(32, '\0');
  expected += ".123456789abcd";
  EXPECT_EQ(Header(50, "", ".123456789abcdefghi").substr(4), expected);
}

TEST(UploadWire, ParsesWhatItBuilds) {
  const std::string bytes = Header(4000000000u, kMd5, ".tar");
  const UploadHeader header = ParseUploadHeader(bytes.data());
  EXPECT_EQ(header.totalLength, 4000000000u);
  EXPECT_EQ(header.md5, kMd5);
  EXPECT_EQ(header.ext, ".tar");
}

TEST(UploadWire, EndsTheExtensionAtItsFirstNulOrAtFourteenBytes) {
  EXPECT_EQ(ParseUploadHeader(Header(50, kMd5, std::string(".a\0b", 4)).data()).ext, ".a");
  EXPECT_EQ(ParseUploadHeader(Header(50, kMd5, ".3456789012345").data()).ext, ".3456789012345");
  EXPECT_EQ(ParseUploadHeader(Header(50, kMd5, "").data()).ext, "");
}

TEST(UploadWire, TakesTheExtensionFromTheLastDotOfTheWholePath) {
  EXPECT_EQ(UploadExtension("/a/b.txt"), ".txt");
  EXPECT_EQ(UploadExtension("b.tar.gz"), ".gz");
  EXPECT_EQ(UploadExtension("/a/b."), ".");
  EXPECT_EQ(UploadExtension("/a/b"), "");
  EXPECT_EQ(UploadExtension(""), "");
}

TEST(UploadWire, TakesADotOfAFolderForTheExtensionKept) {
  EXPECT_EQ(UploadExtension("/dir.d/file"), ".d/file");
}

TEST(UploadWire, ReceivesTheSameWhereverTheStreamIsCut) {
  const std::string data = PatternBytes(30);
  const std::string stream = Header(80) + data;
  for (size_t first = 0; first <= stream.size(); ++first) {
    for (size_t second = first; second <= stream.size(); ++second) {
      Receiver receiver;
      receiver.Feed(std::string_view(stream).substr(0, first));
      receiver.Feed(std::string_view(stream).substr(first, second - first));
      receiver.Feed(std::string_view(stream).substr(second));
      ASSERT_EQ(receiver.Result().stored, data) << first << ' ' << second;
      ASSERT_EQ(receiver.Result().created, 1);
      ASSERT_EQ(receiver.Result().finished, 1);
    }
  }
}

TEST(UploadWire, ReceivesByteByByte) {
  const std::string stream = Header(53) + "abc";
  Receiver receiver;
  for (const char& byte : stream)
    receiver.Feed({&byte, 1});
  EXPECT_EQ(receiver.Result().stored, "abc");
  EXPECT_EQ(receiver.Result().finished, 1);
}

TEST(UploadWire, WritesNoMoreThanFiftyHeaderBytesWhateverTheDelivery) {
  const std::string stream = Header(50 + (1u << 21)) + PatternBytes(1 << 20);
  Receiver receiver;
  receiver.Feed(std::string_view(stream).substr(0, 49));
  EXPECT_EQ(receiver.Result().state.received, 49u);
  receiver.Feed(std::string_view(stream).substr(49));
  EXPECT_EQ(receiver.HeaderBytes(), stream.substr(0, 50));
  EXPECT_EQ(receiver.Result().stored, stream.substr(50));
}

TEST(UploadWire, CountsHeaderBytesFirstAndDataBytesAfterwards) {
  Receiver receiver;
  receiver.Feed(Header(60).substr(0, 20));
  EXPECT_EQ(receiver.Result().state.received, 20u);
  receiver.Feed(Header(60).substr(20) + "abcd");
  EXPECT_EQ(receiver.Result().state.received, 4u);
  EXPECT_EQ(receiver.Result().state.expected, 10u);
}

TEST(UploadWire, IgnoresEverythingAfterTheLastByte) {
  Receiver receiver;
  receiver.Feed(Header(53) + "abc");
  EXPECT_TRUE(receiver.Feed(Header(60) + "0123456789"));
  EXPECT_TRUE(receiver.Feed(std::string(200, 'x')));
  EXPECT_EQ(receiver.Result().stored, "abc");
  EXPECT_EQ(receiver.Result().created, 1);
  EXPECT_EQ(receiver.Result().finished, 1);
  EXPECT_EQ(receiver.HeaderBytes(), Header(53));
}

TEST(UploadWire, NeverFinishesOnceMoreThanAnnouncedHasComeKept) {
  Receiver receiver;
  receiver.Feed(Header(53) + "abcd");
  receiver.Feed("efg");
  EXPECT_EQ(receiver.Result().stored, "abcdefg");
  EXPECT_EQ(receiver.Result().finished, 0);
}

TEST(UploadWire, DoesNotFinishAnEmptyFile) {
  Receiver receiver;
  receiver.Feed(Header(50));
  receiver.Feed("");
  EXPECT_EQ(receiver.Result().created, 1);
  EXPECT_EQ(receiver.Result().finished, 0);
  receiver.Feed("x");
  EXPECT_EQ(receiver.Result().finished, 0);
}

TEST(UploadWire, RejectsAnAnnouncedLengthBelowTheHeaders) {
  for (const uint32_t total : {0u, 1u, 49u}) {
    Receiver receiver;
    EXPECT_FALSE(receiver.Feed(Header(total) + "data")) << total;
    EXPECT_TRUE(receiver.Result().rejected);
    EXPECT_EQ(receiver.Result().created, 0);
  }
}

TEST(UploadWire, DoesNotJudgeALengthBeforeTheHeaderIsComplete) {
  Receiver receiver;
  EXPECT_TRUE(receiver.Feed(Header(0).substr(0, 49)));
  EXPECT_FALSE(receiver.Feed(Header(0).substr(49)));
}

TEST(UploadWire, AcceptsTheLongestAnnouncedLength) {
  Receiver receiver;
  receiver.Feed(Header(UINT32_MAX));
  EXPECT_EQ(receiver.Result().state.expected, 4294967245u);
}

TEST(UploadWire, SticksAtTheLargestCountInsteadOfMeetingTheAnnouncedOneAgain) {
  UploadState state{UploadPhase::kData, UINT32_MAX - 2, 7};
  std::string_view delivery = "0123456789";
  std::string_view part;
  EXPECT_EQ(NextUploadStep(state, nullptr, delivery, part), UploadStep::kStore);
  EXPECT_EQ(state.received, UINT32_MAX);
  delivery = "01234567";
  EXPECT_EQ(NextUploadStep(state, nullptr, delivery, part), UploadStep::kStore);
  EXPECT_EQ(state.received, UINT32_MAX);
}

TEST(UploadWire, NamesAFileByTimeNumberAndExtension) {
  EXPECT_EQ(UploadName({2024, 3, 5, 7, 8, 9, 12}, 4, ".txt"), "20240305070809012004.txt");
  EXPECT_EQ(UploadName({2024, 12, 31, 23, 59, 59, 999}, 999, ""), "20241231235959999999");
}

TEST(UploadWire, PadsTheYearWithBlanksKept) {
  EXPECT_EQ(UploadName({24, 1, 1, 0, 0, 0, 0}, 0, "."), "  240101000000000000.");
}

TEST(UploadWire, RefusesAnExtensionThatLeavesTheFolder) {
  EXPECT_FALSE(IsUploadExtension("/../../x"));
  EXPECT_FALSE(IsUploadExtension(".d/file"));
  EXPECT_TRUE(IsUploadExtension(".."));
  EXPECT_TRUE(IsUploadExtension(""));
}

TEST(UploadWire, DrawsNumbersAllOverTheThreeDigits) {
  std::set<int> drawn;
  for (uint64_t i = 0; i < 20000; ++i)
    drawn.insert(UploadNumber(i));
  EXPECT_EQ(drawn.size(), 1000u);
  EXPECT_EQ(*drawn.begin(), 0);
  EXPECT_EQ(*drawn.rbegin(), 999);
}

}  // namespace
