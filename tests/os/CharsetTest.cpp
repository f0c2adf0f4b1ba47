#include "utility/os/Charset.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Oracle.h"

using namespace Tarn::Os;
using namespace tarn_test;

namespace {

struct Outcome {
  std::string text;
  size_t taken;
};

Outcome Convert(Charset kind, const std::string& text, size_t room) {
  std::vector<char> out(room);
  Converted done;
  EXPECT_TRUE(ConvertCharset(kind, text, out.data(), room, done));
  return {std::string(out.data(), done.written), done.taken};
}

}  // namespace

TEST(Charset, ConvertsBothWays) {
  EXPECT_EQ(Convert(Charset::kGbkToUtf8, "a\xD6\xD0", 6).text, "a\xE4\xB8\xAD");
  EXPECT_EQ(Convert(Charset::kUtf8ToGbk, "a\xE4\xB8\xAD", 6).text, "a\xD6\xD0");
}

TEST(Charset, StopsInFrontOfWhatIsInvalidOrIncomplete) {
  EXPECT_EQ(Convert(Charset::kGbkToUtf8,
                    "ab\xFF\xFF"
                    "c",
                    20)
                .taken,
            2u);
  EXPECT_EQ(Convert(Charset::kUtf8ToGbk, "ab\xE4\xB8", 20).taken, 2u);
  EXPECT_EQ(Convert(Charset::kUtf8ToGbk, "\xF0\x9F\x98\x80", 20).taken, 0u);
}

TEST(Charset, StopsWhenTheRoomIsFull) {
  const Outcome outcome = Convert(Charset::kGbkToUtf8, "\xD6\xD0\xCE\xC4", 4);
  EXPECT_EQ(outcome.text, "\xE4\xB8\xAD");
  EXPECT_EQ(outcome.taken, 2u);
}

TEST(Charset, FailureDoesNotReachIntoTheNextText) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Convert(Charset::kUtf8ToGbk, "\xE4\xB8", 8).text, "");
    EXPECT_EQ(Convert(Charset::kUtf8ToGbk, "\xAD", 8).taken, 0u);
    EXPECT_EQ(Convert(Charset::kUtf8ToGbk, "\xE4\xB8\xAD", 8).text, "\xD6\xD0");
    EXPECT_EQ(Convert(Charset::kGbkToUtf8, "\xD6", 8).text, "");
    EXPECT_EQ(Convert(Charset::kGbkToUtf8, "\xD6\xD0", 8).text, "\xE4\xB8\xAD");
  }
}

TEST(Charset, ThreadsConvertAtTheSameTime) {
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&wrong] {
      char out[16];
      for (int i = 0; i < 500; ++i) {
        Converted done;
        const bool opened = ConvertCharset(Charset::kGbkToUtf8, "\xD6\xD0", out, sizeof(out), done);
        if (!opened || std::string(out, done.written) != "\xE4\xB8\xAD") ++wrong;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(wrong, 0);
}
