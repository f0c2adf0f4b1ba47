// The texts of log lines and log files: stamps, tags and names from a given broken-down time.
#ifndef TARN_UTILITY_CORE_LOGTEXT_H
#define TARN_UTILITY_CORE_LOGTEXT_H

#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

namespace Tarn::Core {

/// Longest message of a line, and the most that one batch can write to a file: 2 MiB less a NUL.
inline constexpr size_t kLogTextLimit = 2097151;

/// A short text held in place.
struct ShortText {
  char bytes[96];
  size_t length;
  [[nodiscard]] std::string_view View() const { return {bytes, length}; }
};

/// What a diagnostic line begins with: "07:08:09.123 ".
ShortText ClockPrefix(const std::tm& time, int millisecond);

/// The name of a day's trace file: "20240305.log".
ShortText DailyFileName(const std::tm& time);

/// The part of a line's stamp that stays the same for a second: "2024-03-05 07-08-09". It begins
/// with the date as it stands in file names.
struct SecondStamp {
  ShortText text;
  size_t dateLength;
  [[nodiscard]] std::string_view Date() const { return text.View().substr(0, dateLength); }
};
SecondStamp StampSecond(const std::tm& time);

/// What a leveled line begins with: "2024-03-05 07-08-09:123 INFO ". A level outside -3 to 5 has no
/// tag: the message follows the stamp directly.
ShortText LinePrefix(const SecondStamp& stamp, int millisecond, int level);

/// What a console line begins with: "info ", or a single blank for a level without a word.
std::string_view LevelWord(int level);

/// `path` with the date in its name: "dir/app.log" becomes "dir/app-2024-03-05.log". Empty when the
/// path has no separator ('/' or '\') or its name no '.'.
std::string DatedFilePath(std::string_view path, std::string_view date);

/// Everything before the last '/' or '\'; the whole path when it has neither.
std::string_view FolderPart(std::string_view path);

/// Text that came from a peer, safe to show in a line: bytes below 0x20 and 0x7F become \xNN (upper
/// case), so that nobody outside can forge lines or reach the terminal. All other bytes stay.
std::string PrintableText(std::string_view text);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_LOGTEXT_H
