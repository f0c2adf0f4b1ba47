// Character-set conversion. Opening a converter costs far more than converting a line, so one of
// each kind is kept open; a thread that finds it in use opens one for itself.
#include "utility/os/Charset.h"

#include <atomic>

#include "utility/os/Handle.h"

namespace Tarn::Os {

namespace {

// Never destroyed, so usable until the process ends.
struct Kept {
  std::atomic<bool> taken{false};
  iconv_t converter = nullptr;  // only for the one that has taken it; null until the first use
};
Kept keptGbkToUtf8;
Kept keptUtf8ToGbk;

// Null when the platform has no such converter.
iconv_t Open(Charset kind) {
  const iconv_t converter =
      kind == Charset::kGbkToUtf8 ? iconv_open("utf-8", "gbk") : iconv_open("gbk", "utf-8");
  return converter == IconvTraits::Empty() ? nullptr : converter;
}

Converted Run(iconv_t converter, std::string_view text, char* out, size_t room) {
  char* from = const_cast<char*>(text.data());  // iconv's type; the text is only read
  size_t fromLeft = text.size();
  size_t outLeft = room;
  if (iconv(converter, &from, &fromLeft, &out, &outLeft) == static_cast<size_t>(-1)) {
    // A character cut in the middle must not reach into the next caller's text.
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
  }
  return {text.size() - fromLeft, room - outLeft};
}

}  // namespace

bool ConvertCharset(Charset kind, std::string_view text, char* out, size_t room, Converted& done) {
  Kept& kept = kind == Charset::kGbkToUtf8 ? keptGbkToUtf8 : keptUtf8ToGbk;
  if (kept.taken.exchange(true, std::memory_order_acquire)) {
    const iconv_t own = Open(kind);
    if (own == nullptr) return false;
    const IconvHandle closer(own);
    done = Run(own, text, out, room);
    return true;
  }
  if (kept.converter == nullptr) kept.converter = Open(kind);
  const bool opened = kept.converter != nullptr;
  if (opened) done = Run(kept.converter, text, out, room);
  kept.taken.store(false, std::memory_order_release);
  return opened;
}

}  // namespace Tarn::Os
