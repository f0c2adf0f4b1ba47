// The JSON wrapper when memory is short: cJSON's at every allocation, and the wrapper's own.
#include <functional>
#include <string>

#include "tests/JsonFixture.h"
#include "tests/support/FailingNew.h"
#include "utility/Json.h"

namespace Tarn::Generic {
namespace {

using tarn_test::FailingNew;

class JsonMemoryTest : public JsonTest {
 protected:
  /// Calls `attempt` with one more successful allocation of cJSON each time, until it gives true;
  /// the number of those calls that it gave false.
  static int FailuresBefore(const std::function<bool()>& attempt) {
    for (int allowed = 0;; ++allowed) {
      const int before = LiveBlocks();
      SetAllowed(allowed);
      const bool succeeded = attempt();
      SetAllowed(-1);
      if (succeeded) return allowed;
      EXPECT_EQ(LiveBlocks(), before);
    }
  }
};

TEST_F(JsonMemoryTest, FactoriesGiveNull) {
  EXPECT_EQ(FailuresBefore([] { return NewObject() != nullptr; }), 1);
  EXPECT_EQ(FailuresBefore([] { return NewArray() != nullptr; }), 1);
  EXPECT_GT(FailuresBefore([] { return Parsed("{\"a\":[1,\"two\"],\"b\":{}}") != nullptr; }), 5);
}

TEST_F(JsonMemoryTest, FactoriesWithoutAWrapperLeaveNoNode) {
  const std::function<IJson*()> factories[] = {
      [] { return IJson::CreateObject(0); },
      [] { return IJson::CreateArray(0); },
      [] { return IJson::CreateObject("[1]", 0); },
  };
  for (const auto& create : factories) {
    const FailingNew failing(1, sizeof(CJson));
    EXPECT_EQ(create(), nullptr);
    EXPECT_EQ(failing.Failed(), 1);
    EXPECT_EQ(LiveBlocks(), 0);
  }
}

TEST_F(JsonMemoryTest, AMemberIsAddedWholeOrNotAtAll) {
  const JsonPtr json = NewObject();
  EXPECT_EQ(FailuresBefore([&] {
              json->AddString("s", "v");
              return json->GetItemCount() == 1;
            }),
            3);
  EXPECT_EQ(FailuresBefore([&] {
              json->AddNumber("n", 1);
              return json->GetItemCount() == 2;
            }),
            2);
  EXPECT_STREQ(json->ToString(0), R"({"s":"v","n":1})");
}

TEST_F(JsonMemoryTest, AnItemWithoutMemoryForItsNameIsFreedWithItsWrapper) {
  const JsonPtr json = NewObject();
  IJson* const item = IJson::CreateObject("{\"a\":[1,2]}", 0);
  SetAllowed(0);
  json->AddItem("item", item, 1);
  SetAllowed(-1);
  EXPECT_STREQ(json->ToString(0), "{}");
}

TEST_F(JsonMemoryTest, AnItemWithoutMemoryForItsNameCanBeAttachedLater) {
  const JsonPtr json = NewObject();
  const JsonPtr item = Parsed("{\"a\":1}", 0);
  IJson* const child = item->GetItem("a");
  EXPECT_EQ(FailuresBefore([&] {
              json->AddItem("item", item.get(), 0);
              EXPECT_EQ(child->GetInt(), 1);
              return json->GetItemCount() == 1;
            }),
            1);
  EXPECT_STREQ(json->ToString(0), R"({"item":{"a":1}})");
}

TEST_F(JsonMemoryTest, AppendingAnItemNeedsNoMemory) {
  const JsonPtr json = NewArray();
  IJson* const item = IJson::CreateObject(0);
  SetAllowed(0);
  json->AddItem(item, 1);
  EXPECT_EQ(json->GetItemCount(), 1);
}

TEST_F(JsonMemoryTest, PrintingGivesNullAndWorksAgainLater) {
  const JsonPtr json = NewArray();
  for (int i = 0; i < 200; ++i)
    json->AddItem(IJson::CreateObject("\"an element that fills the buffer\"", 0), 1);
  for (const int formatted : {0, 1}) {
    const int tree = LiveBlocks();
    EXPECT_GT(FailuresBefore([&] { return json->ToString(formatted) != nullptr; }), 3);
    EXPECT_EQ(LiveBlocks(), tree + 1);
    SetAllowed(0);
    EXPECT_EQ(json->ToString(formatted), nullptr);
    EXPECT_EQ(LiveBlocks(), tree);
    SetAllowed(-1);
  }
}

TEST_F(JsonMemoryTest, AChildThatCannotBeWrappedOrRecordedIsNull) {
  const JsonPtr json = Parsed("{\"a\":1}");
  {
    const FailingNew failing(1, sizeof(CJson));
    EXPECT_EQ(json->GetItem("a"), nullptr);
    EXPECT_EQ(failing.Failed(), 1);
  }
  int wrappers = 0;
  int refused = 0;
  for (; refused < 5; ++wrappers) {
    // More than a wrapper takes: the record alone is refused when it has to grow that far.
    const FailingNew failing(1, sizeof(CJson) + 1);
    const IJson* const child = json->GetItem(0);
    EXPECT_EQ(child == nullptr, failing.Failed() == 1);
    if (child == nullptr) ++refused;
  }
  EXPECT_GT(wrappers, refused);
  EXPECT_EQ(json->GetItem("a")->GetInt(), 1);
}

TEST_F(JsonMemoryTest, GettersByNameNeedNoMemory) {
  const JsonPtr json = Parsed("{\"n\":5,\"s\":\"text\"}");
  const FailingNew failing(1, 0);
  SetAllowed(0);
  EXPECT_EQ(json->GetInt("n"), 5);
  EXPECT_EQ(json->GetDouble("n"), 5.0);
  EXPECT_STREQ(json->GetString("s"), "text");
  EXPECT_EQ(json->GetItemCount(), 2);
  EXPECT_EQ(failing.Failed(), 0);
}

}  // namespace
}  // namespace Tarn::Generic
