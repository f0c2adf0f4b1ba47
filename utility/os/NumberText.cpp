// Numbers from text, free of the host's locale.
#include "utility/os/NumberText.h"

#include <locale.h>

#include <cstdint>
#include <cstdlib>

namespace Tarn::Os {

namespace {

// The platform hands out its built-in locale here: nothing is allocated, and it never fails.
locale_t PlainLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

}  // namespace

int IntFromText(const char* text) {
  return static_cast<int32_t>(strtol_l(text, nullptr, 10, PlainLocale()));
}

double DoubleFromText(const char* text) {
  return strtod_l(text, nullptr, PlainLocale());
}

}  // namespace Tarn::Os
