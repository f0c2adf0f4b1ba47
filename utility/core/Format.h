// Bounded printf-style formatting: a buffer inside the object first, the heap only for long texts.
#ifndef TARN_UTILITY_CORE_FORMAT_H
#define TARN_UTILITY_CORE_FORMAT_H

#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace Tarn::Core {

/// prefix + formatted message + suffix, as one NUL-ended text.
///
/// The message is cut to `limit` characters and ends at its first NUL ("%c" with 0). A null format,
/// a format that the platform refuses, or memory that cannot be had for a long message count as
/// what could be formatted so far: an empty or a shortened message, never a failure.
class FormattedText {
 public:
  FormattedText(size_t limit, const char* format, va_list args)
      __attribute__((format(printf, 3, 0)))
      : FormattedText({}, {}, limit, format, args) {}
  FormattedText(std::string_view prefix, std::string_view suffix, size_t limit, const char* format,
                va_list args) __attribute__((format(printf, 5, 0)));
  FormattedText(const FormattedText&) = delete;
  FormattedText& operator=(const FormattedText&) = delete;

  [[nodiscard]] const char* Data() const { return data_; }
  [[nodiscard]] size_t Length() const { return length_; }
  [[nodiscard]] std::string_view View() const { return {data_, length_}; }

 private:
  struct Freer {
    void operator()(char* block) const { std::free(block); }
  };

  char inline_[2048];  // left as it is: zeroing it would cost more than the formatting
  std::unique_ptr<char, Freer> heap_;
  char* data_ = inline_;
  size_t length_ = 0;
};

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_FORMAT_H
