// All occurrences of a text, compared with the standard library's search.
#include "utility/core/TextSearch.h"

#include <memory>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Support.h"

namespace {

using Tarn::Core::FindAll;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<size_t> Expected(const std::string& text, const std::string& sought) {
  std::vector<size_t> found;
  size_t at = text.find(sought);
  for (; at != std::string::npos; at = text.find(sought, at + sought.size()))
    found.push_back(at);
  return found;
}

TEST(TextSearch, FindsPlacesOfCharactersAndTexts) {
  EXPECT_THAT(FindAll("a,b,,c", ","), ElementsAre(1, 3, 4));
  EXPECT_THAT(FindAll("a::b:c::", "::"), ElementsAre(1, 6));
  EXPECT_THAT(FindAll("one separator two separator", " separator"), ElementsAre(3, 17));
}

TEST(TextSearch, FindsNothingWhereNothingIs) {
  EXPECT_THAT(FindAll("", ","), IsEmpty());
  EXPECT_THAT(FindAll("abc", ""), IsEmpty());
  EXPECT_THAT(FindAll("", ""), IsEmpty());
  EXPECT_THAT(FindAll("ab", "abc"), IsEmpty());
  EXPECT_THAT(FindAll("abc", "x"), IsEmpty());
}

TEST(TextSearch, PlacesDoNotOverlap) {
  EXPECT_THAT(FindAll("aaaaa", "aa"), ElementsAre(0, 2));
  EXPECT_THAT(FindAll(std::string(30, 'a'), std::string(10, 'a')), ElementsAre(0, 10, 20));
}

TEST(TextSearch, FindsTheWholeText) {
  for (size_t length = 1; length < 40; ++length) {
    const std::string text = tarn_test::PatternBytes(length);
    EXPECT_THAT(FindAll(text, text), ElementsAre(0)) << length;
  }
}

TEST(TextSearch, AgreesWithTheStandardLibrary) {
  std::mt19937 random(7);
  const auto pick = [&](size_t most) {
    std::string text(std::uniform_int_distribution<size_t>(0, most)(random), 'a');
    for (char& c : text)
      c = "aab\xff"[random() % 4];
    return text;
  };
  for (int i = 0; i < 20000; ++i) {
    const std::string text = pick(70);
    const std::string sought = "a" + pick(i % 3 == 0 ? 12 : 2);
    ASSERT_EQ(FindAll(text, sought), Expected(text, sought)) << text << " / " << sought;
  }
}

TEST(TextSearch, NeverReadsBehindTheText) {
  for (size_t length = 1; length < 70; ++length) {
    // An exact block, so that one byte too far is noticed.
    const std::unique_ptr<char[]> text(new char[length]);
    std::fill_n(text.get(), length, 'a');
    text[length - 1] = ',';
    EXPECT_THAT(FindAll({text.get(), length}, ","), ElementsAre(length - 1));
    EXPECT_THAT(FindAll({text.get(), length}, ",,"), IsEmpty());
    EXPECT_THAT(FindAll({text.get(), length}, "a,aaaaaaaaaaa"), IsEmpty());
  }
}

TEST(TextSearch, TakesTimeProportionalToTheTextEvenWhenNearlyEverythingMatches) {
  const std::string text(4000000, 'a');
  for (const size_t length : {8U, 9U, 300U, 1000000U}) {
    std::string sought(length, 'a');
    sought.back() = 'b';
    const tarn_test::Stopwatch watch;
    EXPECT_THAT(FindAll(text, sought), IsEmpty());
    EXPECT_LT(watch.ElapsedMs(), tarn_test::AtMost(30000));
  }
}

}  // namespace
