// Finds all occurrences of one text in another, in time proportional to the text.
#include "utility/core/TextSearch.h"

#include <emmintrin.h>

#include <cstring>

namespace Tarn::Core {

namespace {

constexpr size_t kBlock = 16;  // bytes looked at together

// Up to this length comparing at every possible place costs less than a cleverer search, and the
// effort per place is bounded.
constexpr size_t kShort = 8;

// Bit i is set when byte i of the block is the wanted one.
unsigned Matches(const char* block, __m128i wanted) {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block));
  return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, wanted)));
}

std::vector<size_t> FindAllLong(std::string_view text, std::string_view sought) {
  std::vector<size_t> found;
  const char* from = text.data();
  const char* end = from + text.size();
  while (const void* at =
             memmem(from, static_cast<size_t>(end - from), sought.data(), sought.size())) {
    from = static_cast<const char*>(at);
    found.push_back(static_cast<size_t>(from - text.data()));
    from += sought.size();
  }
  return found;
}

std::vector<size_t> FindAllShort(std::string_view text, std::string_view sought) {
  std::vector<size_t> found;
  size_t from = 0;
  const size_t last = text.size() - sought.size();
  const auto check = [&](size_t at) {
    if (at < from || at > last) return;
    if (sought.size() > 1 && memcmp(text.data() + at, sought.data(), sought.size()) != 0) return;
    found.push_back(at);
    from = at + sought.size();
  };

  const __m128i first = _mm_set1_epi8(sought.front());
  size_t block = 0;
  for (; block + kBlock <= text.size(); block += kBlock) {
    for (unsigned mask = Matches(text.data() + block, first); mask != 0; mask &= mask - 1) {
      check(block + static_cast<size_t>(__builtin_ctz(mask)));
    }
  }
  for (; block <= last; ++block) {
    if (text[block] == sought.front()) check(block);
  }
  return found;
}

}  // namespace

std::vector<size_t> FindAll(std::string_view text, std::string_view sought) {
  if (sought.empty() || sought.size() > text.size()) return {};
  return sought.size() <= kShort ? FindAllShort(text, sought) : FindAllLong(text, sought);
}

}  // namespace Tarn::Core
