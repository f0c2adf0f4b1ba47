// The text class with every allocation counted and, on demand, refused.
#include <malloc.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

thread_local int allocations = 0;
thread_local int allowed = -1;  // how many more succeed; negative: all

bool Refused() {
  ++allocations;
  if (allowed == 0) return true;
  if (allowed > 0) --allowed;
  return false;
}

void* CountedRealloc(void* old, size_t size) {
  return Refused() ? nullptr : realloc(old, size);
}

}  // namespace

// This program's copy of the class allocates through the counter.
#define realloc CountedRealloc
#include "utility/StringEx.cpp"
#undef realloc

// Not inlined: the compiler would pair one with the other's insides, and warn.
__attribute__((noinline)) void* operator new(size_t size) {
  if (Refused()) throw std::bad_alloc();
  if (void* block = malloc(size)) return block;
  throw std::bad_alloc();
}
__attribute__((noinline)) void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return malloc(size);
}
__attribute__((noinline)) void operator delete(void* block) noexcept {
  free(block);
}
__attribute__((noinline)) void operator delete(void* block, size_t /*size*/) noexcept {
  free(block);
}

namespace {

using Tarn::Generic::CStringEx;

// Runs `body` with all allocations refused from the k-th on; gives their number.
template <typename Body>
int WithAllocations(int k, Body body) {
  allocations = 0;
  allowed = k;
  body();
  allowed = -1;
  return allocations;
}

TEST(StringExMemory, TextsUpToSixtyTwoCharactersNeverTouchTheHeap) {
  const std::string full(62, 'a');
  const int count = WithAllocations(0, [&] {
    CStringEx s(full.c_str());
    CStringEx copy(s);
    copy = "x";
    copy += "y";
    copy += s.Left(10);
    copy = s;
    copy.Format("%d and %s", 5, "text");
    copy.AppendFormat("%d", 6);
    copy.SmallFormat("%s", full.c_str());
    copy = s.Right(3) + s.SubString(2, 5);
    copy.Trim('a');
    EXPECT_EQ(s.GetLength(), 62);
    EXPECT_TRUE(copy.IsEmpty());
  });
  EXPECT_EQ(count, 0);
}

TEST(StringExMemory, AFieldOrAReplacedTextCostsNoAllocationOfItsOwn) {
  std::string text = "0";
  for (int i = 1; i < 1000; ++i)
    text += "," + std::to_string(i);
  CStringEx s(text.c_str());
  EXPECT_LT(WithAllocations(-1, [&] { EXPECT_EQ(s.Split(",").size(), 1000U); }), 20);
  EXPECT_LT(WithAllocations(-1, [&] { EXPECT_EQ(s.Replace(",", "--"), 999); }), 20);
}

TEST(StringExMemory, ATextThatCannotBeHadLeavesTheOldOne) {
  const std::string longText(100, 'l');
  const std::string longer(500, 'm');
  for (const char* old : {"old", longText.c_str()}) {
    CStringEx s(old);
    EXPECT_EQ(WithAllocations(0, [&] { s = longer.c_str(); }), 1);
    EXPECT_STREQ(s, old);
    EXPECT_EQ(WithAllocations(0, [&] { s += longer.c_str(); }), 1);
    EXPECT_STREQ(s, old);
    EXPECT_EQ(WithAllocations(0, [&] { s.Format("%s", longer.c_str()); }), 1);
    EXPECT_STREQ(s, old);
    s += "+";
    EXPECT_EQ(std::string(s), std::string(old) + "+");
  }
}

TEST(StringExMemory, ACopyThatCannotBeHadIsEmpty) {
  const CStringEx s(std::string(100, 'l').c_str());
  WithAllocations(0, [&] { EXPECT_TRUE(CStringEx(s).IsEmpty()); });
}

TEST(StringExMemory, AnOldInlineTextThatCannotGrowLeavesTheShortenedOne) {
  CStringEx s(std::string(60, 's').c_str());
  s = std::string(100, 'z').c_str();
  s.SetAt(4, '\0');
  WithAllocations(0, [&] { s += "tail"; });
  EXPECT_STREQ(s, "zzzz");
}

TEST(StringExMemory, AReplaceWithoutMemoryChangesNothingAtWhicheverStep) {
  const std::string text = "a,b," + std::string(100, 'c') + ",d";
  const std::string done = "a;;b;;" + std::string(100, 'c') + ";;d";
  for (int k = 0;; ++k) {
    CStringEx s(text.c_str());
    int replaced = -1;
    WithAllocations(k, [&] { replaced = s.Replace(",", ";;"); });
    if (replaced == 3) {
      EXPECT_EQ(std::string(s), done);
      EXPECT_GE(k, 2);
      break;
    }
    EXPECT_EQ(replaced, 0);
    EXPECT_EQ(std::string(s), text);
  }
}

TEST(StringExMemory, ASplitWithoutMemoryIsEmptyAndLeaksNothing) {
  const std::string text = "a,b,c,d,e,f,g";
  CStringEx s(text.c_str());
  for (int k = 0;; ++k) {
    std::vector<CStringEx> fields;
    WithAllocations(k, [&] { fields = s.Split(","); });
    if (!fields.empty()) {
      EXPECT_EQ(fields.size(), 7U);
      EXPECT_GE(k, 2);
      break;
    }
  }
  EXPECT_EQ(std::string(s), text);
}

}  // namespace
