// The text of INI files: lines, lookup, lists, and the rewrite after a change. The syntax is told
// in Profile.h.
#ifndef TARN_UTILITY_CORE_INITEXT_H
#define TARN_UTILITY_CORE_INITEXT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Tarn::Core {

/// White space as in the "C" locale, whatever locale the host has set.
bool IsIniSpace(char c);
std::string_view TrimIniStart(std::string_view text);
std::string_view TrimIniEnd(std::string_view text);

/// Takes one enclosing pair of ' or " off; false when there is none.
bool StripIniQuotes(std::string_view& text);

/// The name of a section header; false when the (trimmed) line is none.
bool ParseIniHeader(std::string_view line, std::string_view& name);

/// Walks over the lines of a text: pieces of at most 254 characters, newline included, each cut at
/// its first NUL and trimmed.
class IniLines {
 public:
  explicit IniLines(std::string_view text);
  /// The next line; false at the end.
  bool Next(std::string_view& line);
  /// The line's bytes as they stand in the text, newline included.
  [[nodiscard]] std::string_view Raw() const { return raw_; }

 private:
  void FindNewlines();

  const char* at_;
  const char* end_;
  // Newlines are looked for a block at a time; the bits are those of the last block not passed yet.
  const char* scanned_;
  const char* block_ = nullptr;
  uint64_t newlines_ = 0;
  std::string_view raw_;
  bool mayHoldNul_;
};

/// The value of the first entry `key` in the first section `section`, trimmed and without quotes;
/// none when there is no such entry. The result points into `text`.
std::optional<std::string_view> FindIniValue(std::string_view text, std::string_view section,
                                             std::string_view key);

/// What a list of names left in the caller's buffer.
struct IniList {
  bool found = false;  ///< the section exists; always true for the list of sections
  size_t length = 0;   ///< characters without the last NUL
};

/// Lists NUL-ended names in `buffer`, which holds `size` bytes (at least 1): the keys of a section,
/// or the sections. A list that does not fit is cut as told in Profile.h.
IniList ListIniKeys(std::string_view text, std::string_view section, char* buffer, size_t size);
IniList ListIniSections(std::string_view text, char* buffer, size_t size);

/// One change of a file; a null key deletes the section, a null value the entry.
struct IniChange {
  const char* section;
  const char* key;
  const char* value;
};

/// Appends the changed text to `out`. @return whether something was set, replaced or deleted
/// @throw std::bad_alloc
bool RewriteIni(std::string_view text, const IniChange& change, std::string& out);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_INITEXT_H
