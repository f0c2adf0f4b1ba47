// Pending log text as a chain of recycled chunks.
#include "utility/core/LogQueue.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <random>
#include <set>
#include <string>

#include "tests/support/Support.h"

namespace {

using Tarn::Core::LogChunk;
using Tarn::Core::LogChunkList;
using Tarn::Core::LogQueue;

std::string TextOf(const LogChunkList& chunks) {
  std::string text;
  for (const LogChunk* chunk = chunks.First(); chunk != nullptr; chunk = chunk->next) {
    text.append(chunk->View());
  }
  return text;
}

std::string Drained(LogQueue& queue) {
  LogChunkList chunks = queue.TakeAll();
  std::string text = TextOf(chunks);
  queue.GiveBack(chunks);
  return text;
}

long PageFaults() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

TEST(LogQueue, ANewQueueHoldsNothing) {
  LogQueue queue;
  EXPECT_EQ(queue.Length(), 0U);
  EXPECT_TRUE(queue.TakeAll().Empty());
}

TEST(LogQueue, TextComesOutInOrder) {
  LogQueue queue;
  queue.Append("one\n");
  queue.Append("two\n");
  queue.Append("three\n");
  EXPECT_EQ(queue.Length(), 14U);
  EXPECT_EQ(Drained(queue), "one\ntwo\nthree\n");
  EXPECT_EQ(queue.Length(), 0U);
  EXPECT_EQ(Drained(queue), "");
}

TEST(LogQueue, OnlyTheFirstTextAfterADrainIsReportedAsFirst) {
  LogQueue queue;
  EXPECT_TRUE(queue.Append("a"));
  EXPECT_FALSE(queue.Append("b"));
  Drained(queue);
  EXPECT_TRUE(queue.Append("c"));
  EXPECT_FALSE(queue.Append("d"));
}

TEST(LogQueue, AnEmptyTextChangesNothing) {
  LogQueue queue;
  EXPECT_FALSE(queue.Append(""));
  EXPECT_TRUE(queue.TakeAll().Empty());
}

TEST(LogQueue, ATextMaySpanManyChunks) {
  LogQueue queue;
  const std::string before = "before\n";
  const std::string text = tarn_test::PatternBytes(5 * LogChunk::kBytes + 17);
  queue.Append(before);
  queue.Append(text);
  LogChunkList chunks = queue.TakeAll();
  EXPECT_EQ(TextOf(chunks), before + text);
  EXPECT_EQ(chunks.Count(), 6U);
}

TEST(LogQueue, EveryChunkButTheLastIsFull) {
  LogQueue queue;
  for (int i = 0; i < 5000; ++i)
    queue.Append("a line that does not divide a chunk\n");
  const LogChunkList chunks = queue.TakeAll();
  for (const LogChunk* chunk = chunks.First(); chunk->next != nullptr; chunk = chunk->next) {
    EXPECT_EQ(chunk->used, LogChunk::kBytes);
  }
}

TEST(LogQueue, AppendsExactlyUpToTheLimit) {
  LogQueue queue;
  EXPECT_TRUE(queue.Append("12345", 8));
  EXPECT_FALSE(queue.Append("67890", 8));
  EXPECT_FALSE(queue.Append("more", 8));
  EXPECT_EQ(Drained(queue), "12345678");
  EXPECT_FALSE(queue.Append("x", 0));
  EXPECT_EQ(queue.Length(), 0U);
}

TEST(LogQueue, ALowerLimitThanWhatIsPendingKeepsWhatIsThere) {
  LogQueue queue;
  queue.Append("1234567890");
  EXPECT_FALSE(queue.Append("x", 4));
  EXPECT_EQ(Drained(queue), "1234567890");
}

TEST(LogQueue, ChunksAreRecycled) {
  LogQueue queue;
  const std::string text(3 * LogChunk::kBytes, 'x');
  std::set<const LogChunk*> seen;
  for (int round = 0; round < 100; ++round) {
    queue.Append(text);
    LogChunkList chunks = queue.TakeAll();
    for (const LogChunk* chunk = chunks.First(); chunk != nullptr; chunk = chunk->next) {
      seen.insert(chunk);
    }
    queue.GiveBack(chunks);
  }
  EXPECT_EQ(seen.size(), 3U);
  EXPECT_EQ(queue.SpareCount(), 3U);
}

TEST(LogQueue, ABatchOutsideDoesNotDisturbTheNext) {
  LogQueue queue;
  queue.Append("first");
  LogChunkList first = queue.TakeAll();
  queue.Append("second");
  EXPECT_EQ(TextOf(first), "first");
  queue.GiveBack(first);
  EXPECT_EQ(Drained(queue), "second");
}

TEST(LogQueue, SpareChunksAreBounded) {
  LogQueue queue;
  queue.Append(std::string((LogQueue::kSpareChunks + 10) * LogChunk::kBytes, 'x'));
  LogChunkList chunks = queue.TakeAll();
  queue.GiveBack(chunks);
  EXPECT_EQ(queue.SpareCount(), LogQueue::kSpareChunks);
  EXPECT_EQ(chunks.Count(), 10U) << "the surplus is the caller's";
}

TEST(LogQueue, AMillionLinesHoldLessThanTwiceTheirText) {
  LogQueue queue;
  const std::string line(99, 'x');
  for (int i = 0; i < 1000000; ++i)
    queue.Append(line);
  const size_t text = queue.Length();
  EXPECT_EQ(text, 99000000U);
  const LogChunkList chunks = queue.TakeAll();
  EXPECT_LT((chunks.Count() + queue.SpareCount()) * sizeof(LogChunk), 2 * text);
}

TEST(LogQueue, FillingAChunkCausesNoPageFaults) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizers' own memory faults";
#endif
  LogQueue queue;
  const std::string line(1000, 'x');
  queue.Append(line);
  const long before = PageFaults();
  for (int i = 0; i < 60; ++i)
    queue.Append(line);
  EXPECT_LT(PageFaults() - before, 4) << "15 pages were written";
}

TEST(LogQueue, AnyMixtureOfTextsAndDrainsKeepsEveryByte) {
  std::mt19937 random(7);
  LogQueue queue;
  LogChunkList outside;
  std::string in;
  std::string out;
  for (int i = 0; i < 3000; ++i) {
    const std::string text(random() % 2000 * (random() % 50 == 0 ? 100 : 1),
                           static_cast<char>('a' + i % 26));
    const bool wasEmpty = queue.Length() == 0;
    EXPECT_EQ(queue.Append(text), wasEmpty && !text.empty());
    in += text;
    if (random() % 20 != 0) continue;
    queue.GiveBack(outside);
    outside = queue.TakeAll();
    out += TextOf(outside);
  }
  out += Drained(queue);
  EXPECT_EQ(in, out);
}

TEST(LogChunkList, SpliceTakesEverything) {
  LogChunkList a;
  LogChunkList b;
  b.PushBack(new LogChunk{nullptr, 0, {}});
  b.PushBack(new LogChunk{nullptr, 0, {}});
  a.Splice(b);
  EXPECT_EQ(a.Count(), 2U);
  EXPECT_TRUE(b.Empty());
  a.Splice(b);
  EXPECT_EQ(a.Count(), 2U);
  delete a.PopFront();
  delete a.PopFront();
  EXPECT_TRUE(a.Empty());
}

}  // namespace
