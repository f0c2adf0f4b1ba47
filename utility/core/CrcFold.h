// Cyclic redundancy checks over byte runs, reflected, without initial value and final exclusive-or.
#ifndef TARN_UTILITY_CORE_CRCFOLD_H
#define TARN_UTILITY_CORE_CRCFOLD_H

#include <cstddef>
#include <cstdint>

namespace Tarn::Core {

/// The register `crc` after `len` bytes, polynomial 0xEDB88320 (0x04C11DB7 reflected), in the
/// fastest form that CpuHas allows.
[[nodiscard]] uint32_t Crc32Register(uint32_t crc, const unsigned char* data, size_t len);

/// The same with 8 bits, polynomial 0x8C (0x31 reflected).
[[nodiscard]] uint8_t Crc8Register(uint8_t crc, const unsigned char* data, size_t len);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_CRCFOLD_H
