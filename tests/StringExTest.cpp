// The text class: where the text lives, and what becomes of it when its own parts come back in.
#include <Tarn/Generic/StringEx.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/StringExTools.h"

namespace {

using namespace tarn_test;
using testing::ElementsAre;

// A long text that has been shortened in place to "short", the inline buffer still holding `stale`.
CStringEx ShortenedOnHeap(const char* stale) {
  CStringEx s(stale);
  const std::string added = "short" + Repeat(80, 'z');
  s += added.c_str();
  EXPECT_FALSE(IsInline(s));
  s = ("short" + Repeat(90, 'z')).c_str();
  s.TrimEnd('z');
  EXPECT_STREQ(s, "short");
  EXPECT_FALSE(IsInline(s));
  return s;
}

// Construction, assignment, access

TEST(StringEx, HasTheLayoutThatHostsAllocate) {
  static_assert(sizeof(CStringEx) == 72);
  CStringEx s("inline");
  const char* text = nullptr;
  memcpy(&text, static_cast<const void*>(&s), sizeof(text));
  EXPECT_EQ(text, s.GetData());
  EXPECT_EQ(reinterpret_cast<uintptr_t>(text), reinterpret_cast<uintptr_t>(&s) + 8);
}

TEST(StringEx, StartsEmptyAndInline) {
  const CStringEx s;
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_EQ(s.GetLength(), 0);
  EXPECT_STREQ(s, "");
  EXPECT_TRUE(IsInline(s));
}

TEST(StringEx, IsMadeFromACharacter) {
  EXPECT_STREQ(CStringEx('x'), "x");
  EXPECT_STREQ(CStringEx('\0'), "");
}

TEST(StringEx, IsMadeFromTheFirstBytesOfAText) {
  EXPECT_STREQ(CStringEx("abcdef", 3), "abc");
  EXPECT_STREQ(CStringEx("abcdef", 0), "");
  EXPECT_STREQ(CStringEx("abcdef", -1), "abcdef");
  EXPECT_STREQ(CStringEx("abcdef"), "abcdef");
}

TEST(StringEx, ALengthBeyondTheTextFillsUpWithNulsKept) {
  CStringEx s(Repeat(30).c_str());
  s.Assign("abc", 10);
  EXPECT_EQ(s.GetLength(), 3);
  for (int i = 3; i <= 10; ++i)
    EXPECT_EQ(s.GetAt(i), '\0') << i;
  s.Assign("abc", 200);
  EXPECT_STREQ(s, "abc");
  EXPECT_FALSE(IsInline(s));
  for (int i = 3; i <= 200; ++i)
    EXPECT_EQ(s.GetAt(i), '\0') << i;
}

TEST(StringEx, ANullTextCountsAsEmpty) {
  EXPECT_STREQ(CStringEx(static_cast<const char*>(nullptr)), "");
  EXPECT_STREQ(CStringEx(nullptr, 5), "");
  CStringEx s(Repeat(100).c_str());
  s = static_cast<const char*>(nullptr);
  EXPECT_STREQ(s, "");
  EXPECT_TRUE(IsInline(s));
}

TEST(StringEx, SixtyTwoCharactersStayInlineAndSixtyThreeMoveToTheHeap) {
  CStringEx s;
  s = Repeat(62).c_str();
  EXPECT_TRUE(IsInline(s));
  EXPECT_EQ(s.GetLength(), 62);
  s = Repeat(63).c_str();
  EXPECT_FALSE(IsInline(s));
  EXPECT_EQ(s.GetLength(), 63);
  s = "ten chars.";
  EXPECT_TRUE(IsInline(s));
  EXPECT_STREQ(s, "ten chars.");
}

TEST(StringEx, AShorterLongTextKeepsTheBlockKept) {
  CStringEx s(Repeat(200).c_str());
  const char* block = s.c_str();
  s = Repeat(100, 'b').c_str();
  EXPECT_EQ(s.c_str(), block);
  EXPECT_EQ(Text(s), Repeat(100, 'b'));
}

TEST(StringEx, ACopyHasATextOfItsOwn) {
  for (const size_t length : {0U, 5U, 62U, 63U, 500U}) {
    auto original = std::make_unique<CStringEx>(Repeat(length).c_str());
    const CStringEx copy(*original);
    CStringEx assigned("before");
    assigned = *original;
    original->SetAt(0, 'X');
    original.reset();
    EXPECT_EQ(Text(copy), Repeat(length));
    EXPECT_EQ(Text(assigned), Repeat(length));
    EXPECT_EQ(IsInline(copy), length <= 62);
  }
}

TEST(StringEx, AssigningACharacterGivesBackTheBlock) {
  CStringEx s(Repeat(100).c_str());
  s = 'c';
  EXPECT_STREQ(s, "c");
  EXPECT_TRUE(IsInline(s));
  s = '\0';
  EXPECT_TRUE(s.IsEmpty());
}

TEST(StringEx, EmptyReturnsToTheInlineBuffer) {
  CStringEx s(Repeat(100).c_str());
  s.Empty();
  EXPECT_STREQ(s, "");
  EXPECT_TRUE(IsInline(s));
}

TEST(StringEx, AssignmentsReturnTheObject) {
  CStringEx s;
  const CStringEx other("o");
  EXPECT_EQ(&(s = other), &s);
  EXPECT_EQ(&(s = "x"), &s);
  EXPECT_EQ(&(s = 'x'), &s);
  EXPECT_EQ(&(s += other), &s);
  EXPECT_EQ(&(s += "x"), &s);
  EXPECT_EQ(&(s += 'x'), &s);
  EXPECT_EQ(&s.Format("%d", 1), &s);
  EXPECT_EQ(&s.AppendFormat("%d", 1), &s);
  EXPECT_EQ(&s.SmallFormat("%d", 1), &s);
}

TEST(StringEx, AllReadersGiveTheSamePointer) {
  const CStringEx s("abc");
  EXPECT_EQ(s.GetData(), s.c_str());
  EXPECT_EQ(static_cast<const char*>(s), s.c_str());
  EXPECT_EQ(s.GetAt(1), 'b');
  EXPECT_EQ(s[2], 'c');
  EXPECT_EQ(s[3], '\0');
}

TEST(StringEx, ANulWrittenIntoTheTextShortensItInPlaceKept) {
  CStringEx s(Repeat(100).c_str());
  s.SetAt(3, '\0');
  EXPECT_STREQ(s, "aaa");
  EXPECT_FALSE(IsInline(s));
  s.SetAt(3, 'b');
  EXPECT_EQ(Text(s), "aaab" + Repeat(96));
}

TEST(StringEx, IndexesOutsideTheStorageAreHarmless) {
  for (const size_t length : {10U, 62U, 63U, 1000U}) {
    CStringEx s(Repeat(length).c_str());
    for (const int i : {-1, INT_MIN, 1 << 20, INT_MAX}) {
      s.SetAt(i, 'X');
      EXPECT_EQ(s.GetAt(i), '\0');
    }
    EXPECT_EQ(Text(s), Repeat(length));
  }
}

TEST(StringEx, ATextEndsInsideItsStorageWhateverIsWritten) {
  for (const size_t length : {0U, 62U, 63U, 1000U}) {
    CStringEx s(Repeat(length).c_str());
    for (int i = 0; i < 5000; ++i)
      s.SetAt(i, 'X');
    EXPECT_GE(s.GetLength(), static_cast<int>(length));
    EXPECT_LT(s.GetLength(), 1100);
    EXPECT_EQ(s.GetAt(s.GetLength()), '\0');
  }
}

// The source is part of the object's own text

TEST(StringEx, AssignsAPartOfItself) {
  for (const size_t length : {10U, 62U, 63U, 64U, 125U, 126U, 127U, 500U}) {
    std::string model;
    for (size_t i = 0; i < length; ++i)
      model += static_cast<char>('a' + i % 26);
    for (const size_t offset : {0UL, 1UL, length / 2, length}) {
      CStringEx s(model.c_str());
      s = s.c_str() + offset;
      EXPECT_EQ(Text(s), model.substr(offset)) << length << " " << offset;
      EXPECT_EQ(IsInline(s), model.size() - offset <= 62);
      CStringEx padded(model.c_str());
      padded.Assign(padded.c_str() + offset, 2000);
      EXPECT_EQ(Text(padded), model.substr(offset));
    }
  }
}

TEST(StringEx, AssigningAnObjectToItselfChangesNothing) {
  CStringEx s("abc");
  const CStringEx& same = s;
  s = same;
  EXPECT_STREQ(s, "abc");
  s = Repeat(100).c_str();
  s = same;
  EXPECT_EQ(Text(s), Repeat(100));
}

TEST(StringEx, AssigningAnObjectToItselfAfterATrimInPlaceKeepsItsText) {
  CStringEx s = ("kept" + Repeat(100, 'z')).c_str();
  s.TrimEnd('z');
  const CStringEx& same = s;
  s = same;
  EXPECT_STREQ(s, "kept");
  EXPECT_TRUE(IsInline(s));
}

TEST(StringEx, AppendsAPartOfItself) {
  for (const size_t length : {1U, 31U, 32U, 62U, 63U, 500U, 5000U}) {
    std::string model;
    for (size_t i = 0; i < length; ++i)
      model += static_cast<char>('a' + i % 26);
    for (const size_t offset : {0UL, length / 2, length}) {
      CStringEx s(model.c_str());
      s += s.c_str() + offset;
      EXPECT_EQ(Text(s), model + model.substr(offset)) << length << " " << offset;
      s += s;
      EXPECT_EQ(Text(s), model + model.substr(offset) + model + model.substr(offset));
    }
  }
}

TEST(StringEx, AppendsWhatStandsBehindItsTerminator) {
  CStringEx s = (Repeat(70) + "-" + Repeat(100, 'b')).c_str();
  s.SetAt(70, '\0');
  s += s.c_str() + 71;
  EXPECT_EQ(Text(s), Repeat(70) + Repeat(100, 'b'));
}

TEST(StringEx, FormatsWithItselfAsFormatAndArgument) {
  CStringEx s("<%s>");
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  s.Format(s.c_str(), s.c_str());
#pragma GCC diagnostic pop
  EXPECT_STREQ(s, "<<%s>>");
  s = Repeat(300).c_str();
  s.Format("[%s]", s.c_str());
  EXPECT_EQ(Text(s), "[" + Repeat(300) + "]");
  s.AppendFormat("%s", s.c_str());
  EXPECT_EQ(Text(s), "[" + Repeat(300) + "][" + Repeat(300) + "]");
}

TEST(StringEx, ReplacesAndSplitsByAPartOfItself) {
  CStringEx s("ab-cd-ef");
  EXPECT_EQ(s.Replace(s.c_str() + 6, s.c_str()), 1);
  EXPECT_STREQ(s, "ab-cd-ab-cd-ef");
  const std::string twice = Repeat(60) + "x" + Repeat(60) + "x";
  s = twice.c_str();
  EXPECT_EQ(s.Replace(s.c_str() + 121, s.c_str() + 100), 2);
  EXPECT_EQ(Text(s), Repeat(60) + Repeat(21) + "x" + Repeat(60) + Repeat(21) + "x");
  s = "a,b,";
  EXPECT_THAT(Texts(s.Split(s.c_str() + 3)), ElementsAre("a", "b", ""));
}

// Joining

TEST(StringEx, AppendsTextsAndCharacters) {
  CStringEx s;
  s += "ab";
  s += 'c';
  s += CStringEx("de");
  s += '\0';
  s.Append("");
  s.Append(nullptr);
  EXPECT_STREQ(s, "abcde");
}

TEST(StringEx, AppendsAcrossTheInlineBoundary) {
  CStringEx s(Repeat(60).c_str());
  s += "bb";
  EXPECT_TRUE(IsInline(s));
  EXPECT_EQ(Text(s), Repeat(60) + "bb");
  s += 'c';
  EXPECT_FALSE(IsInline(s));
  EXPECT_EQ(Text(s), Repeat(60) + "bbc");
  s += Repeat(1000, 'd').c_str();
  EXPECT_EQ(Text(s), Repeat(60) + "bbc" + Repeat(1000, 'd'));
}

TEST(StringEx, JoinsWithoutChangingEither) {
  const CStringEx a("left ");
  const CStringEx b(Repeat(100).c_str());
  EXPECT_EQ(Text(a + b), "left " + Repeat(100));
  EXPECT_EQ(Text(b + a), Repeat(100) + "left ");
  EXPECT_STREQ(a + "right", "left right");
  EXPECT_STREQ(a + static_cast<const char*>(nullptr), "left ");
  EXPECT_STREQ(a, "left ");
}

TEST(StringEx, AShortAppendToAShortenedLongTextGoesBehindTheOldInlineTextKept) {
  CStringEx s = Repeat(100, 'z').c_str();
  s.TrimEnd('z');
  s += "x";
  EXPECT_STREQ(s, "x");  // made long at once: the inline buffer never held anything

  CStringEx grown("old");
  grown += Repeat(100, 'z').c_str();
  grown.TrimEnd('z');
  EXPECT_STREQ(grown, "old");
  grown.SetAt(1, '\0');
  grown += "+";
  EXPECT_STREQ(grown, "old+");
  EXPECT_TRUE(IsInline(grown));
}

TEST(StringEx, EvenAnEmptyAppendBringsTheOldInlineTextBackKept) {
  CStringEx s("stale");
  s = Repeat(100, 'z').c_str();
  s.TrimEnd('z');
  s += "";
  EXPECT_STREQ(s, "stale");
  EXPECT_TRUE(IsInline(s));
}

TEST(StringEx, AnOldInlineTextThatOutgrowsTheBufferMovesToTheHeapKept) {
  for (const size_t added : {1U, 2U, 31U, 62U}) {
    CStringEx s(Repeat(61, 's').c_str());
    s = Repeat(100, 'z').c_str();
    s.TrimEnd('z');
    s += Repeat(added).c_str();
    EXPECT_EQ(Text(s), Repeat(61, 's') + Repeat(added));
    EXPECT_EQ(IsInline(s), added == 1);
  }
}

TEST(StringEx, AnOldInlineTextMayBeFollowedByTheShortenedTextItselfKept) {
  CStringEx s("stale ");
  s = ("tail" + Repeat(100, 'z')).c_str();
  s.TrimEnd('z');
  s += s;
  EXPECT_STREQ(s, "stale tail");
}

TEST(StringEx, ACopyOfAShortenedTextIsCured) {
  CStringEx s = ShortenedOnHeap("stale");
  CStringEx copy(s);
  copy += "er";
  EXPECT_STREQ(copy, "shorter");
  EXPECT_STREQ(s + "er", "shorter");
}

}  // namespace
