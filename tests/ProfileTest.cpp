#include <Tarn/Generic/Profile.h>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/FailingNew.h"
#include "tests/support/IniReference.h"
#include "tests/support/Support.h"

using namespace tarn_test;

namespace {

/// A file in a folder of its own.
class Profile : public testing::Test {
 protected:
  void Put(const std::string& text) { WriteFile(path_, text); }
  std::string Text() { return ReadFile(path_); }
  int Write(const char* section, const char* key, const char* value) {
    return WritePrivateProfileString(section, key, value, path_.c_str());
  }
  std::string Get(const char* section, const char* key, const char* def, size_t size = 256) {
    std::vector<char> buffer(size, '#');
    length_ = GetPrivateProfileString(section, key, def, buffer.data(), size, path_.c_str());
    return std::string(buffer.data());
  }
  // The whole buffer with "." for NUL and "#" for bytes that were not touched.
  std::string GetRaw(const char* section, const char* key, const char* def, size_t size) {
    std::string buffer(size, '#');
    length_ = GetPrivateProfileString(section, key, def, buffer.data(), size, path_.c_str());
    for (char& c : buffer) {
      if (c == '\0') c = '.';
    }
    return buffer;
  }

  TempDir dir_;
  std::string path_ = dir_.File("test.ini");
  size_t length_ = 0;
};

}  // namespace

TEST_F(Profile, ReadsAValueWithoutRegardToCaseBlanksAndQuotes) {
  Put("[Sec]\n  Key = 'a=b'  \n");
  EXPECT_EQ(Get("sec", "KEY", "def"), "a=b");
  EXPECT_EQ(length_, 3u);
}

TEST_F(Profile, ValueIsCutToTheBuffer) {
  Put("[s]\nk = 'value' \n");
  EXPECT_EQ(GetRaw("s", "k", nullptr, 4), "val.");
  EXPECT_EQ(length_, 3u);
  EXPECT_EQ(GetRaw("s", "k", nullptr, 6), "value.");
  EXPECT_EQ(GetRaw("s", "k", nullptr, 8), "value.##");
}

TEST_F(Profile, SmallestBuffersNeverOverflow) {
  Put("[s]\nk=value\n");
  char byte = '#';
  EXPECT_EQ(GetPrivateProfileString("s", "k", "def", &byte, 0, path_.c_str()), 0u);
  EXPECT_EQ(byte, '#');
  for (const char* section : {"s", "missing", static_cast<const char*>(nullptr)}) {
    for (const char* key : {"k", "missing", static_cast<const char*>(nullptr)}) {
      EXPECT_EQ(GetRaw(section, key, "default", 1), ".");
      EXPECT_EQ(length_, 0u);
      const std::string two = GetRaw(section, key, "default", 2);
      EXPECT_NE(two.find('.'), std::string::npos) << two;
    }
  }
}

TEST_F(Profile, NullBufferOrFileGivesNothing) {
  Put("[s]\nk=value\n");
  EXPECT_EQ(GetPrivateProfileString("s", "k", "def", nullptr, 10, path_.c_str()), 0u);
  char text[10] = "untouched";
  EXPECT_EQ(GetPrivateProfileString("s", "k", "def", text, sizeof(text), nullptr), 0u);
  EXPECT_STREQ(text, "untouched");
}

TEST_F(Profile, DefaultStandsInForWhatIsMissing) {
  EXPECT_EQ(Get("s", "k", "no file"), "no file");
  Put("[s]\na=1\n[t]\nk=2\n");
  EXPECT_EQ(Get("s", "k", "no key"), "no key");
  EXPECT_EQ(Get("u", "k", "no section"), "no section");
  EXPECT_EQ(Get("t", "a", "no key in the last section"), "no key in the last section");
  EXPECT_EQ(Get("u", nullptr, "no section to list"), "no section to list");
  EXPECT_EQ(length_, 18u);
  EXPECT_EQ(Get("s", "k", nullptr), "");
  EXPECT_EQ(length_, 0u);
}

TEST_F(Profile, DefaultIsCutBeforeItIsTrimmedKept) {
  EXPECT_EQ(Get("s", "k", "  ' v '  "), " v ");
  EXPECT_EQ(GetRaw("s", "k", "  'v'", 5), "'v.##");
  EXPECT_EQ(length_, 2u);
}

TEST_F(Profile, EmptyValueIsNotMissingKept) {
  Put("[s]\nk=\n");
  EXPECT_EQ(Get("s", "k", "def"), "");
  EXPECT_EQ(length_, 0u);
}

TEST_F(Profile, ListOfASectionThatExistsIsNeverTheDefaultKept) {
  Put("[s]\n[t]\nk=2\n");
  EXPECT_EQ(Get("s", nullptr, "def"), "");
  EXPECT_EQ(length_, 0u);
  Put("");
  EXPECT_EQ(Get(nullptr, nullptr, "def"), "");
}

TEST_F(Profile, ListsSectionsAndKeys) {
  Put("[a]\nx=1\ny=2\n[bc]\nz=3\n");
  EXPECT_EQ(GetRaw(nullptr, "ignored", "def", 8), "a.bc..##");
  EXPECT_EQ(length_, 4u);
  EXPECT_EQ(GetRaw("A", nullptr, "def", 8), "x.y..###");
  EXPECT_EQ(length_, 3u);
  char names[8];
  EXPECT_EQ(GetPrivateProfileSectionNames(names, sizeof(names), path_.c_str()), 4u);
  EXPECT_EQ(std::string(names, 6), std::string("a\0bc\0\0", 6));
}

TEST_F(Profile, ListThatDoesNotFitLeavesTheLastByteKept) {
  Put("[a]\n[bc]\n[def]\n");
  EXPECT_EQ(GetRaw(nullptr, nullptr, nullptr, 8), "a.bc.d.#");
  EXPECT_EQ(length_, 6u);
}

TEST_F(Profile, EveryListSizeStaysInItsBuffer) {
  Put("[a]\n\nx=1\n\n[bc]\n[a long name]\n");
  for (size_t size = 2; size < 40; ++size) {
    std::vector<char> buffer(size);  // of the exact size, for the address sanitizer
    const size_t keys =
        GetPrivateProfileString("a", nullptr, "d", buffer.data(), size, path_.c_str());
    EXPECT_LE(keys, size - 2);
    EXPECT_LE(GetPrivateProfileSectionNames(buffer.data(), size, path_.c_str()), size - 2);
  }
}

TEST_F(Profile, AFolderReadsAsAMissingFile) {
  char text[10];
  EXPECT_EQ(GetPrivateProfileString("s", "k", "def", text, sizeof(text), dir_.Path().c_str()), 3u);
  EXPECT_EQ(WritePrivateProfileString("s", "k", "v", dir_.Path().c_str()), 0);
}

TEST_F(Profile, ArgumentsMayLieInTheBuffer) {
  Put("[s]\nk=value\n");
  char text[20] = "\0s\0k\0default";
  EXPECT_EQ(
      GetPrivateProfileString(text + 1, text + 3, text + 5, text, sizeof(text), path_.c_str()), 5u);
  EXPECT_STREQ(text, "value");
  std::memcpy(text, "\0x\0k\0default", 13);
  EXPECT_EQ(
      GetPrivateProfileString(text + 1, text + 3, text + 5, text, sizeof(text), path_.c_str()), 7u);
  EXPECT_STREQ(text, "default");
}

TEST_F(Profile, WritingWithoutSectionOrFileDoesNothing) {
  Put(" [s] ");
  EXPECT_EQ(Write(nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(Write(nullptr, "k", "v"), 0);
  EXPECT_EQ(WritePrivateProfileString("s", "k", "v", nullptr), 0);
  EXPECT_EQ(Text(), " [s] ");
}

TEST_F(Profile, WritingCreatesAMissingFile) {
  EXPECT_EQ(Write("s", "k", "v"), 1);
  EXPECT_EQ(Text(), "[s]\nk=v\n");
}

TEST_F(Profile, CreatedFileFollowsTheFileModeMask) {
  EXPECT_EQ(RunInChild([this] {
              umask(027);
              return Write("s", "k", "v") == 1 ? 0 : 1;
            }),
            0);
  struct stat status {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
}

TEST_F(Profile, DeletingCreatesNoFile) {
  EXPECT_EQ(Write("s", "k", nullptr), 0);
  EXPECT_EQ(Write("s", nullptr, nullptr), 0);
  EXPECT_EQ(Write("s", nullptr, "v"), 0);
  EXPECT_FALSE(Exists(path_));
}

TEST_F(Profile, WritingInAMissingFolderFails) {
  EXPECT_EQ(WritePrivateProfileString("s", "k", "v", dir_.File("none/test.ini").c_str()), 0);
}

TEST_F(Profile, ReplacesTheFirstKeyAndKeepsTheSecond) {
  Put("[s]\nk=1\nk=2\n");
  EXPECT_EQ(Get("s", "k", ""), "1");
  EXPECT_EQ(Write("s", "k", "a longer value"), 1);
  EXPECT_EQ(Text(), "[s]\nk=a longer value\nk=2\n");
}

TEST_F(Profile, NewKeyGoesRightBeforeTheNextHeaderKept) {
  Put("[s]\na=1\n[t]\nb=2\n");
  EXPECT_EQ(Write("s", "k", "v"), 1);
  EXPECT_EQ(Text(), "[s]\na=1\nk=v\n[t]\nb=2\n");
}

TEST_F(Profile, NullValueRemovesTheKey) {
  Put("[s]\na=1\nk=1\n");
  EXPECT_EQ(Write("s", "k", nullptr), 1);
  EXPECT_EQ(Text(), "[s]\na=1\n");
}

TEST_F(Profile, NullKeyRemovesTheSectionButNotItsCommentsKept) {
  Put("[s]\n; stays\na=1\n[t]\nb=2\n");
  EXPECT_EQ(Write("s", nullptr, nullptr), 1);
  EXPECT_EQ(Text(), "; stays\n[t]\nb=2\n");
}

TEST_F(Profile, RemovingTheLastSectionGives0AlthoughItIsGoneKept) {
  Put("[s]\na=1\n[t]\nb=2\n");
  EXPECT_EQ(Write("t", nullptr, nullptr), 0);
  EXPECT_EQ(Text(), "[s]\na=1\n");
}

TEST_F(Profile, NullValueInAMissingSectionLeavesItEmptyKept) {
  Put("[s]\na=1\n");
  EXPECT_EQ(Write("t", "k", nullptr), 0);
  EXPECT_EQ(Text(), "[s]\na=1\n[t]\n");
}

TEST_F(Profile, RewriteTidiesTheWholeFileEvenWhenNothingChangesKept) {
  Put("  [s]  \r\n\ta = 1\t\r\n[broken\n");
  EXPECT_EQ(Write("missing", nullptr, nullptr), 0);
  EXPECT_EQ(Text(), "[s]\na = 1\n");
}

TEST_F(Profile, LinesOfMoreThan254CharactersAreSplitKept) {
  Put("[s]\nk=" + std::string(300, 'v') + "\nb=2\n");
  EXPECT_EQ(Get("s", "k", "", 1000), std::string(252, 'v'));
  EXPECT_EQ(Write("s", "b", "3"), 1);
  EXPECT_EQ(Text(), "[s]\nk=" + std::string(252, 'v') + "\n" + std::string(48, 'v') + "\nb=3\n");
}

TEST_F(Profile, LongValuesAreWrittenWhole) {
  Put("[s]\n");
  const std::string value(5000, 'v');
  EXPECT_EQ(Write("s", "k", value.c_str()), 1);
  EXPECT_EQ(Text(), "[s]\nk=" + value + "\n");
}

TEST_F(Profile, RewriteKeepsInodeModeAndLinks) {
  Put("[s]\na=1\n");
  ASSERT_EQ(chmod(path_.c_str(), 0604), 0);
  ASSERT_EQ(symlink("test.ini", dir_.File("link").c_str()), 0);
  struct stat before {};
  ASSERT_EQ(stat(path_.c_str(), &before), 0);
  EXPECT_EQ(WritePrivateProfileString("s", "k", "v", dir_.File("link").c_str()), 1);
  struct stat after {};
  ASSERT_EQ(lstat(path_.c_str(), &after), 0);
  EXPECT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(Text(), "[s]\na=1\nk=v\n");
  EXPECT_EQ(ListDir(dir_.Path()), (std::vector<std::string>{"link", "test.ini"}));
}

TEST_F(Profile, NoRoomKeepsTheOldTextAndGives0) {
  const std::string old = "[s]\n" + std::string(6000, ';') + "\nk=1\n";
  Put(old);
  EXPECT_EQ(RunInChild([this] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit limit{7000, 7000};
              if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 2;
              return Write("s", "k", std::string(4000, 'v').c_str());
            }),
            0);
  EXPECT_EQ(Text(), old);
}

TEST_F(Profile, KilledWriterLeavesEveryOtherEntryReadable) {
  std::string text = "[s]\nchanging=1\n";
  for (int i = 0; i < 200; ++i)
    text += "k" + std::to_string(i) + "=" + std::to_string(i) + "\n";
  Put(text);
  for (int round = 0; round < 15; ++round) {
    const pid_t child = fork();
    if (child == 0) {
      while (true) {
        Write("s", "changing", std::string(2000, 'v').c_str());
        Write("s", "changing", "short");
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1 + round));
    ASSERT_EQ(kill(child, SIGKILL), 0);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(Get("s", "k0", "lost"), "0");
    EXPECT_EQ(Get("s", "k199", "lost"), "199");
  }
}

TEST_F(Profile, WritersOfOneProcessLoseNothing) {
  Put("[s]\n");
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([this, t] {
      for (int i = 0; i < 25; ++i) {
        const std::string key = "k" + std::to_string(t) + "_" + std::to_string(i);
        EXPECT_EQ(Write("s", key.c_str(), "v"), 1);
      }
    });
  }
  for (auto& writer : writers)
    writer.join();
  for (int t = 0; t < 4; ++t) {
    for (int i = 0; i < 25; ++i) {
      EXPECT_EQ(Get("s", ("k" + std::to_string(t) + "_" + std::to_string(i)).c_str(), ""), "v");
    }
  }
}

TEST_F(Profile, ShortMemoryGivesTheDefaultAndKeepsTheFile) {
  const std::string old = "[s]\n" + std::string(200, 'x') + "\nk=value\n";
  Put(old);
  char text[32];
  size_t length = 0;
  int written = 1;
  {
    const FailingNew failing(1, 100);
    length = GetPrivateProfileString("s", "k", "def", text, sizeof(text), path_.c_str());
    EXPECT_EQ(failing.Failed(), 1);
  }
  EXPECT_STREQ(text, "def");
  EXPECT_EQ(length, 3u);
  {
    const FailingNew failing(1, 100);
    written = Write("s", "k", "new");
    EXPECT_EQ(failing.Failed(), 1);
  }
  EXPECT_EQ(written, 0);
  EXPECT_EQ(Text(), old);
  EXPECT_EQ(Write("s", "k", "new"), 1);
}

TEST_F(Profile, FilesAgreeWithThePlainReadingOfTheRules) {
  std::mt19937 engine(7);
  const std::string parts[] = {"[s]",
                               "[T]",
                               "[",
                               ";",
                               "k",
                               "K",
                               "=",
                               "'",
                               " ",
                               "\t",
                               "v",
                               "\r",
                               "k=v",
                               std::string(251, 'x'),
                               std::string(1, '\0')};
  std::string text;
  for (int round = 0; round < 300; ++round) {
    if (round % 10 == 0) {
      text.clear();
      for (auto lines = engine() % 15; lines > 0; --lines) {
        for (auto count = engine() % 4; count > 0; --count) {
          text += parts[engine() % std::size(parts)];
        }
        text += "\n";
      }
      Put(text);
    }
    const char* section = engine() % 2 == 0 ? "S" : "t";
    const char* key = engine() % 6 == 0 ? nullptr : engine() % 2 == 0 ? "k" : "new";
    const char* value = engine() % 4 == 0 ? nullptr : engine() % 2 == 0 ? "v" : " 'longer' ";
    std::string expected;
    const int result = ini_reference::Rewrite(text, section, key, value, expected);
    ASSERT_EQ(Write(section, key, value), result) << testing::PrintToString(text);
    ASSERT_EQ(Text(), expected) << testing::PrintToString(text);
    text = expected;
    ASSERT_EQ(Get(section, "k", "def", 1000),
              ini_reference::Value(text, section, "k").value_or("def"));
  }
}

TEST(ProfileText, LeadAndTrailDropWhiteSpaceOnly) {
  char text[] = " \t\r\n\v\fa b \t\r\n\v\f";
  rmlead(text);
  EXPECT_STREQ(text, "a b \t\r\n\v\f");
  rmtrail(text);
  EXPECT_STREQ(text, "a b");
  char blank[] = "  \n ";
  rmtrail(blank);
  EXPECT_STREQ(blank, "");
  rmlead(blank);
  rmtrail(blank);
  EXPECT_STREQ(blank, "");
}

TEST(ProfileText, QuotesComeOffInPairs) {
  const auto strip = [](std::string text, int expected) {
    EXPECT_EQ(rmquotes(text.data()), expected) << text;
    return std::string(text.c_str());
  };
  EXPECT_EQ(strip("'a'", 1), "a");
  EXPECT_EQ(strip("\"a\"", 1), "a");
  EXPECT_EQ(strip("''a''", 1), "'a'");
  EXPECT_EQ(strip("''", 1), "");
  EXPECT_EQ(strip("'a\"", 0), "'a\"");
  EXPECT_EQ(strip("'", 0), "'");
  EXPECT_EQ(strip("", 0), "");
  EXPECT_EQ(strip("axa", 0), "axa");
}

TEST(ProfileText, BracketsComeOffInPairs) {
  const auto strip = [](std::string text, int expected) {
    EXPECT_EQ(rmbrackets(text.data()), expected) << text;
    return std::string(text.c_str());
  };
  EXPECT_EQ(strip("[ a ]", 1), " a ");
  EXPECT_EQ(strip("[]", 1), "");
  EXPECT_EQ(strip("[[a]]", 1), "[a]");
  EXPECT_EQ(strip("[a", 0), "[a");
  EXPECT_EQ(strip("[", 0), "[");
  EXPECT_EQ(strip("", 0), "");
}

TEST(ProfileText, TokensEndAtDelimitersOrWhenTheBufferIsFull) {
  const char* const text = "key==value;x";
  char token[8];
  const char* rest = stptok(text, token, sizeof(token), "=;");
  EXPECT_STREQ(token, "key");
  EXPECT_EQ(rest, text + 5);
  rest = stptok(rest, token, 4, "=;");
  EXPECT_STREQ(token, "val");
  EXPECT_EQ(rest, text + 8);
  rest = stptok(rest, token, sizeof(token), "=;");
  EXPECT_STREQ(token, "ue");
  EXPECT_EQ(stptok(rest, token, sizeof(token), "=;"), nullptr);
  EXPECT_STREQ(token, "x");
}

TEST(ProfileText, TokenAtTheEndGivesNull) {
  char token[8];
  EXPECT_EQ(stptok("key=", token, sizeof(token), "="), nullptr);
  EXPECT_STREQ(token, "key");
  const char* const text = "=key";
  EXPECT_EQ(stptok(text, token, sizeof(token), "="), text + 1);
  EXPECT_STREQ(token, "");
}

TEST(ProfileText, EmptyTextLeavesTheTokenAsItWasKept) {
  char token[8] = "before";
  EXPECT_EQ(stptok("", token, sizeof(token), "="), nullptr);
  EXPECT_STREQ(token, "before");
}

TEST(ProfileText, HelpersIgnoreNullAndSizesWithoutRoom) {
  rmlead(nullptr);
  rmtrail(nullptr);
  EXPECT_EQ(rmquotes(nullptr), 0);
  EXPECT_EQ(rmbrackets(nullptr), 0);
  char token[8] = "before";
  EXPECT_EQ(stptok(nullptr, token, sizeof(token), "="), nullptr);
  EXPECT_EQ(stptok("a", nullptr, 8, "="), nullptr);
  EXPECT_EQ(stptok("a=b", token, 0, "="), nullptr);
  EXPECT_STREQ(token, "before");
  EXPECT_EQ(stptok("ab", token, sizeof(token), nullptr), nullptr);
  EXPECT_STREQ(token, "ab");
  filecopy(nullptr, stdin);
  filecopy(stdout, nullptr);
}

TEST(ProfileText, FilecopyCopiesTheRestOfEverySize) {
  for (const size_t size : {0U, 1U, 511U, 512U, 513U, 5000U}) {
    std::string bytes = PatternBytes(size + 1);
    FILE* from = fmemopen(bytes.data(), bytes.size(), "r");
    ASSERT_NE(from, nullptr);
    EXPECT_EQ(fgetc(from), static_cast<unsigned char>(bytes[0]));
    char* copied = nullptr;
    size_t length = 0;
    FILE* to = open_memstream(&copied, &length);
    ASSERT_NE(to, nullptr);
    filecopy(to, from);
    fclose(to);
    fclose(from);
    EXPECT_EQ(std::string(copied, length), bytes.substr(1));
    free(copied);
  }
}
