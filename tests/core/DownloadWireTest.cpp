#include "utility/core/DownloadWire.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "tests/support/Support.h"

namespace {

using namespace Tarn::Core;
using tarn_test::PatternBytes;
using tarn_test::RunCommand;

const std::string kMd5 = "0123456789abcdef0123456789abcdef";
constexpr size_t kMaxDelivery = 1048576;

std::string Header(uint32_t total, uint32_t error = 0, const std::string& md5 = kMd5) {
  const DownloadHeaderBytes bytes = BuildDownloadHeader({total, error, md5});
  return {bytes.data(), bytes.size()};
}

/// What a receiver made of a stream.
struct Received {
  std::string stored;
  int created = 0;
  int failed = 0;
  int rated = 0;
  DownloadState state;
};

/// Feeds deliveries as a client does. The header block is 40 bytes exactly: one byte too far is
/// seen by the address sanitizer.
class Receiver {
 public:
  void Feed(std::string_view delivery) {
    while (true) {
      std::string_view part;
      switch (NextDownloadStep(result_.state, header_.data(), kMaxDelivery, delivery, part)) {
        case DownloadStep::kMore:
          return;
        case DownloadStep::kFailed:
          ++result_.failed;
          return;
        case DownloadStep::kCreate:
          ++result_.created;
          break;
        case DownloadStep::kStore:
          result_.stored.append(part);
          ++result_.rated;
          return;
      }
    }
  }
  [[nodiscard]] const Received& Result() const { return result_; }
  [[nodiscard]] std::string HeaderBytes() const { return {header_.begin(), header_.end()}; }

 private:
  std::vector<char> header_ = std::vector<char>(kDownloadHeaderBytes);
  Received result_;
};

TEST(DownloadWire, PutsLengthErrorAndMd5IntoFortyBytes) {
  const std::string expected = std::string("\x32\0\0\0\0\0\0\0", 8) + kMd5;
  EXPECT_EQ(Header(50), expected);
  EXPECT_EQ(expected.size(), 40u);
}

TEST(DownloadWire, AnnouncesAMissingFileByItsOwnLengthTheErrorAndZerosKept) {
  EXPECT_EQ(Header(40, 2000, ""), std::string("\x28\0\0\0\xD0\x07\0\0", 8) + std::string(32, '\0'));
}

TEST(DownloadWire, BuildsTheHeaderThatAnotherEncoderBuilds) {
  const std::string python = RunCommand(
      "python3 -c \"import struct,sys;sys.stdout.buffer.write(struct.pack('<II32s',0xFEDCBA98,"
      "0x12345678,b'" +
      kMd5 + "'))\"");
  EXPECT_EQ(Header(0xFEDCBA98u, 0x12345678u), python);
}

TEST(DownloadWire, ParsesWhatItBuilds) {
  const std::string bytes = Header(4000000000u, 7);
  const DownloadHeader header = ParseDownloadHeader(bytes.data());
  EXPECT_EQ(header.totalLength, 4000000000u);
  EXPECT_EQ(header.error, 7u);
  EXPECT_EQ(header.md5, kMd5);
  EXPECT_EQ(ParseDownloadHeader(Header(40, 0, "").data()).md5, "");
}

TEST(DownloadWire, AsksForAFileWithOrWithoutAFolder) {
  EXPECT_EQ(DownloadRequest("a.bin", ""), "a.bin");
  EXPECT_EQ(DownloadRequest("a.bin", "sub"), "a.bin$^sub");
  EXPECT_EQ(DownloadRequest("", "sub"), "$^sub");
}

TEST(DownloadWire, PutsTheFolderBeforeTheFileKept) {
  EXPECT_EQ(DownloadPath("a.bin"), "a.bin");
  EXPECT_EQ(DownloadPath("a.bin$^sub"), "sub/a.bin");
  EXPECT_EQ(DownloadPath("a.bin$^sub/inner"), "sub/inner/a.bin");
}

TEST(DownloadWire, LeavesOutFurtherPartsKept) {
  EXPECT_EQ(DownloadPath("a$^b$^c"), "b/a");
  EXPECT_EQ(DownloadPath("a$^b$^../c$^d"), "b/a");
}

TEST(DownloadWire, TakesEmptyPartsAsTheyAre) {
  EXPECT_EQ(DownloadPath(""), "");
  EXPECT_EQ(DownloadPath("a$^"), "a");
  EXPECT_EQ(DownloadPath("$^a"), "a/");
  EXPECT_EQ(DownloadPath("$^"), "");
  EXPECT_EQ(DownloadPath("$^$^a"), "");
}

TEST(DownloadWire, TakesHalfASeparatorForAName) {
  EXPECT_EQ(DownloadPath("a$b"), "a$b");
  EXPECT_EQ(DownloadPath("a^$b"), "a^$b");
  EXPECT_EQ(DownloadPath("a$$^b"), "b/a$");
}

TEST(DownloadWire, KeepsAnAbsolutePathBelowTheRoot) {
  EXPECT_EQ(DownloadPath("/etc/passwd"), "etc/passwd");
  EXPECT_EQ(DownloadPath("///etc//passwd"), "etc//passwd");
  EXPECT_EQ(DownloadPath("passwd$^/etc"), "etc/passwd");
  EXPECT_EQ(DownloadPath("/"), "");
}

TEST(DownloadWire, TellsPathsThatLeaveTheRootFromThoseThatStay) {
  for (const char* path : {"", "a", "a/b", "./a", "a//b", "a/.", "...", "..a", "a..", "a/...",
                           ".. ", "..\\..\\a", "%2e%2e/a", "..\xC0\xAF..", ".\xC0\xAE/a"}) {
    EXPECT_EQ(ReachOf(path), PathReach::kPlain) << path;
  }
  for (const char* path :
       {"a/..", "a/../b", "a/b/../..", "./a/..", "a//..", "a/./..", "a/b/../../c"}) {
    EXPECT_EQ(ReachOf(path), PathReach::kClimbs) << path;
  }
  for (const char* path : {"..", "../", "../a", "./..", ".//../a", "a/../..", "a/../../b",
                           "a/../../a/b", "a/b/../../../c/d/e", "../a/.."}) {
    EXPECT_EQ(ReachOf(path), PathReach::kLeaves) << path;
  }
}

TEST(DownloadWire, ReceivesTheSameWhereverTheDataIsCut) {
  const std::string data = PatternBytes(30);
  const std::string stream = Header(70) + data;
  for (size_t first = kDownloadHeaderBytes; first <= stream.size(); ++first) {
    for (size_t second = first; second <= stream.size(); ++second) {
      Receiver receiver;
      receiver.Feed(std::string_view(stream).substr(0, first));
      receiver.Feed(std::string_view(stream).substr(first, second - first));
      receiver.Feed(std::string_view(stream).substr(second));
      ASSERT_EQ(receiver.Result().stored, data) << first << ' ' << second;
      ASSERT_EQ(receiver.Result().created, 1);
      ASSERT_EQ(receiver.Result().state.received, 30);
      ASSERT_EQ(receiver.Result().state.expected, 30);
    }
  }
}

TEST(DownloadWire, StallsWhereverTheHeaderIsCutKept) {
  const std::string stream = Header(70) + PatternBytes(30);
  for (size_t cut = 1; cut < kDownloadHeaderBytes; ++cut) {
    Receiver receiver;
    receiver.Feed(std::string_view(stream).substr(0, cut));
    receiver.Feed(std::string_view(stream).substr(cut));
    receiver.Feed(stream);
    EXPECT_EQ(receiver.Result().created, 0) << cut;
    EXPECT_EQ(receiver.Result().stored, "");
    EXPECT_EQ(receiver.Result().state.received, static_cast<int>(cut));
    EXPECT_EQ(receiver.HeaderBytes().substr(0, cut), stream.substr(0, cut));
  }
}

TEST(DownloadWire, WaitsForTheHeaderAfterAnEmptyDelivery) {
  Receiver receiver;
  receiver.Feed("");
  receiver.Feed({});
  receiver.Feed(Header(43) + "abc");
  EXPECT_EQ(receiver.Result().stored, "abc");
}

TEST(DownloadWire, IgnoresADeliveryThatIsLongerThanItsBufferUntilTheHeaderHasCome) {
  Receiver receiver;
  receiver.Feed(Header(43) + std::string(kMaxDelivery, 'x'));
  EXPECT_EQ(receiver.Result().state.received, 0);
  receiver.Feed(Header(50));
  EXPECT_EQ(receiver.Result().created, 1);
  receiver.Feed(std::string(kMaxDelivery + 1, 'x'));
  EXPECT_EQ(receiver.Result().stored.size(), kMaxDelivery + 1);
}

TEST(DownloadWire, FailsByTheAnnouncedErrorAndIgnoresTheRest) {
  for (const uint32_t error : {1u, 2000u, 0x80000000u, 0xFFFFFFFFu}) {
    Receiver receiver;
    receiver.Feed(Header(43, error) + "abc");
    receiver.Feed("def");
    receiver.Feed(Header(43) + "abc");
    EXPECT_EQ(receiver.Result().failed, 1);
    EXPECT_EQ(receiver.Result().created, 0);
    EXPECT_EQ(receiver.Result().stored, "");
  }
}

TEST(DownloadWire, RatesOncePerDeliveryOfData) {
  Receiver receiver;
  receiver.Feed(Header(46) + "ab");
  receiver.Feed("");
  receiver.Feed("cdef");
  EXPECT_EQ(receiver.Result().rated, 2);
}

TEST(DownloadWire, TakesALengthThatDoesNotFitForNegative) {
  const std::pair<uint32_t, int32_t> lengths[] = {
      {0, -40},          {39, -1}, {40, 0}, {0x80000027u, INT32_MAX}, {0x80000028u, INT32_MIN},
      {0xFFFFFFFFu, -41}};
  for (const auto& [total, expected] : lengths) {
    Receiver receiver;
    receiver.Feed(Header(total));
    EXPECT_EQ(receiver.Result().state.expected, expected) << total;
    EXPECT_EQ(receiver.Result().created, 1);
  }
}

TEST(DownloadWire, CountsNoFurtherThanItsCounterGoes) {
  DownloadState state{DownloadPhase::kData, INT32_MAX - 2, INT32_MAX};
  std::string_view delivery = "abcdef";
  std::string_view part;
  EXPECT_EQ(NextDownloadStep(state, nullptr, kMaxDelivery, delivery, part), DownloadStep::kStore);
  EXPECT_EQ(state.received, INT32_MAX);
  EXPECT_EQ(part, "abcdef");
}

TEST(DownloadWire, RatesInPercent) {
  EXPECT_EQ(DownloadRate(1, 3), 100.0 / 3);
  EXPECT_EQ(DownloadRate(3, 3), 100.0);
  EXPECT_EQ(DownloadRate(INT32_MAX, INT32_MAX), 100.0);
  EXPECT_EQ(DownloadRate(6, 3), 200.0);
  EXPECT_EQ(DownloadRate(1, -40), -2.5);
}

TEST(DownloadWire, RatesDataOfAnEmptyFileAsInfiniteWithoutADivision) {
  EXPECT_TRUE(std::isinf(DownloadRate(1, 0)));
  EXPECT_GT(DownloadRate(1, 0), 0);
}

TEST(DownloadWire, JudgesByTheBytesThatHaveCome) {
  EXPECT_EQ(JudgeDownload(1, 3), DownloadVerdict::kGoOn);
  EXPECT_EQ(JudgeDownload(2, 3), DownloadVerdict::kGoOn);
  EXPECT_EQ(JudgeDownload(3, 3), DownloadVerdict::kComplete);
  EXPECT_EQ(JudgeDownload(4, 3), DownloadVerdict::kTooMuch);
  EXPECT_EQ(JudgeDownload(INT32_MAX, INT32_MAX), DownloadVerdict::kComplete);
}

TEST(DownloadWire, WaitsForTheLastByteOfALongFile) {
  for (const int32_t expected : {999999, 1048576, 2000000, INT32_MAX})
    EXPECT_EQ(JudgeDownload(expected - 1, expected), DownloadVerdict::kGoOn) << expected;
}

TEST(DownloadWire, JudgesSlightlyTooMuchOfALongFileAsCompleteKept) {
  EXPECT_EQ(JudgeDownload(2000001, 2000000), DownloadVerdict::kComplete);
  EXPECT_EQ(JudgeDownload(2000002, 2000000), DownloadVerdict::kTooMuch);
  EXPECT_EQ(JudgeDownload(1000000, 999999), DownloadVerdict::kTooMuch);
}

TEST(DownloadWire, JudgesDataWithoutALengthAsTooMuch) {
  EXPECT_EQ(JudgeDownload(1, 0), DownloadVerdict::kTooMuch);
  EXPECT_EQ(JudgeDownload(1, -1), DownloadVerdict::kTooMuch);
  EXPECT_EQ(JudgeDownload(1000000, INT32_MIN), DownloadVerdict::kTooMuch);
}

}  // namespace
