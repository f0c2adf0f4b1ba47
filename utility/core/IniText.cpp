// INI text: one pass over the lines, no allocation but the rewritten text.
#include "utility/core/IniText.h"

#include <emmintrin.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Tarn::Core {

namespace {

// A line that is longer is handled as several lines.
constexpr size_t kPieceLength = 254;

constexpr char FoldCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

// Compares as strcasecmp does in the "C" locale.
bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return x == y || FoldCase(x) == FoldCase(y);
         });
}

constexpr size_t kBlock = 64;

// One bit for every newline among up to 64 characters.
uint64_t NewlinesIn(const char* text, size_t length) {
  uint64_t found = 0;
  if (length < kBlock) {
    for (size_t i = 0; i < length; ++i)
      found |= uint64_t{text[i] == '\n'} << i;
    return found;
  }
  const __m128i newline = _mm_set1_epi8('\n');
  for (size_t at = 0; at < kBlock; at += sizeof(newline)) {
    const __m128i part = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + at));
    const int hits = _mm_movemask_epi8(_mm_cmpeq_epi8(part, newline));
    found |= static_cast<uint64_t>(static_cast<uint32_t>(hits)) << at;
  }
  return found;
}

bool IsComment(std::string_view line) {
  return !line.empty() && line.front() == ';';
}

// The part of a line before its first "=", or all of it.
std::string_view KeyOf(std::string_view line) {
  return TrimIniEnd(line.substr(0, line.find('=')));
}

std::string_view ValueAfter(std::string_view line, size_t equals) {
  std::string_view value = TrimIniStart(line.substr(equals + 1));
  StripIniQuotes(value);
  return value;
}

// Compares the keys of a section's lines with the one that is looked for.
class KeyMatcher {
 public:
  explicit KeyMatcher(std::string_view key) : key_(key) {}

  bool Matches(std::string_view line) {
    if (line.empty()) {
      // Kept: an empty line has the key of the line before it. That one did not match, so only an
      // empty name at the top of the section is ever found here, as callers may have seen it.
      return key_.empty() && !keySeen_;
    }
    keySeen_ = true;
    return MayMatch(line) && SameName(KeyOf(line), key_);
  }

 private:
  // Most lines differ in length or last character, which spares the search for their "=".
  [[nodiscard]] bool MayMatch(std::string_view line) const {
    return key_.empty() ||
           (line.size() >= key_.size() && FoldCase(line[key_.size() - 1]) == FoldCase(key_.back()));
  }

  std::string_view key_;
  bool keySeen_ = false;
};

// Moves to the first line of a section; false when it does not exist.
bool EnterSection(IniLines& lines, std::string_view section) {
  std::string_view line;
  std::string_view name;
  while (lines.Next(line)) {
    if (ParseIniHeader(line, name) && SameName(name, section)) return true;
  }
  return false;
}

// Writes a list of names into a buffer of at least one byte.
class NameList {
 public:
  NameList(char* buffer, size_t size) : buffer_(buffer), size_(size) {}

  /// False when the list is full, and the name was cut.
  bool Add(std::string_view name) {
    if (size_ < 2) return false;  // no room but for the last NUL
    // `count_` never exceeds size_ - 2, so nothing here wraps.
    const bool fits = name.size() < size_ - 2 - count_;
    if (!fits) name = name.substr(0, size_ - 2 - count_);
    std::copy(name.begin(), name.end(), buffer_ + count_);
    end_ = count_ + name.size();
    buffer_[end_] = '\0';
    count_ = end_ + 1;
    if (fits) end_ = count_;
    return fits;
  }

  /// Ends the list. @return its length without the last NUL
  size_t Finish() {
    // Kept: behind a cut name this is the name's own NUL, and the buffer's last byte stays as it
    // was. Callers that want two NULs clear the buffer first.
    buffer_[end_] = '\0';
    return count_ == 0 ? 0 : count_ - 1;
  }

 private:
  char* buffer_;
  size_t size_;
  size_t count_ = 0;
  size_t end_ = 0;  // where the NUL that ends the list belongs
};

// The rewritten text. Lines that stand in the old text as they are to be written are copied in
// runs.
class Rewriter {
 public:
  Rewriter(const IniChange& change, std::string& out)
      : change_(change), matcher_(change.key == nullptr ? "" : change.key), out_(out) {}

  void Take(std::string_view line, std::string_view raw) {
    if (done_ || IsComment(line)) {
      Keep(line, raw);
    } else if (entered_) {
      TakeInside(line, raw);
    } else {
      TakeOutside(line, raw);
    }
  }

  bool Finish() {
    Flush();
    if (change_.key != nullptr) {
      // Kept: also when a value is deleted, which leaves an empty section. Hosts make sections so.
      if (!entered_) out_.append("[").append(change_.section).append("]\n");
      if (!done_ && change_.value != nullptr) WriteEntry();
    }
    return result_;
  }

 private:
  void TakeOutside(std::string_view line, std::string_view raw) {
    if (line.empty() || line.front() != '[') return Keep(line, raw);
    std::string_view name;
    // Kept: a broken header before the section is dropped. Files have always been tidied so.
    if (!ParseIniHeader(line, name)) return;
    entered_ = SameName(name, change_.section);
    if (!entered_ || change_.key != nullptr) Keep(line, raw);
  }

  void TakeInside(std::string_view line, std::string_view raw) {
    std::string_view name;
    if (ParseIniHeader(line, name)) {
      if (change_.key != nullptr && change_.value != nullptr) WriteEntry();
      // Kept: the next header counts as success even when there was no entry to delete, and the end
      // of the file does not even when the section was deleted. Hosts test the results they know.
      done_ = result_ = true;
      Keep(line, raw);
    } else if (change_.key != nullptr) {
      if (!matcher_.Matches(line)) return Keep(line, raw);
      done_ = result_ = true;
      if (change_.value != nullptr) WriteEntry();
    }
  }

  void WriteEntry() {
    Flush();
    out_.append(change_.key).append("=").append(change_.value).append("\n");
    done_ = result_ = true;
  }

  void Keep(std::string_view line, std::string_view raw) {
    const bool asItStands = raw.size() == line.size() + 1 && raw.back() == '\n';
    if (!asItStands) {
      Flush();
      out_.append(line).append("\n");
    } else if (run_.data() + run_.size() == raw.data()) {
      run_ = {run_.data(), run_.size() + raw.size()};
    } else {
      Flush();
      run_ = raw;
    }
  }

  void Flush() {
    out_.append(run_);
    run_ = {};
  }

  const IniChange& change_;
  KeyMatcher matcher_;
  std::string& out_;
  std::string_view run_;  // of the old text, not written yet
  bool entered_ = false;  // the section's header has been met
  bool done_ = false;     // the change is made: the rest is copied
  bool result_ = false;
};

}  // namespace

bool IsIniSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view TrimIniStart(std::string_view text) {
  while (!text.empty() && IsIniSpace(text.front()))
    text.remove_prefix(1);
  return text;
}

std::string_view TrimIniEnd(std::string_view text) {
  while (!text.empty() && IsIniSpace(text.back()))
    text.remove_suffix(1);
  return text;
}

bool StripIniQuotes(std::string_view& text) {
  if (text.size() < 2 || text.front() != text.back()) return false;
  if (text.front() != '\'' && text.front() != '"') return false;
  text = text.substr(1, text.size() - 2);
  return true;
}

bool ParseIniHeader(std::string_view line, std::string_view& name) {
  if (line.size() < 2 || line.front() != '[' || line.back() != ']') return false;
  name = line.substr(1, line.size() - 2);
  return true;
}

IniLines::IniLines(std::string_view text)
    : at_(text.data()),
      end_(text.data() + text.size()),
      scanned_(at_),
      mayHoldNul_(text.find('\0') != std::string_view::npos) {}

void IniLines::FindNewlines() {
  while (newlines_ == 0 && scanned_ != end_) {
    block_ = scanned_;
    scanned_ += std::min(kBlock, static_cast<size_t>(end_ - scanned_));
    newlines_ = NewlinesIn(block_, static_cast<size_t>(scanned_ - block_));
  }
}

bool IniLines::Next(std::string_view& line) {
  if (at_ == end_) return false;
  if (newlines_ == 0) FindNewlines();
  const char* end = newlines_ == 0 ? end_ : block_ + std::countr_zero(newlines_) + 1;
  size_t length = static_cast<size_t>(end - at_);
  if (length > kPieceLength) {
    length = kPieceLength;  // the newline is for a later piece
  } else {
    newlines_ &= newlines_ - 1;
  }
  // Pointers, not views: copying a view that has just been put together stalls, once for every
  // line.
  const char* first = at_;
  at_ += length;
  raw_ = {first, length};
  const char* last = mayHoldNul_ ? first + strnlen(first, length) : at_;
  while (first != last && IsIniSpace(*first))
    ++first;
  while (first != last && IsIniSpace(last[-1]))
    --last;
  line = {first, static_cast<size_t>(last - first)};
  return true;
}

std::optional<std::string_view> FindIniValue(std::string_view text, std::string_view section,
                                             std::string_view key) {
  IniLines lines(text);
  if (!EnterSection(lines, section)) return std::nullopt;
  KeyMatcher matcher(key);
  std::string_view line;
  std::string_view name;
  while (lines.Next(line)) {
    if (IsComment(line)) continue;
    if (ParseIniHeader(line, name)) return std::nullopt;
    if (!matcher.Matches(line)) continue;
    // Kept: a line with the name alone ends the search, even when an entry follows.
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    return ValueAfter(line, equals);
  }
  return std::nullopt;
}

IniList ListIniKeys(std::string_view text, std::string_view section, char* buffer, size_t size) {
  NameList list(buffer, size);
  IniLines lines(text);
  const bool found = EnterSection(lines, section);
  std::string_view line;
  std::string_view name;
  std::string_view key;
  while (found && lines.Next(line)) {
    if (IsComment(line)) continue;
    if (ParseIniHeader(line, name)) break;
    // Kept: an empty line repeats the name before it, or gives an empty one. Hosts skip
    // repetitions.
    if (!line.empty()) key = KeyOf(line);
    if (!list.Add(key)) break;
  }
  return {found, list.Finish()};
}

IniList ListIniSections(std::string_view text, char* buffer, size_t size) {
  NameList list(buffer, size);
  IniLines lines(text);
  std::string_view line;
  std::string_view name;
  while (lines.Next(line)) {
    if (ParseIniHeader(line, name) && !list.Add(name)) break;
  }
  return {true, list.Finish()};
}

bool RewriteIni(std::string_view text, const IniChange& change, std::string& out) {
  Rewriter rewriter(change, out);
  IniLines lines(text);
  std::string_view line;
  while (lines.Next(line))
    rewriter.Take(line, lines.Raw());
  return rewriter.Finish();
}

}  // namespace Tarn::Core
