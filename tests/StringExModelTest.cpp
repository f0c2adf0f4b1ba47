// Random sequences of operations, compared step by step with a plain model of the class.
#include <Tarn/Generic/StringEx.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Tarn::Generic::CStringEx;

constexpr size_t kMaxInline = 62;

// The same rules with the storages as separate strings, and one step of work per replaced or split
// part.
class Model {
 public:
  [[nodiscard]] const std::string& Text() const { return onHeap_ ? heap_ : inline_; }
  [[nodiscard]] bool OnHeap() const { return onHeap_; }

  void Assign(const std::string& s) {
    onHeap_ = s.size() > kMaxInline;
    (onHeap_ ? heap_ : inline_) = s;
  }
  void Append(const std::string& s) {
    if (Text().size() + s.size() > kMaxInline) {
      heap_ = Text() + s;
      onHeap_ = true;
      return;
    }
    const std::string joined = inline_ + s;
    onHeap_ = joined.size() > kMaxInline;
    (onHeap_ ? heap_ : inline_) = joined;
  }
  void Empty() { Assign(""); }
  // A change in place, which never moves the text.
  void Set(const std::string& s) { (onHeap_ ? heap_ : inline_) = s; }

  int Replace(const std::string& oldText, const std::string& newText) {
    if (oldText == newText) return 0;
    int count = 0;
    size_t at = Text().find(oldText);
    for (; at != std::string::npos; at = Text().find(oldText, at + newText.size())) {
      Assign(Text().substr(0, at) + newText + Text().substr(at + oldText.size()));
      ++count;
    }
    return count;
  }
  [[nodiscard]] std::vector<std::string> Split(const std::string& delimiter) const {
    std::vector<std::string> fields;
    std::string rest = Text();
    if (rest.empty()) return fields;
    for (size_t at = rest.find(delimiter); at != std::string::npos; at = rest.find(delimiter)) {
      fields.push_back(rest.substr(0, at));
      rest = rest.substr(at + delimiter.size());
    }
    fields.push_back(rest);
    return fields;
  }
  void TrimEnd(char c) {
    std::string text = Text();
    text.erase(text.find_last_not_of(c) + 1);
    Set(text);
  }
  void TrimStart(char c) {
    std::string text = Text();
    text.erase(0, std::min(text.find_first_not_of(c), text.size()));
    Set(text);
  }

 private:
  bool onHeap_ = false;
  std::string inline_;
  std::string heap_;
};

class Pair {
 public:
  explicit Pair(unsigned seed) : random_(seed) {}

  void Step() {
    const char c = "abc"[Below(3)];
    switch (Below(11)) {
      case 0:
        return Assign(Foreign(140));
      case 1:
        return Append(Foreign(90));
      case 2:
        real_ = real_.c_str() + Own();
        return model_.Assign(model_.Text().substr(own_));
      case 3:
        real_ += real_.c_str() + Own();
        model_.Append(model_.Text().substr(own_));
        return KeepShort();
      case 4:
        real_.TrimEnd(c);
        return model_.TrimEnd(c);
      case 5:
        real_.TrimStart(c);
        return model_.TrimStart(c);
      case 6:
        return Shorten();
      case 7:
      case 8:
        return Replace(Foreign(3, 1), Foreign(5));
      case 9:
        real_ += c;
        return model_.Append(std::string(1, c));
      default:
        return Format(Foreign(100));
    }
  }

  void Check() {
    ASSERT_EQ(std::string(real_.c_str()), model_.Text());
    const auto at =
        reinterpret_cast<uintptr_t>(real_.c_str()) - reinterpret_cast<uintptr_t>(&real_);
    ASSERT_EQ(at >= sizeof(real_), model_.OnHeap());
    const std::string delimiter = Foreign(3, 1);
    const std::vector<CStringEx> fields = real_.Split(delimiter.c_str());
    ASSERT_EQ(std::vector<std::string>(fields.begin(), fields.end()), model_.Split(delimiter));
  }

 private:
  size_t Below(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random_); }
  std::string Foreign(size_t most, size_t least = 0) {
    std::string text(least + Below(most - least + 1), 'a');
    for (char& c : text)
      c = "aaaabc"[Below(6)];
    return text;
  }
  size_t Own() { return own_ = Below(model_.Text().size() + 1); }

  void Assign(const std::string& s) {
    real_ = s.c_str();
    model_.Assign(s);
  }
  void Append(const std::string& s) {
    real_ += s.c_str();
    model_.Append(s);
    KeepShort();
  }
  void KeepShort() {
    if (model_.Text().size() > 400) Assign("");
  }
  void Shorten() {
    if (model_.Text().empty()) return;
    const size_t at = Below(model_.Text().size());
    real_.SetAt(static_cast<int>(at), '\0');
    model_.Set(model_.Text().substr(0, at));
  }
  void Replace(const std::string& oldText, const std::string& newText) {
    ASSERT_EQ(real_.Replace(oldText.c_str(), newText.c_str()), model_.Replace(oldText, newText));
    KeepShort();
  }
  void Format(const std::string& s) {
    if (Below(2) == 0) {
      real_.Format("%s%d", s.c_str(), 7);
      return model_.Assign(s + "7");
    }
    real_.AppendFormat("%s%d", s.c_str(), 7);
    model_.Append(s + "7");
    KeepShort();
  }

  std::mt19937 random_;
  CStringEx real_;
  Model model_;
  size_t own_ = 0;
};

TEST(StringExModel, AgreesWithThePlainRulesInAnyOrderOfOperations) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    Pair pair(seed);
    for (int step = 0; step < 400; ++step) {
      pair.Step();
      pair.Check();
      if (testing::Test::HasFatalFailure()) FAIL() << "seed " << seed << " step " << step;
    }
  }
}

TEST(StringExModel, SplitsAndReplacesALongTextInOnePass) {
  std::string text;
  for (int i = 0; i < 200000; ++i)
    text += "f" + std::to_string(i) + ",";
  CStringEx s(text.c_str());
  EXPECT_EQ(s.Split(",").size(), 200001U);  // minutes, if every part cost a copy of the rest
  EXPECT_EQ(s.Replace(",", "::"), 200000);
  EXPECT_EQ(s.GetLength(), static_cast<int>(text.size()) + 200000);
}

}  // namespace
