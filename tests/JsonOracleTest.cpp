// The JSON wrapper against another implementation: Python's.
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tests/JsonFixture.h"
#include "tests/support/Oracle.h"

namespace Tarn::Generic {
namespace {

using namespace tarn_test;

// Both sides describe a tree as lines: each node as its kind and content, and its children after
// it.
const char* const kListing = R"(
import json, random, struct
def integer(v):
    return int(max(-2147483648, min(2147483647, v)))
def show(v):
    if isinstance(v, dict):
        print('object', len(v))
        for name, child in v.items():
            print('member', name.encode().hex())
            show(child)
    elif isinstance(v, list):
        print('array', len(v))
        for child in v:
            show(child)
    elif isinstance(v, str):
        print('string', v.encode().hex())
    elif v is None or isinstance(v, bool):
        print('literal', int(v is True))
    else:
        print('number', struct.pack('>d', float(v)).hex(), integer(v))
)";

std::vector<std::string> Listing(const char* script, const std::string& data) {
  std::string whole = kListing;
  whole += script;
  return PythonLines(whole, data);
}

std::string HexText(const std::string& text) {
  return Hex(Bytes(text), text.size());
}

std::string HexNumber(double value) {
  uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof(bits));
  char text[17];
  std::snprintf(text, sizeof(text), "%016lx", bits);
  return text;
}

std::string FromHex(const std::string& digits) {
  std::string text;
  for (size_t i = 0; i + 1 < digits.size(); i += 2)
    text += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return text;
}

// Reads the listing of one tree and compares it with a wrapper.
class Follower {
 public:
  explicit Follower(std::vector<std::string> lines) : lines_(std::move(lines)) {}

  [[nodiscard]] bool AtEnd() const { return at_ == lines_.size(); }

  std::string Next(const std::string& kind) {
    const std::string line = AtEnd() ? "" : lines_[at_++];
    EXPECT_EQ(line.substr(0, kind.size() + 1), kind + " ");
    return line.size() > kind.size() ? line.substr(kind.size() + 1) : "";
  }

  void Compare(IJson* json) {
    ASSERT_NE(json, nullptr);
    ASSERT_FALSE(AtEnd());
    const std::string kind = lines_[at_].substr(0, lines_[at_].find(' '));
    const std::string content = Next(kind);
    if (kind == "object" || kind == "array") return CompareChildren(json, kind, content);
    EXPECT_EQ(json->GetItemCount(), 0);
    if (kind == "string") {
      EXPECT_STREQ(json->GetString(), FromHex(content).c_str());
      return;
    }
    EXPECT_EQ(json->GetString(), nullptr);
    if (kind == "number") {
      EXPECT_EQ(HexNumber(json->GetDouble()) + " " + std::to_string(json->GetInt()), content);
    } else {
      EXPECT_EQ(std::to_string(json->GetInt()), content);
    }
  }

 private:
  void CompareChildren(IJson* json, const std::string& kind, const std::string& count) {
    ASSERT_EQ(std::to_string(json->GetItemCount()), count);
    for (int i = 0; i < json->GetItemCount(); ++i) {
      if (kind == "array") {
        Compare(json->GetItem(i));
        continue;
      }
      const std::string name = FromHex(Next("member"));
      IJson* const member = json->GetItem(name.c_str());
      Compare(member);
      ASSERT_NE(member, nullptr);
      EXPECT_STREQ(json->GetItem(i)->ToString(0), member->ToString(0));
      EXPECT_EQ(json->GetInt(name.c_str()), member->GetInt());
      EXPECT_EQ(json->GetDouble(name.c_str()), member->GetDouble());
      EXPECT_EQ(json->GetString(name.c_str()), member->GetString());
    }
  }

  std::vector<std::string> lines_;
  size_t at_ = 0;
};

const char* const kRandomTrees = R"(
r = random.Random(11)
letters = 'ab"\\/\b\f\n\r\t\x01\x1f\x7f \u00e9\u4e2d\u20ac\U0001f600'
def text():
    return ''.join(r.choice(letters) for _ in range(r.randrange(12)))
def number():
    return r.choice([r.randrange(-10**6, 10**6), r.uniform(-1, 1), 10.0 ** r.randrange(-300, 300),
                     2147483647, 2147483648, -2147483649, 0, -0.0, r.getrandbits(80)])
def tree(depth):
    kind = r.randrange(7 if depth else 4)
    if kind < 4:
        return [text, number, lambda: None, lambda: r.random() < 0.5][kind]()
    if kind == 4:
        return [tree(depth - 1) for _ in range(r.randrange(6))]
    return {str(i) + text(): tree(depth - 1) for i in range(r.randrange(6))}
for i in range(60):
    v = tree(6)
    layout = r.choice([{}, {'indent': 2}, {'indent': '\t'}, {'separators': (',', ':')}])
    print('text', json.dumps(v, ensure_ascii=i % 2 == 0, **layout).encode().hex())
    show(v)
)";

TEST_F(JsonTest, ReadsWhatPythonWrites) {
  Follower python(Listing(kRandomTrees, ""));
  int trees = 0;
  for (; !python.AtEnd() && !HasFailure(); ++trees) {
    const std::string text = FromHex(python.Next("text"));
    python.Compare(Parsed(text.c_str()).get());
  }
  EXPECT_EQ(trees, 60);
}

// Builds random trees and writes down what it has built.
class Builder {
 public:
  explicit Builder(unsigned seed) : random_(seed) {}

  IJson* Object(int depth) {
    IJson* const object = IJson::CreateObject(0);
    const int count = Below(6);
    lines.push_back("object " + std::to_string(count));
    for (int i = 0; i < count; ++i)
      AddMember(object, std::to_string(i) + Text(), depth);
    return object;
  }

  std::vector<std::string> lines;

 private:
  int Below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

  std::string Text() {
    static const char* const kParts[] = {
        "a",        "\"",           "\\", "/",    "\n",
        "\x01",     "\x7f",         " ",  "\x1f", "\t",
        "\xC3\xA9", "\xE4\xB8\xAD", "\b", "\r",   "\xF0\x9F\x98\x80"};
    std::string text;
    for (int i = Below(10); i > 0; --i)
      text += kParts[Below(15)];
    return text;
  }

  void AddMember(IJson* object, const std::string& name, int depth) {
    lines.push_back("member " + HexText(name));
    const int kind = Below(depth > 0 ? 4 : 2);
    if (kind == 0) {
      const std::string text = Text();
      object->AddString(name.c_str(), text.c_str());
      lines.push_back("string " + HexText(text));
    } else if (kind == 1) {
      const double number = (Below(2000001) - 1000000) / 8.0;
      object->AddNumber(name.c_str(), number);
      lines.push_back("number " + HexNumber(number) + " " +
                      std::to_string(static_cast<int>(number)));
    } else {
      object->AddItem(name.c_str(), kind == 2 ? Array(depth - 1) : Object(depth - 1), 1);
    }
  }

  IJson* Array(int depth) {
    IJson* const array = IJson::CreateArray(0);
    const int count = Below(6);
    lines.push_back("array " + std::to_string(count));
    for (int i = 0; i < count; ++i)
      array->AddItem(depth > 0 && Below(2) == 0 ? Array(depth - 1) : Object(depth - 1), 1);
    return array;
  }

  std::mt19937 random_;
};

TEST_F(JsonTest, PythonReadsWhatItPrints) {
  Builder builder(5);
  const JsonPtr all = NewArray();
  for (int i = 0; i < 30; ++i)
    all->AddItem(builder.Object(3), 1);
  std::vector<std::string> expected = {"array 30"};
  expected.insert(expected.end(), builder.lines.begin(), builder.lines.end());
  ASSERT_GT(expected.size(), 500U);
  for (const int formatted : {0, 1}) {
    const char* const show = "show(json.loads(d.decode(), parse_int=float))\n";
    EXPECT_EQ(Listing(show, all->ToString(formatted)), expected);
  }
}

}  // namespace
}  // namespace Tarn::Generic
