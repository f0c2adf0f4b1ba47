// INI texts against the plain model. The input's first three lines are section, key and value ("~"
// for none), the rest is the text.
#include "fuzz/FuzzInput.h"
#include "tests/support/IniReference.h"
#include "utility/core/IniText.h"

namespace Core = Tarn::Core;
namespace reference = tarn_test::ini_reference;
using tarn_fuzz::ExactBlock;
using tarn_fuzz::FuzzInput;

namespace {

void CheckValue(const ExactBlock& block, const std::string& text, const std::string& section,
                const std::string& key) {
  const auto value = Core::FindIniValue(block.View(), section, key);
  const auto expected = reference::Value(text, section.c_str(), key.c_str());
  FUZZ_CHECK(value.has_value() == expected.has_value());
  FUZZ_CHECK(!value || *value == *expected);
}

void CheckLists(const ExactBlock& block, const std::string& text, const std::string& section,
                size_t size) {
  ExactBlock keys(size);
  ExactBlock expectedKeys(size);
  const Core::IniList keyList = Core::ListIniKeys(block.View(), section, keys.Data(), size);
  const auto expected = reference::Names(text, section.c_str(), expectedKeys.Data(), size);
  FUZZ_CHECK(keyList.found == expected.found && keyList.length == expected.length);
  FUZZ_CHECK(keys.View() == expectedKeys.View());

  ExactBlock sections(size);
  ExactBlock expectedSections(size);
  const Core::IniList sectionList = Core::ListIniSections(block.View(), sections.Data(), size);
  const auto expectedList = reference::Names(text, nullptr, expectedSections.Data(), size);
  FUZZ_CHECK(sectionList.found && sectionList.length == expectedList.length);
  FUZZ_CHECK(sections.View() == expectedSections.View());
}

void CheckRewrite(const ExactBlock& block, const std::string& text, const Core::IniChange& change) {
  std::string changed;
  std::string expected;
  const bool result = Core::RewriteIni(block.View(), change, changed);
  FUZZ_CHECK(result ==
             (reference::Rewrite(text, change.section, change.key, change.value, expected) == 1));
  FUZZ_CHECK(changed == expected);
}

// As C texts, since that is how the names come in.
std::string CText(const std::string& line) {
  return line.c_str();
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  const std::string section = CText(input.TakeLine());
  const std::string key = CText(input.TakeLine());
  const std::string value = CText(input.TakeLine());
  const std::string text(input.Rest());
  const ExactBlock block(text);

  CheckValue(block, text, section, key);
  for (size_t room = 2; room < 24; ++room)
    CheckLists(block, text, section, room);
  CheckLists(block, text, section, 2 * text.size() + 300);
  CheckRewrite(block, text,
               {section.c_str(), key == "~" ? nullptr : key.c_str(),
                value == "~" || key == "~" ? nullptr : value.c_str()});
  return 0;
}
