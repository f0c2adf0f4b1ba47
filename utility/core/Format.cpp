// Bounded printf-style formatting: a buffer inside the object first, the heap only for long texts.
#include "utility/core/Format.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace Tarn::Core {

FormattedText::FormattedText(std::string_view prefix, std::string_view suffix, size_t limit,
                             const char* format, va_list args) {
  // Room for the message beside prefix, suffix and NUL; both texts around it are short by nature.
  prefix = prefix.substr(0, sizeof(inline_) / 4);
  suffix = suffix.substr(0, sizeof(inline_) / 4);
  const size_t around = prefix.size() + suffix.size() + 1;
  const size_t room = std::min(sizeof(inline_) - around, limit);

  char* message = inline_ + prefix.size();
  *message = '\0';
  if (format != nullptr) {
    va_list again;
    va_copy(again, args);
    const int result = vsnprintf(message, room + 1, format, args);
    // Only a text that was cut, and not by the limit, needs more.
    if (result > 0 && static_cast<size_t>(result) > room && room < limit) {
      const size_t wanted = std::min(static_cast<size_t>(result), limit);
      heap_.reset(static_cast<char*>(std::malloc(wanted + around)));
      if (heap_ != nullptr) {
        data_ = heap_.get();
        message = data_ + prefix.size();
        vsnprintf(message, wanted + 1, format, again);
      }
    }
    va_end(again);
  }

  // The message ends where it says so: not at the result, which is negative after a failure
  // half-way and counts what stands behind a NUL.
  if (!prefix.empty()) memcpy(data_, prefix.data(), prefix.size());
  length_ = prefix.size() + strlen(message);
  if (suffix.empty()) return;
  memcpy(data_ + length_, suffix.data(), suffix.size());
  length_ += suffix.size();
  data_[length_] = '\0';
}

}  // namespace Tarn::Core
