// Which optional instructions the kernels may use.
#ifndef TARN_UTILITY_CORE_CPUFEATURES_H
#define TARN_UTILITY_CORE_CPUFEATURES_H

namespace Tarn::Core {

/// Groups of instructions, one bit per fast kernel form.
enum CpuFeature : unsigned {
  kCpuSha = 1u << 0,        ///< SHA-NI with SSE4.1
  kCpuClmul = 1u << 1,      ///< PCLMULQDQ with SSE4.1
  kCpuWideClmul = 1u << 2,  ///< VPCLMULQDQ on 512-bit registers
  kCpuAes = 1u << 3,        ///< AES-NI with AVX
};
inline constexpr unsigned kCpuAll = ~0u;

/// True when processor and platform offer the group and no test has withdrawn it. Asked at every
/// call of a kernel: it costs one load, and any thread may ask at any time, static constructors
/// included.
[[nodiscard]] bool CpuHas(CpuFeature feature);

/// For tests: allows only the groups in `allowed` from now on, so that every form of a kernel can
/// be run on one machine; kCpuAll undoes it.
void LimitCpuFeatures(unsigned allowed);

}  // namespace Tarn::Core

#endif  // TARN_UTILITY_CORE_CPUFEATURES_H
