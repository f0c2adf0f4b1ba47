// The MD5 compression function (RFC 1321).
#ifndef TARN_UTILITY_CORE_MD5BLOCK_H
#define TARN_UTILITY_CORE_MD5BLOCK_H

#include <cstddef>
#include <cstdint>

namespace Tarn::Core {

inline constexpr size_t kMd5BlockBytes = 64;

/// Takes `count` whole blocks into `state`.
void Md5Blocks(uint32_t (&state)[4], const unsigned char* blocks, size_t count);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_MD5BLOCK_H
