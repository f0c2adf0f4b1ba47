#include "utility/core/TransferWire.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "utility/core/DownloadWire.h"
#include "utility/core/UploadWire.h"

namespace {

using namespace Tarn::Core;

constexpr size_t kBlock = kTransferBlockBytes;
constexpr size_t kHeaders[] = {kUploadHeaderBytes, kDownloadHeaderBytes};

using ReadList = std::vector<std::pair<uint64_t, size_t>>;

/// The offsets and lengths of the reads of a file.
ReadList Reads(uint64_t size, size_t headerBytes) {
  ReadList reads;
  FileBlocks blocks(size, headerBytes);
  while (blocks.HasNext()) {
    reads.emplace_back(blocks.Offset(), blocks.Length());
    blocks.Advance(blocks.Length());
  }
  return reads;
}

TEST(TransferWire, CopiesTextsCutAndPadded) {
  char text[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
  CopyText(text, "ab");
  EXPECT_EQ(std::string(text, sizeof text), std::string("ab\0\0\0\0", 6));
  CopyText(text, "abcdefgh");
  EXPECT_STREQ(text, "abcde");
}

TEST(TransferWire, EndsTextsAtTheirFirstNul) {
  EXPECT_EQ(UpToNul(std::string_view("a\0b\0", 4)), "a");
  EXPECT_EQ(UpToNul("abc"), "abc");
  EXPECT_EQ(UpToNul(""), "");
}

TEST(TransferWire, ReadsASmallFileInOneBlock) {
  for (const size_t header : kHeaders) {
    EXPECT_EQ(Reads(1, header), (ReadList{{0, 1}}));
    EXPECT_EQ(Reads(10, header), (ReadList{{0, 10}}));
    EXPECT_EQ(Reads(kBlock - header, header), (ReadList{{0, kBlock - header}}));
  }
}

TEST(TransferWire, ReadsOnceMoreAtTheEndLessThanAHeaderBelowABlocksEdgeKept) {
  for (const size_t header : kHeaders) {
    const size_t near = kBlock - header + 1;
    EXPECT_EQ(Reads(near, header), (ReadList{{0, near}, {kBlock, 0}}));
    EXPECT_EQ(Reads(kBlock, header), (ReadList{{0, kBlock}, {kBlock, 0}}));
    EXPECT_EQ(Reads(kBlock + 1, header), (ReadList{{0, kBlock}, {kBlock, 1}}));
    EXPECT_EQ(Reads(2 * kBlock - 1, header),
              (ReadList{{0, kBlock}, {kBlock, kBlock - 1}, {2 * kBlock, 0}}));
    EXPECT_EQ(Reads(0, header), (ReadList{{0, 0}}));
  }
}

TEST(TransferWire, ReadsNothingOfAnEmptyFileThatNoHeaderPrecedes) {
  EXPECT_EQ(Reads(0, 0), ReadList{});
  EXPECT_EQ(Reads(kBlock, 0), (ReadList{{0, kBlock}}));
}

TEST(TransferWire, NeverAsksForMoreThanTheFilesLengthAtTheStart) {
  for (const uint64_t size : {uint64_t{3000000}, uint64_t{4 * kBlock}}) {
    uint64_t sum = 0;
    for (const auto& [offset, length] : Reads(size, kUploadHeaderBytes))
      sum += length;
    EXPECT_EQ(sum, size);
  }
}

TEST(TransferWire, ReadsTheLongestFileWithoutWrapping) {
  for (const size_t header : kHeaders) {
    const ReadList reads = Reads(LongestTransfer(header), header);
    EXPECT_EQ(reads.size(), 4096u);
    EXPECT_EQ(reads.back().first, 4095u * uint64_t{kBlock});
    EXPECT_EQ(reads.back().second, kBlock - header - 1);
  }
}

TEST(TransferWire, KnowsWhichLengthsCanBeAnnounced) {
  EXPECT_TRUE(IsTransferable(0, 40));
  EXPECT_TRUE(IsTransferable(4294967255, 40));
  EXPECT_FALSE(IsTransferable(4294967256, 40));
  EXPECT_TRUE(IsTransferable(4294967245, 50));
  EXPECT_FALSE(IsTransferable(4294967246, 50));
  EXPECT_FALSE(IsTransferable(-1, 40));
  EXPECT_FALSE(IsTransferable(INT64_MAX, 40));
}

TEST(TransferWire, TruncatesTheProgress) {
  FileBlocks blocks(3 * kBlock, kUploadHeaderBytes);
  EXPECT_EQ(blocks.Advance(kBlock), 33);
  EXPECT_EQ(blocks.Advance(kBlock), 66);
  EXPECT_EQ(blocks.Advance(kBlock), 100);
}

TEST(TransferWire, CountsWhatWasReadNotWhatWasAskedFor) {
  FileBlocks blocks(2 * kBlock, kUploadHeaderBytes);
  EXPECT_EQ(blocks.Advance(kBlock / 2), 25);
  EXPECT_EQ(blocks.Offset(), kBlock);
}

}  // namespace
