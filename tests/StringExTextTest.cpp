// The text class: comparing, slicing, searching, editing, splitting, formatting.
#include <Tarn/Generic/StringEx.h>

#include <climits>
#include <clocale>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/StringExTools.h"

namespace {

using namespace tarn_test;
using testing::ElementsAre;

// Comparing and case

TEST(StringExText, ComparesByteByByteAndCaseSensitively) {
  const CStringEx s("banana");
  EXPECT_EQ(s.Compare("banana"), 0);
  int (*volatile compare)(const char*, const char*) = strcmp;  // the library's, not the compiler's
  EXPECT_EQ(s.Compare("Banana"), compare("banana", "Banana"));
  EXPECT_EQ(s.Compare("\xff"), compare("banana", "\xff"));
  EXPECT_TRUE(s == "banana");
  EXPECT_FALSE(s == "BANANA");
  EXPECT_TRUE(s != "BANANA");
  EXPECT_FALSE(s != "banana");
  EXPECT_TRUE(s < "cherry");
  EXPECT_FALSE(s < "banana");
  EXPECT_TRUE(s <= "banana");
  EXPECT_FALSE(s <= "apple");
  EXPECT_TRUE(s > "apple");
  EXPECT_FALSE(s > "banana");
  EXPECT_TRUE(s >= "banana");
  EXPECT_FALSE(s >= "cherry");
}

TEST(StringExText, ComparesANullTextAsEmpty) {
  EXPECT_TRUE(CStringEx() == static_cast<const char*>(nullptr));
  EXPECT_GT(CStringEx("a").Compare(nullptr), 0);
}

TEST(StringExText, ConvertsCaseInPlace) {
  CStringEx s("MiXed 12 \xe4");
  EXPECT_EQ(s.ToUpper(), s.c_str());
  EXPECT_STREQ(s, "MIXED 12 \xe4");
  EXPECT_EQ(s.ToLower(), s.c_str());
  EXPECT_STREQ(s, "mixed 12 \xe4");
}

TEST(StringExText, ConvertsCaseOfAnyBuffer) {
  char text[] = "aZ-9\xff";
  EXPECT_EQ(strtoUpper(text), text);
  EXPECT_STREQ(text, "AZ-9\xff");
  EXPECT_EQ(strtoLower(text), text);
  EXPECT_STREQ(text, "az-9\xff");
  EXPECT_EQ(strtoUpper(nullptr), nullptr);
  EXPECT_EQ(strtoLower(nullptr), nullptr);
}

// Slicing

TEST(StringExText, LeftClampsItsCount) {
  const CStringEx s("abc");
  EXPECT_STREQ(s.Left(2), "ab");
  EXPECT_STREQ(s.Left(-3), "");
  EXPECT_STREQ(s.Left(INT_MIN), "");
  EXPECT_STREQ(s.Left(100), "abc");
  EXPECT_STREQ(s.Left(INT_MAX), "abc");
  EXPECT_STREQ(s, "abc");
}

TEST(StringExText, RightClampsItsCount) {
  const CStringEx s("abc");
  EXPECT_STREQ(s.Right(2), "bc");
  EXPECT_STREQ(s.Right(0), "");
  EXPECT_STREQ(s.Right(5), "abc");
  EXPECT_STREQ(s.Right(-1), "");
  EXPECT_STREQ(s.Right(INT_MIN), "");
}

TEST(StringExText, SubStringCutsAtTheEnd) {
  const CStringEx s("abcd");
  EXPECT_STREQ(s.SubString(1, -1), "bcd");
  EXPECT_STREQ(s.SubString(1, 2), "bc");
  EXPECT_STREQ(s.SubString(3, 5), "d");
  EXPECT_STREQ(s.SubString(3, INT_MAX), "d");
  EXPECT_STREQ(s.SubString(4, 1), "");
  EXPECT_STREQ(s.SubString(4, -1), "");
  EXPECT_STREQ(s.SubString(1, 0), "");
}

TEST(StringExText, SubStringClampsItsStart) {
  const CStringEx s("abcd");
  EXPECT_STREQ(s.SubString(-5, 2), "ab");
  EXPECT_STREQ(s.SubString(INT_MIN, -1), "abcd");
  EXPECT_STREQ(s.SubString(5, -1), "");
  EXPECT_STREQ(s.SubString(INT_MAX, INT_MAX), "");
}

// Searching

TEST(StringExText, FindsCharacters) {
  const CStringEx s("abcabc");
  EXPECT_EQ(s.Find('b'), 1);
  EXPECT_EQ(s.Find('b', 1), 1);
  EXPECT_EQ(s.Find('b', 2), 4);
  EXPECT_EQ(s.Find('x', 0), -1);
  EXPECT_EQ(s.Find('a', -1), -1);
  EXPECT_EQ(s.Find('c', 5), 5);
  EXPECT_EQ(s.ReverseFind('b'), 4);
  EXPECT_EQ(s.ReverseFind('x'), -1);
}

TEST(StringExText, ACharacterIsNotSoughtAtTheEndButATextIsKept) {
  const CStringEx s("abc");
  EXPECT_EQ(s.Find('c', 3), -1);
  EXPECT_EQ(s.Find('\0', 3), -1);
  EXPECT_EQ(s.Find('\0', 2), 3);
  EXPECT_EQ(s.Find("", 3), 3);
  EXPECT_EQ(s.Find("", 4), -1);
  EXPECT_EQ(CStringEx().Find('\0', 0), 0);
  EXPECT_EQ(CStringEx().Find('a', 0), -1);
  EXPECT_EQ(CStringEx().Find("", 0), 0);
}

TEST(StringExText, FindsTexts) {
  const CStringEx s("abcabc");
  EXPECT_EQ(s.Find("bc"), 1);
  EXPECT_EQ(s.Find("bc", 2), 4);
  EXPECT_EQ(s.Find("bc", 5), -1);
  EXPECT_EQ(s.Find("abcabcd", 0), -1);
  EXPECT_EQ(s.Find("a", -1), -1);
  EXPECT_EQ(s.Find("a", INT_MAX), -1);
  EXPECT_EQ(s.Find(static_cast<const char*>(nullptr), 0), -1);
}

TEST(StringExText, TellsWhatItContainsKept) {
  CStringEx s("key=value");
  EXPECT_TRUE(s.Contians('='));
  EXPECT_FALSE(s.Contians(':'));
  EXPECT_TRUE(s.Contians("val"));
  EXPECT_FALSE(s.Contians("Val"));
  EXPECT_FALSE(s.Contians(static_cast<const char*>(nullptr)));
}

TEST(StringExText, SeesTwoByteCharactersAtEvenIndexesOnlyKept) {
  EXPECT_TRUE(CStringEx("\xd6\xd0").ContiansChinaChar());
  EXPECT_TRUE(CStringEx("ab\xd6\xd0").ContiansChinaChar());
  EXPECT_FALSE(CStringEx("a\xd6\xd0").ContiansChinaChar());
  EXPECT_FALSE(CStringEx("\xd6").ContiansChinaChar());
  EXPECT_FALSE(CStringEx("\xd6"
                         "a\xd0"
                         "b")
                   .ContiansChinaChar());
  EXPECT_FALSE(CStringEx("").ContiansChinaChar());
  EXPECT_FALSE(CStringEx("plain").ContiansChinaChar());
  EXPECT_TRUE(CStringEx("a\xd6\xd0\xd6\xd0").ContiansChinaChar());
}

TEST(StringExText, SeesPunctuation) {
  EXPECT_TRUE(CStringEx("a,b").ContiansSpecialChar());
  EXPECT_TRUE(CStringEx("under_score").ContiansSpecialChar());
  EXPECT_FALSE(CStringEx("Plain 123\t\xd6\xd0").ContiansSpecialChar());
  EXPECT_FALSE(CStringEx("").ContiansSpecialChar());
}

// Editing

TEST(StringExText, ReplacesEveryOccurrence) {
  CStringEx s("a-b-c");
  EXPECT_EQ(s.Replace("-", "+"), 2);
  EXPECT_STREQ(s, "a+b+c");
  EXPECT_EQ(s.Replace("+", ""), 2);
  EXPECT_STREQ(s, "abc");
  EXPECT_EQ(s.Replace("x", "y"), 0);
  EXPECT_EQ(s.Replace("abc", ""), 1);
  EXPECT_STREQ(s, "");
}

TEST(StringExText, ReplacingByTheSameChangesNothingKept) {
  CStringEx s("aaa");
  EXPECT_EQ(s.Replace("a", "a"), 0);
  EXPECT_STREQ(s, "aaa");
}

TEST(StringExText, ReplacedTextIsNotSearchedAgain) {
  CStringEx s("aabb");
  EXPECT_EQ(s.Replace("ab", "b"), 1);
  EXPECT_STREQ(s, "abb");
  s = "aaa";
  EXPECT_EQ(s.Replace("a", "aa"), 3);
  EXPECT_STREQ(s, "aaaaaa");
  s = "aaaaa";
  EXPECT_EQ(s.Replace("aa", "b"), 2);
  EXPECT_STREQ(s, "bba");
}

TEST(StringExText, ReplacingAnEmptyOrNullTextDoesNothing) {
  CStringEx s("abc");
  EXPECT_EQ(s.Replace("", "x"), 0);
  EXPECT_EQ(s.Replace("", ""), 0);
  EXPECT_EQ(s.Replace(nullptr, "x"), 0);
  EXPECT_EQ(s.Replace("a", nullptr), 0);
  EXPECT_STREQ(s, "abc");
}

TEST(StringExText, ReplacingMovesTheTextAcrossTheInlineBoundary) {
  CStringEx s(Repeat(30).c_str());
  EXPECT_EQ(s.Replace("a", "bcd"), 30);
  EXPECT_EQ(s.GetLength(), 90);
  EXPECT_FALSE(IsInline(s));
  EXPECT_EQ(s.Replace("bcd", "a"), 30);
  EXPECT_EQ(Text(s), Repeat(30));
  EXPECT_TRUE(IsInline(s));
}

TEST(StringExText, AReplaceThatOutgrowsTheBufferLeavesItsLastShortStepThereKept) {
  CStringEx s = (Repeat(50, '-') + "xxxxxxxxx").c_str();  // 59, and 2 more for each x
  EXPECT_EQ(s.Replace("x", "123"), 9);
  EXPECT_EQ(s.GetLength(), 77);
  s.SetAt(0, '\0');
  s += "!";
  EXPECT_EQ(Text(s), Repeat(50, '-') + "123xxxxxxxx!");
}

TEST(StringExText, TrimsOneByteValueFromBothEndsKept) {
  CStringEx s("xxaxx");
  s.Trim('x');
  EXPECT_STREQ(s, "a");
  s = "\t  a b  \t";
  s.Trim(' ');
  EXPECT_STREQ(s, "\t  a b  \t");
  s = "  a b  ";
  s.Trim();
  EXPECT_STREQ(s, "a b");
  s = "    ";
  s.Trim(' ');
  EXPECT_STREQ(s, "");
  s = "";
  s.Trim(' ');
  EXPECT_STREQ(s, "");
}

TEST(StringExText, TrimsOneEnd) {
  CStringEx s("--a--");
  s.TrimEnd('-');
  EXPECT_STREQ(s, "--a");
  s.TrimStart('-');
  EXPECT_STREQ(s, "a");
  s = "  b  ";
  s.TrimEnd();
  EXPECT_STREQ(s, "  b");
  s.TrimStart();
  EXPECT_STREQ(s, "b");
}

TEST(StringExText, TrimEndOverwritesEveryByteItRemoves) {
  CStringEx s("ab---");
  s.TrimEnd('-');
  for (int i = 2; i <= 5; ++i)
    EXPECT_EQ(s.GetAt(i), '\0');
}

TEST(StringExText, TrimmingNulsDoesNothing) {
  CStringEx s("");
  s.Trim('\0');
  EXPECT_STREQ(s, "");
  s = "abc";
  s.Trim('\0');
  EXPECT_STREQ(s, "abc");
}

TEST(StringExText, TrimsKeepTheHeapBlockKept) {
  CStringEx s = ("a" + Repeat(100, 'z')).c_str();
  const char* block = s.c_str();
  s.Trim('z');
  EXPECT_EQ(s.c_str(), block);
}

// Splitting

TEST(StringExText, SplitsAtEveryDelimiterKept) {
  EXPECT_THAT(Texts(CStringEx("a,b").Split(",")), ElementsAre("a", "b"));
  EXPECT_THAT(Texts(CStringEx("a,,b").Split(",")), ElementsAre("a", "", "b"));
  EXPECT_THAT(Texts(CStringEx("a,").Split(",")), ElementsAre("a", ""));
  EXPECT_THAT(Texts(CStringEx(",a").Split(",")), ElementsAre("", "a"));
  EXPECT_THAT(Texts(CStringEx(",").Split(",")), ElementsAre("", ""));
}

TEST(StringExText, SplittingAnEmptyTextGivesNothingAndOneWithoutDelimiterItselfKept) {
  EXPECT_THAT(Texts(CStringEx("").Split(",")), ElementsAre());
  EXPECT_THAT(Texts(CStringEx("x").Split(",")), ElementsAre("x"));
}

TEST(StringExText, TheDelimiterIsAWholeText) {
  EXPECT_THAT(Texts(CStringEx("a||b|c").Split("||")), ElementsAre("a", "b|c"));
  EXPECT_THAT(Texts(CStringEx("a|||b").Split("||")), ElementsAre("a", "|b"));
  EXPECT_THAT(Texts(CStringEx("one and another and last").Split(" and ")),
              ElementsAre("one", "another", "last"));
  EXPECT_THAT(Texts(CStringEx("1<separator>2<separator>").Split("<separator>")),
              ElementsAre("1", "2", ""));
}

TEST(StringExText, AnEmptyOrNullDelimiterGivesTheWholeText) {
  EXPECT_THAT(Texts(CStringEx("abc").Split("")), ElementsAre("abc"));
  EXPECT_THAT(Texts(CStringEx("abc").Split(nullptr)), ElementsAre("abc"));
  EXPECT_THAT(Texts(CStringEx("").Split("")), ElementsAre());
}

TEST(StringExText, FieldsOfAnyLengthComeOut) {
  std::string text;
  std::vector<std::string> expected;
  for (size_t i = 0; i < 200; ++i) {
    expected.push_back(Repeat(i, static_cast<char>('a' + i % 26)));
    text += (i == 0 ? "" : ";") + expected.back();
  }
  CStringEx s(text.c_str());
  const std::vector<CStringEx> fields = s.Split(";");
  EXPECT_EQ(Texts(fields), expected);
  for (const CStringEx& field : fields)
    EXPECT_EQ(IsInline(field), field.GetLength() <= 62);
  EXPECT_EQ(Text(s), text);
}

// Formatting

TEST(StringExText, FormatsLongAndShortTexts) {
  CStringEx s;
  s.Format("%s", Repeat(200).c_str());
  EXPECT_EQ(Text(s), Repeat(200));
  EXPECT_FALSE(IsInline(s));
  s.Format("%d-%s", 12, "x");
  EXPECT_STREQ(s, "12-x");
  EXPECT_TRUE(IsInline(s));
  s.SmallFormat("%d", 12345);
  EXPECT_STREQ(s, "12345");
  s.AppendFormat("/%.2f", 1.5);
  EXPECT_STREQ(s, "12345/1.50");
}

TEST(StringExText, FormattedTextIsCutAtTheBufferKept) {
  const std::string huge = Repeat(20000, 'h');
  CStringEx s;
  s.Format("%s", huge.c_str());
  EXPECT_EQ(Text(s), Repeat(10239, 'h'));
  s = "head ";
  s.AppendFormat("%s", huge.c_str());
  EXPECT_EQ(Text(s), "head " + Repeat(10239, 'h'));
  s.SmallFormat("%s", huge.c_str());
  EXPECT_EQ(Text(s), Repeat(63, 'h'));
  EXPECT_FALSE(IsInline(s));
}

TEST(StringExText, FormattedTextThatJustFitsIsWhole) {
  CStringEx s;
  s.Format("%s", Repeat(10239).c_str());
  EXPECT_EQ(s.GetLength(), 10239);
  s.SmallFormat("%s", Repeat(63).c_str());
  EXPECT_EQ(s.GetLength(), 63);
  s.SmallFormat("%s", Repeat(62).c_str());
  EXPECT_EQ(s.GetLength(), 62);
  EXPECT_TRUE(IsInline(s));
}

TEST(StringExText, FormattedTextEndsAtItsFirstNul) {
  CStringEx s;
  s.Format("ab%cde", 0);
  EXPECT_STREQ(s, "ab");
  s.AppendFormat("%cde", 0);
  EXPECT_STREQ(s, "ab");
}

TEST(StringExText, ANullOrRefusedFormatYieldsNothingMore) {
  CStringEx s("before");
  const char* none = nullptr;
  s.AppendFormat(none, 1);
  EXPECT_STREQ(s, "before");
  s.Format(none, 1);
  EXPECT_STREQ(s, "");
  ASSERT_STREQ(setlocale(LC_CTYPE, "C"), "C");
  const wchar_t wide[] = {0x4e2d, 0};  // no such character in this locale
  s.Format("%ls", wide);
  EXPECT_STREQ(s, "");
}

TEST(StringExText, DistinctObjectsFormatOnDistinctThreads) {
  std::vector<std::thread> threads;
  std::vector<CStringEx> results(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &result = results[static_cast<size_t>(t)]] {
      for (int i = 0; i < 2000; ++i)
        result.Format("thread %d line %d", t, i);
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_THAT(Texts(results), ElementsAre("thread 0 line 1999", "thread 1 line 1999",
                                          "thread 2 line 1999", "thread 3 line 1999"));
}

}  // namespace
