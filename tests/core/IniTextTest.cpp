#include "utility/core/IniText.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/IniReference.h"
#include "tests/support/Support.h"

using namespace Tarn::Core;
using namespace tarn_test;

namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> result;
  IniLines lines(text);
  std::string_view line;
  while (lines.Next(line))
    result.emplace_back(line);
  return result;
}

std::string Value(const std::string& text, const char* section, const char* key) {
  const auto value = FindIniValue(text, section, key);
  return value ? std::string(*value) : "<none>";
}

struct Rewritten {
  bool result;
  std::string text;
  bool operator==(const Rewritten&) const = default;
};
void PrintTo(const Rewritten& r, std::ostream* out) {
  *out << r.result << ' ' << r.text;
}

Rewritten Rewrite(const std::string& text, const char* section, const char* key,
                  const char* value) {
  Rewritten rewritten{};
  rewritten.result = RewriteIni(text, {section, key, value}, rewritten.text);
  return rewritten;
}

// The buffer after a listing, with "." for NUL and "#" for a byte that was not touched.
std::string Listed(const std::string& text, const char* section, size_t size, size_t* length) {
  std::vector<char> buffer(size, '#');
  *length = section == nullptr ? ListIniSections(text, buffer.data(), size).length
                               : ListIniKeys(text, section, buffer.data(), size).length;
  std::string shown(buffer.begin(), buffer.end());
  for (char& c : shown) {
    if (c == '\0') c = '.';
  }
  return shown;
}

// Texts made of the pieces that the rules tell apart.
class RandomTexts {
 public:
  std::string Text() {
    std::string text;
    for (size_t count = Pick(12); count > 0; --count)
      text += Line();
    if (Pick(4) == 0 && !text.empty()) text.pop_back();
    return text;
  }
  const char* Name() {
    static const char* const names[] = {"s", "S", "t", "k", "K", "", "a b", " s", "k=", "kk"};
    return names[Pick(std::size(names))];
  }
  size_t Pick(size_t count) { return std::uniform_int_distribution<size_t>(0, count - 1)(engine_); }

 private:
  std::string Line() {
    static const std::string parts[] = {"[s]",  "[S]",
                                        "[t]",  "[",
                                        "]",    "[]",
                                        "[ s]", ";",
                                        "k",    "K",
                                        "=",    "'",
                                        "\"",   " ",
                                        "\t",   "v",
                                        "a b",  "\r",
                                        "\v",   std::string(1, '\0'),
                                        "\xA0", std::string(250, 'x'),
                                        "k=v",  "s"};
    std::string line;
    for (size_t count = Pick(5); count > 0; --count)
      line += parts[Pick(std::size(parts))];
    if (Pick(20) == 0) line.resize(250 + Pick(8), ' ');
    return line + "\n";
  }
  std::mt19937 engine_{20240501};
};

}  // namespace

TEST(IniText, LinesLoseTheirWhiteSpaceAndLineEnds) {
  EXPECT_EQ(Lines(" a \r\n\t\v\fb\n\nc"), (std::vector<std::string>{"a", "b", "", "c"}));
  EXPECT_EQ(Lines(""), std::vector<std::string>{});
  EXPECT_EQ(Lines("\n"), std::vector<std::string>{""});
  EXPECT_EQ(Lines("a\n"), std::vector<std::string>{"a"});
}

TEST(IniText, LineOf253CharactersIsOnePiece) {
  const std::string line(253, 'x');
  EXPECT_EQ(Lines(line + "\nb\n"), (std::vector<std::string>{line, "b"}));
}

TEST(IniText, NewlineBehind254CharactersIsALineOfItsOwnKept) {
  const std::string line(254, 'x');
  EXPECT_EQ(Lines(line + "\nb\n"), (std::vector<std::string>{line, "", "b"}));
  EXPECT_EQ(Lines(line), std::vector<std::string>{line});
}

TEST(IniText, LongLineIsSeveralLinesKept) {
  const std::string piece(254, 'x');
  EXPECT_EQ(Lines(piece + piece + "yz\nb"), (std::vector<std::string>{piece, piece, "yz", "b"}));
}

TEST(IniText, LineEndsAtItsFirstNul) {
  EXPECT_EQ(Lines(std::string("a \0b\nc\n\0d\n\0", 11)),
            (std::vector<std::string>{"a", "c", "", ""}));
}

TEST(IniText, EveryLengthAroundABlockOf64IsSplitAtItsNewlines) {
  for (size_t length = 0; length < 300; ++length) {
    const std::string line(length % 200, 'x');
    const std::string text = std::string(length, '\n') + line + "\n" + line;
    EXPECT_EQ(Lines(text).size(), length + 1 + (line.empty() ? 0 : 1)) << length;
  }
}

TEST(IniText, ValueIsFoundWithoutRegardToCaseBlanksAndQuotes) {
  EXPECT_EQ(Value("[Sec]\n  Key = 'a=b'  \n", "sec", "KEY"), "a=b");
  EXPECT_EQ(Value("[s]\nk=\"v\"\n", "s", "k"), "v");
  EXPECT_EQ(Value("[s]\nk=' v '\n", "s", "k"), " v ");
  EXPECT_EQ(Value("[s]\nk=''v''\n", "s", "k"), "'v'");
}

TEST(IniText, QuotesThatAreNoPairStay) {
  EXPECT_EQ(Value("[s]\nk='v\"\n", "s", "k"), "'v\"");
  EXPECT_EQ(Value("[s]\nk='\n", "s", "k"), "'");
  EXPECT_EQ(Value("[s]\nk=''\n", "s", "k"), "");
}

TEST(IniText, NothingBehindAValueIsACommentKept) {
  EXPECT_EQ(Value("[s]\nk=v ; no comment # either\n", "s", "k"), "v ; no comment # either");
}

TEST(IniText, CommentLinesHideEntriesAndHeaders) {
  EXPECT_EQ(Value(";[s]\n[s]\n ;k=1\nk=2\n", "s", "k"), "2");
}

TEST(IniText, FirstSectionAndFirstKeyWinKept) {
  EXPECT_EQ(Value("[s]\nk=1\nk=2\n[s]\nj=3\n", "s", "k"), "1");
  EXPECT_EQ(Value("[s]\nk=1\nk=2\n[s]\nj=3\n", "s", "j"), "<none>");
}

TEST(IniText, EntriesOutsideTheSectionDoNotCount) {
  EXPECT_EQ(Value("k=0\n[r]\nk=1\n[s]\n[t]\nk=2\n", "s", "k"), "<none>");
}

TEST(IniText, HeaderNamesKeepTheirBlanksKept) {
  EXPECT_EQ(Value("[ a ]\nk=1\n[a]\nk=2\n", "a", "k"), "2");
  EXPECT_EQ(Value("[ a ]\nk=1\n[a]\nk=2\n", " a ", "k"), "1");
  EXPECT_EQ(Value("[]\nk=1\n", "", "k"), "1");
}

TEST(IniText, LoneBracketIsNoHeader) {
  EXPECT_EQ(Value("[s]\n[\n]\n[x\nk=1\n", "s", "k"), "1");
}

TEST(IniText, LineWithTheNameAloneEndsTheSearchKept) {
  EXPECT_EQ(Value("[s]\nk\nk=1\n", "s", "k"), "<none>");
}

TEST(IniText, NamesCompareByteForByteOutsideAscii) {
  EXPECT_EQ(Value("[\xC4]\nk=1\n[\xE4]\nk=2\n", "\xE4", "k"), "2");
}

TEST(IniText, ListOfSectionsCountsWithoutItsLastNulKept) {
  size_t length = 0;
  EXPECT_EQ(Listed("[a]\nx=1\n[bc]\n", nullptr, 10, &length), "a.bc..####");
  EXPECT_EQ(length, 4u);
}

TEST(IniText, ListThatFitsExactlyKeepsOneByteFree) {
  size_t length = 0;
  EXPECT_EQ(Listed("[a]\n[bc]\n", nullptr, 7, &length), "a.bc..#");
  EXPECT_EQ(length, 4u);
}

TEST(IniText, CutListEndsOneByteBeforeTheEndOfTheBufferKept) {
  size_t length = 0;
  EXPECT_EQ(Listed("[a]\n[bc]\n[d]\n", nullptr, 6, &length), "a.bc.#");
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(Listed("[a]\n[bc]\n[d]\n", nullptr, 5, &length), "a.b.#");
  EXPECT_EQ(length, 3u);
  EXPECT_EQ(Listed("[a]\n[bc]\n[d]\n", nullptr, 4, &length), "a..#");
  EXPECT_EQ(length, 2u);
  EXPECT_EQ(Listed("[a]\n[bc]\n[d]\n", nullptr, 3, &length), "a.#");
  EXPECT_EQ(length, 1u);
}

TEST(IniText, ListsInTheSmallestBuffersStayInside) {
  size_t length = 99;
  EXPECT_EQ(Listed("[abc]\nk=1\n", nullptr, 2, &length), ".#");
  EXPECT_EQ(length, 0u);
  EXPECT_EQ(Listed("[abc]\nk=1\n", "abc", 1, &length), ".");
  EXPECT_EQ(length, 0u);
}

TEST(IniText, EmptyLineRepeatsTheKeyBeforeItKept) {
  size_t length = 0;
  EXPECT_EQ(Listed("[s]\na=1\n\n;c\n\nb=2\n", "s", 12, &length), "a.a.a.b..###");
  EXPECT_EQ(length, 7u);
}

TEST(IniText, EmptyLineBeforeTheFirstKeyGivesAnEmptyNameKept) {
  size_t length = 0;
  EXPECT_EQ(Listed("[s]\n\na=1\n", "s", 6, &length), ".a..##");
  EXPECT_EQ(length, 2u);
}

TEST(IniText, ListOfKeysEndsAtTheNextHeader) {
  size_t length = 0;
  EXPECT_EQ(Listed("[s]\na = 1\nplain\n[t]\nb=2\n", "S", 12, &length), "a.plain..###");
  EXPECT_FALSE(ListIniKeys("[s]\n", "t", std::string(4, ' ').data(), 4).found);
}

TEST(IniText, RewriteReplacesTheFirstKeyAndKeepsTheSecondKept) {
  EXPECT_EQ(Rewrite("[s]\nk=1\nk=2\n", "S", "K", "3"), (Rewritten{true, "[s]\nK=3\nk=2\n"}));
}

TEST(IniText, RewritePutsANewKeyRightBeforeTheNextHeader) {
  EXPECT_EQ(Rewrite("[s]\na=1\n\n[t]\nb=2\n", "s", "k", "v"),
            (Rewritten{true, "[s]\na=1\n\nk=v\n[t]\nb=2\n"}));
}

TEST(IniText, RewriteAddsWhatIsMissingAtTheEnd) {
  EXPECT_EQ(Rewrite("[s]\na=1", "s", "k", "v"), (Rewritten{true, "[s]\na=1\nk=v\n"}));
  EXPECT_EQ(Rewrite("[s]\na=1", "t", "k", "v"), (Rewritten{true, "[s]\na=1\n[t]\nk=v\n"}));
  EXPECT_EQ(Rewrite("", "t", "k", "v"), (Rewritten{true, "[t]\nk=v\n"}));
}

TEST(IniText, RewriteWithoutValueRemovesTheKey) {
  EXPECT_EQ(Rewrite("[s]\na=1\nk=1\nb=2\n", "s", "k", nullptr),
            (Rewritten{true, "[s]\na=1\nb=2\n"}));
}

TEST(IniText, RemovingAMissingKeyCountsOnlyBeforeAnotherSectionKept) {
  EXPECT_EQ(Rewrite("[s]\na=1\n", "s", "k", nullptr), (Rewritten{false, "[s]\na=1\n"}));
  EXPECT_EQ(Rewrite("[s]\na=1\n[t]\n", "s", "k", nullptr), (Rewritten{true, "[s]\na=1\n[t]\n"}));
}

TEST(IniText, RemovingAKeyOfAMissingSectionAddsTheSectionKept) {
  EXPECT_EQ(Rewrite("[s]\na=1\n", "t", "k", nullptr), (Rewritten{false, "[s]\na=1\n[t]\n"}));
}

TEST(IniText, RemovingASectionKeepsItsComments) {
  EXPECT_EQ(Rewrite("[r]\nx=1\n[s]\n; stays\na=1\n\n[broken\n[t]\nb=2\n", "s", nullptr, nullptr),
            (Rewritten{true, "[r]\nx=1\n; stays\n[t]\nb=2\n"}));
}

TEST(IniText, RemovingTheLastSectionIsDoneButDoesNotCountKept) {
  EXPECT_EQ(Rewrite("[r]\nx=1\n[s]\na=1\n", "s", nullptr, "v"), (Rewritten{false, "[r]\nx=1\n"}));
}

TEST(IniText, RemovingAMissingSectionOnlyTidies) {
  EXPECT_EQ(Rewrite(" [r]\n x = 1\n", "s", nullptr, nullptr), (Rewritten{false, "[r]\nx = 1\n"}));
}

TEST(IniText, BrokenHeadersVanishOutsideTheSectionOnlyKept) {
  EXPECT_EQ(Rewrite("[half\n[s]\n[inside\nx=1\n[t]\n[behind\n", "s", "k", "v"),
            (Rewritten{true, "[s]\n[inside\nx=1\nk=v\n[t]\n[behind\n"}));
  EXPECT_EQ(Rewrite("[s]\nx=1\n[half\n", "t", "k", "v"), (Rewritten{true, "[s]\nx=1\n[t]\nk=v\n"}));
}

TEST(IniText, RewriteNormalisesEveryLineKept) {
  const std::string piece(254, 'x');
  EXPECT_EQ(Rewrite("  ; c  \r\n\t[s]\t\r\n  a  =  1  \r\n" + piece + "yz\n", "s", "a", "2").text,
            "; c\n[s]\na=2\n" + piece + "\nyz\n");
}

TEST(IniText, RewriteKeepsBytesOutsideAscii) {
  EXPECT_EQ(Rewrite("[s]\n\xD6\xD0=\xCE\xC4\n", "s", "k", "\xE4\xB8\xAD").text,
            "[s]\n\xD6\xD0=\xCE\xC4\nk=\xE4\xB8\xAD\n");
}

TEST(IniText, AgreesWithThePlainReadingOfTheRulesOnRandomTexts) {
  RandomTexts random;
  for (int i = 0; i < 8000; ++i) {
    const std::string text = random.Text();
    const char* section = random.Name();
    const char* key = random.Name();
    const auto value = FindIniValue(text, section, key);
    const auto expected = ini_reference::Value(text, section, key);
    ASSERT_EQ(value.has_value(), expected.has_value()) << testing::PrintToString(text);
    ASSERT_EQ(value.value_or(""), expected.value_or("")) << testing::PrintToString(text);

    const char* newKey = random.Pick(5) == 0 ? nullptr : key;
    const char* newValue = random.Pick(4) == 0 ? nullptr : "new value";
    std::string changed;
    const int result = ini_reference::Rewrite(text, section, newKey, newValue, changed);
    ASSERT_EQ(Rewrite(text, section, newKey, newValue), (Rewritten{result == 1, changed}))
        << testing::PrintToString(text);
  }
}

TEST(IniText, ListsAgreeWithThePlainReadingOfTheRulesInEveryBufferSize) {
  RandomTexts random;
  for (int i = 0; i < 400; ++i) {
    const std::string text = random.Text();
    const char* section = random.Pick(3) == 0 ? nullptr : random.Name();
    for (size_t size = 2; size < 40; ++size) {
      std::vector<char> expected(size, '#');
      const auto reference = ini_reference::Names(text, section, expected.data(), size);
      std::vector<char> buffer(size, '#');
      const IniList list = section == nullptr ? ListIniSections(text, buffer.data(), size)
                                              : ListIniKeys(text, section, buffer.data(), size);
      ASSERT_EQ(list.found, reference.found);
      ASSERT_EQ(list.length, reference.length) << testing::PrintToString(text) << size;
      ASSERT_EQ(buffer, expected) << testing::PrintToString(text) << size;
    }
  }
}

TEST(IniText, TimeGrowsWithTheTextOnly) {
  // One line without an end, and many empty ones: both would be slow if a search began anew each
  // time.
  const std::string longLine(1 << 22, 'x');
  const std::string manyLines(1 << 22, '\n');
  const Stopwatch watch;
  EXPECT_EQ(Value("[s]\n" + longLine, "s", "k"), "<none>");
  EXPECT_EQ(Value("[s]\n" + manyLines, "s", "k"), "<none>");
  EXPECT_LT(watch.ElapsedMs(), AtMost(20000));
}
