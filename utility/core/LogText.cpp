// The texts of log lines and log files: stamps, tags and names from a given broken-down time.
#include "utility/core/LogText.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace Tarn::Core {

namespace {

constexpr int kLowestLevel = -3;
constexpr std::string_view kTags[] = {" TRACEALL3 ", " TRACEALL2 ", " TRACEALL1 ",
                                      " TRACE ",     " DEBUG ",     " INFO ",
                                      " WARN ",      " ERROR ",     " FATAL "};

std::string_view LevelTag(int level) {
  // Counted without a sign, so that no level can fall outside the table's lower end either.
  const auto index = static_cast<unsigned>(level) - static_cast<unsigned>(kLowestLevel);
  return index < std::size(kTags) ? kTags[index] : std::string_view();
}

void Append(ShortText& text, std::string_view more) {
  std::copy(more.begin(), more.end(), text.bytes + text.length);
  text.length += more.size();
}

// Bounded although a real calendar never comes near: the parts are the caller's numbers.
void Finish(ShortText& text, int length) {
  text.length = std::min(static_cast<size_t>(std::max(length, 0)), sizeof(text.bytes) - 1);
}

}  // namespace

ShortText ClockPrefix(const std::tm& time, int millisecond) {
  ShortText text;
  Finish(text, snprintf(text.bytes, sizeof(text.bytes), "%.2d:%.2d:%.2d.%03d ", time.tm_hour,
                        time.tm_min, time.tm_sec, millisecond));
  return text;
}

ShortText DailyFileName(const std::tm& time) {
  ShortText text;
  Finish(text, snprintf(text.bytes, sizeof(text.bytes), "%.4d%.2d%.2d.log", time.tm_year + 1900,
                        time.tm_mon + 1, time.tm_mday));
  return text;
}

SecondStamp StampSecond(const std::tm& time) {
  SecondStamp stamp;
  ShortText& text = stamp.text;
  Finish(text, snprintf(text.bytes, sizeof(text.bytes), "%04d-%02d-%02d %02d-%02d-%02d",
                        time.tm_year + 1900, time.tm_mon + 1, time.tm_mday, time.tm_hour,
                        time.tm_min, time.tm_sec));
  stamp.dateLength = text.View().find(' ');
  return stamp;
}

ShortText LinePrefix(const SecondStamp& stamp, int millisecond, int level) {
  ShortText text;
  text.length = 0;
  Append(text, stamp.text.View());
  const char digits[] = {':', static_cast<char>('0' + millisecond / 100 % 10),
                         static_cast<char>('0' + millisecond / 10 % 10),
                         static_cast<char>('0' + millisecond % 10)};
  Append(text, {digits, sizeof(digits)});
  Append(text, LevelTag(level));
  return text;
}

std::string_view LevelWord(int level) {
  switch (level) {
    case 1:
      return "debug ";
    case 2:
      return "info ";
    case 3:
      return "warn ";
    case 4:
      return "error ";
    default:
      return " ";
  }
}

std::string DatedFilePath(std::string_view path, std::string_view date) {
  const size_t separator = path.find_last_of("/\\");
  const size_t dot = path.find_last_of('.');
  if (separator == std::string_view::npos || dot == std::string_view::npos || dot < separator) {
    return {};
  }
  const std::string_view base = path.substr(separator + 1, dot - separator - 1);
  std::string dated;
  dated.reserve(path.size() + 1 + date.size());
  dated.append(path.substr(0, separator)).append("/").append(base);
  dated.append("-").append(date).append(path.substr(dot));
  return dated;
}

std::string_view FolderPart(std::string_view path) {
  return path.substr(0, path.find_last_of("/\\"));
}

std::string PrintableText(std::string_view text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string shown;
  shown.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      shown.push_back(c);
    } else {
      shown.append("\\x").append(1, kDigits[byte >> 4]).append(1, kDigits[byte & 15]);
    }
  }
  return shown;
}

}  // namespace Tarn::Core
