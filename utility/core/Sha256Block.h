// The SHA-256 compression function (FIPS 180-4).
#ifndef TARN_UTILITY_CORE_SHA256BLOCK_H
#define TARN_UTILITY_CORE_SHA256BLOCK_H

#include <cstddef>
#include <cstdint>

namespace Tarn::Core {

inline constexpr size_t kSha256BlockBytes = 64;

/// Takes `count` whole blocks into `state`, in the fastest form that CpuHas allows.
void Sha256Blocks(uint32_t (&state)[8], const unsigned char* blocks, size_t count);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_SHA256BLOCK_H
