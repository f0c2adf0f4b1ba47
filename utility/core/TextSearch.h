// Finds all occurrences of one text in another, in time proportional to the text.
#ifndef TARN_UTILITY_CORE_TEXTSEARCH_H
#define TARN_UTILITY_CORE_TEXTSEARCH_H

#include <cstddef>
#include <string_view>
#include <vector>

namespace Tarn::Core {

/// Where `sought` begins in `text`, from the left, each behind the end of the one before. None when
/// `sought` is empty.
std::vector<size_t> FindAll(std::string_view text, std::string_view sought);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_TEXTSEARCH_H
