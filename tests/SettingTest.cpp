#include <Tarn/Generic/Setting.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/FailingNew.h"
#include "tests/support/Support.h"

using namespace tarn_test;
using Tarn::Generic::CSetting;

static_assert(sizeof(CSetting) == sizeof(void*) + 256, "hosts construct settings themselves");

namespace {

class Setting : public testing::Test {
 protected:
  void Put(const std::string& text) {
    WriteFile(path_, text);
    EXPECT_TRUE(setting_.Load(path_.c_str()));
  }
  void PutValue(const std::string& value) { Put("[s]\nk=" + value + "\n"); }
  std::string Text() { return ReadFile(path_); }

  TempDir dir_;
  std::string path_ = dir_.File("test.ini");
  CSetting setting_;
};

template <typename Operation>
long SlotOf(Operation operation) {
  // A pointer to a virtual operation holds the place in the table, plus one.
  long raw = 0;
  std::memcpy(&raw, &operation, sizeof(raw));
  return (raw - 1) / static_cast<long>(sizeof(void*));
}

}  // namespace

TEST(SettingLayout, OperationsStandInTheOrderThatHostsAreBuiltWith) {
  EXPECT_EQ(SlotOf(&CSetting::Load), 0);
  EXPECT_EQ(SlotOf(&CSetting::GetString), 1);
  EXPECT_EQ(SlotOf(&CSetting::GetString2), 2);
  EXPECT_EQ(SlotOf(&CSetting::GetInt), 3);
  EXPECT_EQ(SlotOf(&CSetting::GetFloat), 4);
  EXPECT_EQ(SlotOf(&CSetting::WriteString), 5);
  EXPECT_EQ(SlotOf(&CSetting::WriteInt), 6);
  EXPECT_EQ(SlotOf(&CSetting::WriteFloat), 7);
}

TEST_F(Setting, WithoutLoadGivesDefaultsAndWritesNothing) {
  EXPECT_STREQ(setting_.GetString("s", "k", "def"), "def");
  EXPECT_EQ(setting_.GetString2("s", "k", "def"), "def");
  EXPECT_EQ(setting_.GetInt("s", "k", 7), 7);
  EXPECT_EQ(setting_.GetFloat("s", "k", 7.5f), 7.5f);
  EXPECT_EQ(setting_.WriteString("s", "k", "v"), 0);
  EXPECT_EQ(setting_.WriteInt("s", "k", 1), 0);
  EXPECT_EQ(setting_.WriteFloat("s", "k", 1), 0);
}

TEST_F(Setting, LoadTellsWhetherTheFileExistsAndUsesItEitherWayKept) {
  EXPECT_FALSE(setting_.Load(path_.c_str()));
  EXPECT_EQ(setting_.WriteString("s", "k", "v"), 1);
  EXPECT_TRUE(setting_.Load(path_.c_str()));
  EXPECT_FALSE(setting_.Load(nullptr));
  EXPECT_STREQ(setting_.GetString("s", "k", "def"), "def");
}

TEST_F(Setting, PathIsCutTo255Characters) {
  const std::string folder = dir_.Path() + "/";
  const std::string cut = folder + std::string(255 - folder.size(), 'x');
  WriteFile(cut, "[s]\nk=v\n");
  EXPECT_TRUE(setting_.Load((cut + "more").c_str()));
  EXPECT_STREQ(setting_.GetString("s", "k", ""), "v");
}

TEST_F(Setting, NameMeansAFileBesideTheProgramKept) {
  const std::string name = "SettingTest-" + std::to_string(getpid()) + ".ini";
  WriteFile(ProgramDir() + "/" + name, "[s]\nk=beside\n");
  CSetting setting(name.c_str());
  EXPECT_STREQ(setting.GetString("s", "k", ""), "beside");
  EXPECT_EQ(unlink((ProgramDir() + "/" + name).c_str()), 0);
  CSetting nameless(nullptr);
  EXPECT_STREQ(nameless.GetString("s", "k", "def"), "def");
}

TEST_F(Setting, CopiesUseTheSameFile) {
  PutValue("v");
  CSetting copy = setting_;
  EXPECT_STREQ(copy.GetString("s", "k", ""), "v");
}

TEST_F(Setting, GetStringSharesOneBufferKept) {
  PutValue("v");
  CSetting other;
  const char* text = setting_.GetString("s", "k", "");
  EXPECT_EQ(other.GetString("s", "k", "other"), text);
  EXPECT_STREQ(text, "other");
}

TEST_F(Setting, GetStringTakesEarlierResultsAsArguments) {
  Put("[names]\nwhich=k\n[s]\nk=v\n");
  EXPECT_STREQ(setting_.GetString("s", setting_.GetString("names", "which", ""), ""), "v");
  EXPECT_STREQ(setting_.GetString("s", "missing", setting_.GetString("s", "k", "")), "v");
}

TEST_F(Setting, GetStringCutsTo254CharactersKept) {
  const std::string def(300, 'd');
  EXPECT_EQ(std::string(setting_.GetString("s", "k", def.c_str())), def.substr(0, 254));
  EXPECT_STREQ(setting_.GetString("s", "k", "short"), "short");
}

TEST_F(Setting, GetString2CutsTo4094Characters) {
  const std::string def(5000, 'd');
  EXPECT_EQ(setting_.GetString2("s", "k", def.c_str()), def.substr(0, 4094));
}

TEST_F(Setting, ListsEndInTwoNulsEvenWhenTheyAreCut) {
  std::string text;
  for (int i = 100; i < 200; ++i)
    text += "[a section" + std::to_string(i) + "]\n";
  Put(text);
  const std::string list(setting_.GetString(nullptr, nullptr, nullptr), 256);
  EXPECT_EQ(list.substr(0, 13), std::string("a section100\0", 13));
  EXPECT_NE(list[252], '\0');
  EXPECT_EQ(list.substr(253), std::string(3, '\0'));
}

TEST_F(Setting, NullDefaultGivesAnEmptyText) {
  EXPECT_STREQ(setting_.GetString("s", "k", nullptr), "");
  EXPECT_EQ(setting_.GetString2("s", "k", nullptr), "");
}

TEST_F(Setting, GetIntReadsWhatTheValueBeginsWithKept) {
  PutValue("12abc");
  EXPECT_EQ(setting_.GetInt("s", "k", 5), 12);
  PutValue("abc");
  EXPECT_EQ(setting_.GetInt("s", "k", 5), 0);
  PutValue("-3");
  EXPECT_EQ(setting_.GetInt("s", "k", 5), -3);
  PutValue("' +4'");
  EXPECT_EQ(setting_.GetInt("s", "k", 5), 4);
}

TEST_F(Setting, GetIntKeepsTheLow32BitsOfANumberBeyondThemKept) {
  PutValue("4294967297");
  EXPECT_EQ(setting_.GetInt("s", "k", 5), 1);
  PutValue("2147483648");
  EXPECT_EQ(setting_.GetInt("s", "k", 5), -2147483647 - 1);
  PutValue("99999999999999999999");
  EXPECT_EQ(setting_.GetInt("s", "k", 5), -1);
}

TEST_F(Setting, GetIntGivesTheDefaultForMissingAndEmptyKeysOnlyKept) {
  PutValue("0");
  EXPECT_EQ(setting_.GetInt("s", "k", 5), 0);
  EXPECT_EQ(setting_.GetInt("s", "missing", 5), 5);
  PutValue("");
  EXPECT_EQ(setting_.GetInt("s", "k", 5), 5);
}

TEST_F(Setting, GetFloatReadsWhatTheValueBeginsWith) {
  PutValue("2.5 metres");
  EXPECT_EQ(setting_.GetFloat("s", "k", 1.0f), 2.5f);
  PutValue("metres");
  EXPECT_EQ(setting_.GetFloat("s", "k", 1.0f), 0.0f);
  PutValue("0x1.8p1");
  EXPECT_EQ(setting_.GetFloat("s", "k", 1.0f), 3.0f);
  PutValue("1,5");
  EXPECT_EQ(setting_.GetFloat("s", "k", 1.0f), 1.0f);
  EXPECT_EQ(setting_.GetFloat("s", "missing", 1.25f), 1.25f);
}

TEST_F(Setting, GetFloatIsDefinedBeyondTheRangeOfFloat) {
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  PutValue("1e300");
  EXPECT_EQ(setting_.GetFloat("s", "k", 0), kInfinity);
  PutValue("-1e39");
  EXPECT_EQ(setting_.GetFloat("s", "k", 0), -kInfinity);
  PutValue("3.40282346638528860e38");
  EXPECT_EQ(setting_.GetFloat("s", "k", 0), FLT_MAX);
  PutValue("3.4028235e38");  // above the largest float, but nearer to it than to the next step
  EXPECT_EQ(setting_.GetFloat("s", "k", 0), FLT_MAX);
  PutValue("-3.4028235e38");
  EXPECT_EQ(setting_.GetFloat("s", "k", 0), -FLT_MAX);
  PutValue("3.4028235677973366e38");  // half a step above
  EXPECT_EQ(setting_.GetFloat("s", "k", 0), kInfinity);
  PutValue("1e-300");
  EXPECT_EQ(setting_.GetFloat("s", "k", 1), 0.0f);
  PutValue("inf");
  EXPECT_EQ(setting_.GetFloat("s", "k", 0), kInfinity);
  PutValue("nan");
  EXPECT_TRUE(std::isnan(setting_.GetFloat("s", "k", 0)));
}

TEST_F(Setting, WritersSetOneEntry) {
  Put("[s]\nk=1\n");
  EXPECT_EQ(setting_.WriteString("s", "k", "text"), 1);
  EXPECT_EQ(Text(), "[s]\nk=text\n");
  EXPECT_EQ(setting_.WriteInt("s", "k", -2147483647 - 1), 1);
  EXPECT_EQ(Text(), "[s]\nk=-2147483648\n");
  EXPECT_EQ(setting_.WriteFloat("s", "k", 2.5f), 1);
  EXPECT_EQ(Text(), "[s]\nk=2.50\n");
  EXPECT_EQ(setting_.WriteString("s", "k", nullptr), 1);
  EXPECT_EQ(Text(), "[s]\n");
}

TEST_F(Setting, WriteFloatRoundsAsThePlatformPrintsKept) {
  const float values[] = {0.0f,     -0.0f,   0.005f,  0.125f,  0.375f,   -2.675f,   1e10f, FLT_MAX,
                          -FLT_MAX, FLT_MIN, 99.995f, -0.001f, INFINITY, -INFINITY, NAN};
  for (const float value : values) {
    char expected[64];
    snprintf(expected, sizeof(expected), "%0.2f", static_cast<double>(value));
    ASSERT_EQ(setting_.Load(path_.c_str()), Exists(path_));
    EXPECT_EQ(setting_.WriteFloat("s", "k", value), 1);
    EXPECT_EQ(setting_.GetString2("s", "k", ""), expected);
  }
}

TEST_F(Setting, NumbersHaveAPointInEveryLocale) {
  int status = 0;
  RunCommand("localedef -i de_DE -f UTF-8 '" + dir_.File("de_DE.UTF-8") + "' 2>&1", &status);
  if (status != 0) GTEST_SKIP() << "no locale with a decimal comma can be made here";
  PutValue("2.75");
  EXPECT_EQ(RunInChild([this] {
              setenv("LOCPATH", dir_.Path().c_str(), 1);
              if (setlocale(LC_ALL, "de_DE.UTF-8") == nullptr) return 2;
              if (std::strcmp(localeconv()->decimal_point, ",") != 0) return 3;
              if (setting_.GetFloat("s", "k", 0) != 2.75f) return 4;
              return setting_.WriteFloat("s", "k", 1234.5f) == 1 ? 0 : 5;
            }),
            0);
  EXPECT_EQ(Text(), "[s]\nk=1234.50\n");
}

TEST_F(Setting, ThreadsReadAtTheSameTimeAndTheSharedTextStaysTerminated) {
  Put("[s]\nk=" + std::string(200, 'v') + "\nn=12\n");
  std::vector<std::thread> readers;
  for (int t = 0; t < 4; ++t) {
    readers.emplace_back([this] {
      for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(setting_.GetString2("s", "k", ""), std::string(200, 'v'));
        EXPECT_EQ(setting_.GetInt("s", "n", 0), 12);
        setting_.GetString("s", i % 2 == 0 ? "k" : "n", "");
      }
    });
  }
  for (auto& reader : readers)
    reader.join();
  EXPECT_EQ(setting_.GetString("s", "n", ""), std::string("12"));
}

TEST_F(Setting, ShortMemoryGivesNeutralResults) {
  PutValue(std::string(100, 'v'));
  std::string text = "unset";
  int number = 0;
  {
    const FailingNew failing(100, 50);
    text = setting_.GetString2("s", "k", std::string(20, 'd').c_str());
    number = setting_.GetInt("s", "k", 7);
    EXPECT_GE(failing.Failed(), 2);
  }
  EXPECT_EQ(text, std::string(20, 'd'));
  EXPECT_EQ(number, 7);
}
