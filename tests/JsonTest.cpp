// The JSON wrapper: making, reading, changing and printing trees, and who frees them.
#include "utility/Json.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/JsonFixture.h"
#include "tests/support/Slots.h"

namespace Tarn::Generic {
namespace {

using namespace tarn_test;

// Layout

static_assert(JSON_TYPE_OBJECT == 0 && JSON_TYPE_ARRAY == 1);
static_assert(std::is_same_v<std::underlying_type_t<JsonType>, int>);
static_assert(sizeof(IJson) == sizeof(void*));
static_assert(sizeof(CJson) == 4 * sizeof(void*) + sizeof(std::vector<CJson*>));

template <typename Field>
Field FieldAt(const CJson& json, size_t offset) {
  Field field;
  std::memcpy(&field, reinterpret_cast<const char*>(&json) + offset, sizeof(field));
  return field;
}

TEST_F(JsonTest, KeepsItsFieldsInOrder) {
  CJson json(JSON_TYPE_OBJECT, 7);
  char* const text = json.ToString(0);
  json.AddNumber("n", 1);
  IJson* const child = json.GetItem("n");
  EXPECT_EQ(FieldAt<int>(json, 8), 7);
  EXPECT_EQ(FieldAt<cJSON*>(json, 16), json.GetJsonNode());
  EXPECT_EQ(FieldAt<char*>(json, 24), text);
  EXPECT_EQ(*FieldAt<IJson**>(json, 32), child);
}

/// An object to be attached, with one member of that name.
IJson* NewItem(const char* name) {
  IJson* const item = IJson::CreateObject(0);
  item->AddString(name, "v");
  return item;
}

TEST_F(JsonTest, KeepsItsVirtualOperationsInOrder) {
  const JsonPtr owner = NewObject();
  void* const object = owner.get();
  CallSlot<void>(object, 12, "s", "text");  // AddString
  CallSlot<void>(object, 13, "n", 2.5);     // AddNumber
  IJson* const array = IJson::CreateArray(0);
  CallSlot<void>(object, 15, "a", array, 0);                            // AddItem(name)
  CallSlot<void>(static_cast<void*>(array), 14, NewItem("e"), 1);       // AddItem
  CallSlot<void>(object, 15, "o", NewItem("m"), 1);                     // AddItem(name)
  EXPECT_EQ(CallSlot<int>(object, 3), 4);                               // GetItemCount
  EXPECT_EQ(CallSlot<IJson*>(object, 4, 1)->GetDouble(), 2.5);          // GetItem(int)
  EXPECT_STREQ(CallSlot<IJson*>(object, 5, "s")->GetString(), "text");  // GetItem(name)
  EXPECT_EQ(CallSlot<int>(CallSlot<IJson*>(object, 4, 1), 6), 2);       // GetInt
  EXPECT_EQ(CallSlot<int>(object, 7, "n"), 2);                          // GetInt(name)
  EXPECT_EQ(CallSlot<double>(CallSlot<IJson*>(object, 4, 1), 8), 2.5);  // GetDouble
  EXPECT_EQ(CallSlot<double>(object, 9, "n"), 2.5);                     // GetDouble(name)
  EXPECT_STREQ(CallSlot<const char*>(CallSlot<IJson*>(object, 4, 0), 10), "text");  // GetString
  EXPECT_STREQ(CallSlot<const char*>(object, 11, "s"), "text");                     // ... (name)
  EXPECT_STREQ(CallSlot<char*>(object, 2, 0),                                       // ToString
               R"({"s":"text","n":2.5,"a":[{"e":"v"}],"o":{"m":"v"}})");
  IJson::Delete(array);
}

// Making

TEST_F(JsonTest, ANewObjectAndANewArrayAreEmpty) {
  EXPECT_STREQ(NewObject()->ToString(0), "{}");
  EXPECT_STREQ(NewArray()->ToString(0), "[]");
  EXPECT_EQ(NewObject()->GetItemCount(), 0);
  EXPECT_EQ(NewArray()->GetItemCount(), 0);
}

TEST_F(JsonTest, EveryTypeButTheArrayMakesAnObjectKept) {
  EXPECT_STREQ(CJson(JSON_TYPE_ARRAY, 1).ToString(0), "[]");
  for (const int type : {0, 2, -1, INT_MAX, INT_MIN})
    EXPECT_STREQ(CJson(static_cast<JsonType>(type), 1).ToString(0), "{}") << type;
}

TEST_F(JsonTest, UnparsableTextMakesNothing) {
  const char* const texts[] = {"",    " ",      "{", "[1,2",  "{\"a\":}", "{a:1}",
                               "nul", "\"open", "]", "{1:2}", "[1 2]"};
  for (const char* const text : texts) {
    for (const int release : {0, 1})
      EXPECT_EQ(IJson::CreateObject(text, release), nullptr) << text;
  }
}

TEST_F(JsonTest, ANullTextMakesNothing) {
  EXPECT_EQ(IJson::CreateObject(nullptr, 1), nullptr);
}

TEST_F(JsonTest, AnArrayTextMakesAWrapperThatCountsItsElements) {
  EXPECT_EQ(Parsed("[1,\"two\",[3],{\"n\":4},null]")->GetItemCount(), 5);
  EXPECT_EQ(Parsed("[]")->GetItemCount(), 0);
}

TEST_F(JsonTest, ABareValueIsATreeToo) {
  EXPECT_EQ(Parsed("-12.75")->GetDouble(), -12.75);
  EXPECT_STREQ(Parsed("\"text\"")->GetString(), "text");
  EXPECT_EQ(Parsed("true")->GetInt(), 1);
}

TEST_F(JsonTest, WhatFollowsTheTreeIsIgnoredKept) {
  EXPECT_STREQ(Parsed(" {\"a\":1} trailing")->ToString(0), "{\"a\":1}");
}

TEST_F(JsonTest, TextNestedTooDeepMakesNothing) {
  const auto nested = [](size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_NE(Parsed(nested(1000).c_str()), nullptr);
  EXPECT_EQ(Parsed(nested(1001).c_str()), nullptr);
}

// Printing

TEST_F(JsonTest, PrintsIndentedOrWithoutWhiteSpace) {
  const JsonPtr json = Parsed("{ \"a\" : [ 1, 2 ], \"b\" : { } }");
  EXPECT_STREQ(json->ToString(0), "{\"a\":[1,2],\"b\":{}}");
  for (const int formatted : {1, -1, INT_MIN})
    EXPECT_STREQ(json->ToString(formatted), "{\n\t\"a\":\t[1, 2],\n\t\"b\":\t{\n\t}\n}");
}

TEST_F(JsonTest, EveryPrintedTextStandsInMemoryOfItsOwn) {
  const JsonPtr json = Parsed("{\"a\":1}");
  const int tree = LiveBlocks();
  const char* last = nullptr;
  for (int i = 0; i < 10; ++i) {
    const char* const text = json->ToString(0);
    EXPECT_NE(text, last);
    EXPECT_EQ(LiveBlocks(), tree + 1);
    last = text;
  }
}

TEST_F(JsonTest, APrintedTextStaysWhileTheTreeChanges) {
  const JsonPtr json = NewObject();
  const char* const text = json->ToString(0);
  json->AddNumber("a", 1);
  EXPECT_STREQ(text, "{}");
  EXPECT_STREQ(json->ToString(0), "{\"a\":1}");
}

TEST_F(JsonTest, AChildPrintsItsPartOfTheTree) {
  const JsonPtr json = Parsed("{\"a\":{\"b\":[1]}}");
  IJson* const child = json->GetItem("a");
  const char* const text = child->ToString(0);
  EXPECT_STREQ(json->ToString(0), "{\"a\":{\"b\":[1]}}");
  EXPECT_STREQ(text, "{\"b\":[1]}");
}

// Reading

TEST_F(JsonTest, CountsTheMembersOfAnObjectAndNothingElsewhere) {
  const JsonPtr json = Parsed("{\"a\":1,\"b\":{\"c\":2},\"d\":\"text\"}");
  EXPECT_EQ(json->GetItemCount(), 3);
  EXPECT_EQ(json->GetItem("b")->GetItemCount(), 1);
  EXPECT_EQ(json->GetItem("a")->GetItemCount(), 0);
  EXPECT_EQ(json->GetItem("d")->GetItemCount(), 0);
}

TEST_F(JsonTest, FindsChildrenByPosition) {
  const JsonPtr array = Parsed("[10,20,30]");
  EXPECT_EQ(array->GetItem(0)->GetInt(), 10);
  EXPECT_EQ(array->GetItem(2)->GetInt(), 30);
  const JsonPtr object = Parsed("{\"a\":1,\"b\":2}");
  EXPECT_EQ(object->GetItem(1)->GetInt(), 2);
}

TEST_F(JsonTest, APositionOutsideGivesNothing) {
  const JsonPtr array = Parsed("[10]");
  for (const int index : {-1, 1, INT_MAX, INT_MIN})
    EXPECT_EQ(array->GetItem(index), nullptr);
  EXPECT_EQ(array->GetItem(0)->GetItem(0), nullptr);
}

TEST_F(JsonTest, FindsMembersWhateverTheCaseOfTheirNamesKept) {
  const JsonPtr json = Parsed("{\"Name\":\"first\",\"NAME\":\"second\"}");
  EXPECT_STREQ(json->GetString("nAmE"), "first");
  EXPECT_STREQ(json->GetItem("NAME")->GetString(), "first");
}

TEST_F(JsonTest, AMissingMemberGivesNeutralValuesKept) {
  const JsonPtr json = Parsed("{\"a\":1}");
  for (const char* const name : {"b", "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(json->GetItem(name), nullptr);
    EXPECT_EQ(json->GetInt(name), 0);
    EXPECT_EQ(json->GetDouble(name), 0.0);
    EXPECT_STREQ(json->GetString(name), "");
  }
}

TEST_F(JsonTest, ElementsOfAnArrayHaveNoNames) {
  const JsonPtr json = Parsed("[1,{\"a\":2}]");
  EXPECT_EQ(json->GetItem("a"), nullptr);
  EXPECT_EQ(json->GetItem(""), nullptr);
  EXPECT_EQ(json->GetInt("a"), 0);
}

TEST_F(JsonTest, EveryCallForAChildMakesAWrapperKept) {
  const JsonPtr json = Parsed("{\"a\":1}");
  IJson* const first = json->GetItem("a");
  IJson* const second = json->GetItem("a");
  IJson* const third = json->GetItem(0);
  EXPECT_NE(first, second);
  EXPECT_NE(second, third);
  for (IJson* const child : {first, second, third})
    EXPECT_EQ(child->GetInt(), 1);
}

TEST_F(JsonTest, ChildrenOfChildrenEndWithTheirParents) {
  const JsonPtr json = Parsed("[[[[\"deep\"]]]]");
  IJson* child = json.get();
  for (int i = 0; i < 4; ++i)
    child = child->GetItem(0);
  EXPECT_STREQ(child->GetString(), "deep");
}

TEST_F(JsonTest, NumbersAreReadBothWays) {
  const JsonPtr json =
      Parsed("{\"a\":-7.9,\"b\":7.9,\"c\":1e300,\"d\":-1e300,\"e\":2147483648,\"f\":0.5e-3}");
  EXPECT_EQ(json->GetInt("a"), -7);
  EXPECT_EQ(json->GetInt("b"), 7);
  EXPECT_EQ(json->GetInt("c"), INT_MAX);
  EXPECT_EQ(json->GetInt("d"), INT_MIN);
  EXPECT_EQ(json->GetInt("e"), INT_MAX);
  EXPECT_EQ(json->GetDouble("a"), -7.9);
  EXPECT_EQ(json->GetDouble("e"), 2147483648.0);
  EXPECT_EQ(json->GetDouble("f"), 0.0005);
}

TEST_F(JsonTest, AMemberOfAnotherTypeYieldsWhatItsNodeHoldsKept) {
  const JsonPtr json =
      Parsed("{\"n\":5,\"s\":\"12\",\"t\":true,\"f\":false,\"z\":null,\"a\":[1],\"o\":{\"x\":1}}");
  EXPECT_EQ(json->GetInt("s"), 0);
  EXPECT_EQ(json->GetDouble("s"), 0.0);
  EXPECT_EQ(json->GetInt("t"), 1);
  for (const char* const name : {"n", "t", "f", "z", "a", "o"}) {
    EXPECT_EQ(json->GetString(name), nullptr) << name;
    EXPECT_EQ(json->GetItem(name)->GetString(), nullptr) << name;
  }
  for (const char* const name : {"f", "z", "a", "o"}) {
    EXPECT_EQ(json->GetInt(name), 0) << name;
    EXPECT_EQ(json->GetDouble(name), 0.0) << name;
  }
  EXPECT_EQ(json->GetString(), nullptr);
  EXPECT_EQ(json->GetInt(), 0);
}

TEST_F(JsonTest, GettersByNameMakeNoWrapper) {
  CJson json(cJSON_Parse("{\"n\":5,\"s\":\"text\"}"), 1);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(json.GetInt("n"), 5);
    EXPECT_EQ(json.GetDouble("n"), 5.0);
    EXPECT_STREQ(json.GetString("s"), "text");
  }
  EXPECT_EQ(FieldAt<void*>(json, 32), nullptr);
}

// Changing

TEST_F(JsonTest, AddsMembersInTheirOrder) {
  const JsonPtr json = NewObject();
  json->AddString("s", "a \"quoted\" \\ text\n");
  json->AddNumber("n", -0.5);
  json->AddNumber("big", 1e21);
  json->AddString("", "no name");
  EXPECT_STREQ(json->ToString(0),
               R"({"s":"a \"quoted\" \\ text\n","n":-0.5,"big":1e+21,"":"no name"})");
}

TEST_F(JsonTest, CopiesTheTextsThatItIsGiven) {
  const JsonPtr json = NewObject();
  char name[] = "name";
  char value[] = "value";
  json->AddString(name, value);
  std::memset(name, 'x', sizeof(name) - 1);
  std::memset(value, 'x', sizeof(value) - 1);
  EXPECT_STREQ(json->ToString(0), R"({"name":"value"})");
}

TEST_F(JsonTest, ASecondMemberOfTheSameNameStandsBehindTheFirstKept) {
  const JsonPtr json = NewObject();
  json->AddNumber("a", 1);
  json->AddNumber("a", 2);
  EXPECT_EQ(json->GetInt("a"), 1);
  EXPECT_STREQ(json->ToString(0), R"({"a":1,"a":2})");
}

TEST_F(JsonTest, NullNamesAndTextsAddNothing) {
  const JsonPtr json = NewObject();
  json->AddString(nullptr, "v");
  json->AddString("n", nullptr);
  json->AddString(nullptr, nullptr);
  json->AddNumber(nullptr, 1);
  EXPECT_STREQ(json->ToString(0), "{}");
}

TEST_F(JsonTest, WhatIsNoNumberIsPrintedAsNull) {
  const JsonPtr json = NewObject();
  json->AddNumber("i", std::numeric_limits<double>::infinity());
  json->AddNumber("n", std::nan(""));
  EXPECT_STREQ(json->ToString(0), R"({"i":null,"n":null})");
  EXPECT_TRUE(std::isinf(json->GetDouble("i")));
}

TEST_F(JsonTest, AttachesTreesAndDeletesTheirWrappers) {
  const JsonPtr json = NewObject();
  IJson* const list = IJson::CreateArray(0);
  for (const char* const text : {"1", "\"two\"", "{\"three\":3}"})
    list->AddItem(IJson::CreateObject(text, 0), 1);
  json->AddItem("list", list, 1);
  EXPECT_STREQ(json->ToString(0), R"({"list":[1,"two",{"three":3}]})");
}

TEST_F(JsonTest, AWrapperThatIsKeptRefersToTheNodeInItsNewPlace) {
  const JsonPtr json = NewObject();
  const JsonPtr item = NewObject(0);
  json->AddItem("item", item.get(), 0);
  item->AddNumber("later", 1);
  EXPECT_STREQ(json->ToString(0), R"({"item":{"later":1}})");
}

TEST_F(JsonTest, AWrapperThatIsKeptMayOutliveTheTree) {
  const JsonPtr item = NewObject(0);
  JsonPtr json = NewArray();
  json->AddItem(item.get(), 0);
  json.reset();
}

TEST_F(JsonTest, ANullItemAddsNothing) {
  const JsonPtr json = NewObject();
  json->AddItem(nullptr, 1);
  json->AddItem("a", nullptr, 1);
  EXPECT_STREQ(json->ToString(0), "{}");
}

TEST_F(JsonTest, AnEmptyItemAddsNothingAndIsDeletedOnDemand) {
  const JsonPtr json = NewArray();
  CJson kept(nullptr, 1);
  json->AddItem(&kept, 0);
  json->AddItem(new CJson(nullptr, 1), 1);
  json->AddItem("a", new CJson(nullptr, 0), 1);
  EXPECT_STREQ(json->ToString(0), "[]");
}

TEST_F(JsonTest, AnItemWithoutANameIsFreedWithItsWrapper) {
  const JsonPtr json = NewObject();
  const JsonPtr kept = NewArray(0);
  json->AddItem(nullptr, kept.get(), 0);
  json->AddItem(nullptr, IJson::CreateObject("{\"a\":[1]}", 0), 1);
  EXPECT_STREQ(json->ToString(0), "{}");
  EXPECT_STREQ(kept->ToString(0), "[]");
}

// Ownership

TEST_F(JsonTest, OnlyANonzeroReleaseFreesTheTreeKept) {
  for (const int release : {1, -1, INT_MIN})
    IJson::Delete(IJson::CreateObject("{\"a\":[1,2]}", release));
  EXPECT_EQ(LiveBlocks(), 0);

  CJson kept(cJSON_Parse("{\"a\":[1,2]}"), 0);
  cJSON* const tree = kept.GetJsonNode();
  const int blocks = LiveBlocks();
  JsonPtr(new CJson(tree, 0)).reset();
  EXPECT_EQ(LiveBlocks(), blocks);
  EXPECT_EQ(kept.GetItem("a")->GetItemCount(), 2);
  cJSON_Delete(tree);
}

TEST_F(JsonTest, ATreeThatFreesItselfIsTheParentsOnceAttached) {
  const JsonPtr json = NewArray();
  json->AddItem(IJson::CreateObject("{\"a\":1}", 1), 1);
  const JsonPtr kept = Parsed("[2]", 1);
  json->AddItem(kept.get(), 0);
  EXPECT_STREQ(json->ToString(0), R"([{"a":1},[2]])");
}

TEST_F(JsonTest, ANodeIsAttachedOnlyOnce) {
  const JsonPtr json = NewArray();
  const JsonPtr other = NewObject();
  const JsonPtr item = Parsed("{\"a\":1}", 0);
  json->AddItem(item.get(), 0);
  json->AddItem(item.get(), 0);
  other->AddItem("again", item.get(), 0);
  other->AddItem("child", json->GetItem(0), 0);
  EXPECT_STREQ(json->ToString(0), R"([{"a":1}])");
  EXPECT_STREQ(other->ToString(0), "{}");
}

TEST_F(JsonTest, ATreeIsNeverAttachedToAPartOfItself) {
  const JsonPtr json = Parsed("{\"a\":[{\"b\":[]}]}");
  json->AddItem("self", json.get(), 0);
  json->AddItem(json.get(), 0);
  IJson* const inner = json->GetItem("a")->GetItem(0)->GetItem("b");
  inner->AddItem(json.get(), 0);
  json->GetItem("a")->AddItem(json.get(), 0);
  EXPECT_STREQ(json->ToString(0), R"({"a":[{"b":[]}]})");
  inner->AddItem(IJson::CreateObject(0), 1);
  EXPECT_STREQ(json->ToString(0), R"({"a":[{"b":[{}]}]})");
}

TEST_F(JsonTest, IgnoresTheDeletionOfNull) {
  IJson::Delete(nullptr);
}

// Wrappers of given nodes

TEST_F(JsonTest, AnEmptyWrapperAnswersNeutrallyAndTakesNothing) {
  CJson json(nullptr, 1);
  EXPECT_TRUE(json.IsNull());
  EXPECT_EQ(json.GetJsonNode(), nullptr);
  EXPECT_EQ(json.ToString(0), nullptr);
  EXPECT_EQ(json.ToString(1), nullptr);
  EXPECT_EQ(json.GetItemCount(), 0);
  EXPECT_EQ(json.GetItem(0), nullptr);
  EXPECT_EQ(json.GetItem("a"), nullptr);
  EXPECT_EQ(json.GetInt(), 0);
  EXPECT_EQ(json.GetInt("a"), 0);
  EXPECT_EQ(json.GetDouble(), 0.0);
  EXPECT_EQ(json.GetDouble("a"), 0.0);
  EXPECT_STREQ(json.GetString(), "");
  EXPECT_STREQ(json.GetString("a"), "");
  json.AddString("a", "b");
  json.AddNumber("a", 1);
  const JsonPtr item = NewObject();
  json.AddItem(item.get(), 1);
  json.AddItem("a", item.get(), 1);
  EXPECT_STREQ(item->ToString(0), "{}");
  EXPECT_TRUE(json.IsNull());
}

TEST_F(JsonTest, ANodeCanBeExchanged) {
  CJson json(JSON_TYPE_ARRAY, 1);
  cJSON* const array = json.GetJsonNode();
  EXPECT_FALSE(json.IsNull());
  json.SetJsonNode(cJSON_CreateNumber(4));
  EXPECT_EQ(json.GetInt(), 4);
  EXPECT_TRUE(cJSON_IsArray(array));
  cJSON_Delete(array);
}

TEST_F(JsonTest, AWrapperThatLosesItsNodeLosesItsTextWithTheNextToString) {
  CJson json(JSON_TYPE_ARRAY, 1);
  cJSON* const array = json.GetJsonNode();
  EXPECT_STREQ(json.ToString(0), "[]");
  json.SetJsonNode(nullptr);
  EXPECT_EQ(json.ToString(0), nullptr);
  cJSON_Delete(array);
  EXPECT_EQ(LiveBlocks(), 0);
}

TEST_F(JsonTest, TreesOfSeveralThreadsDoNotMeet) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) {
        const JsonPtr json = Parsed("{\"list\":[]}");
        json->AddNumber("n", t);
        json->GetItem("list")->AddItem(IJson::CreateObject("[1]", 0), 1);
        EXPECT_EQ(json->ToString(0), R"({"list":[[1]],"n":)" + std::to_string(t) + "}");
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace
}  // namespace Tarn::Generic
