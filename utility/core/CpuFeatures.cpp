// Asks the processor once and remembers.
#include "utility/core/CpuFeatures.h"

#include <cpuid.h>

#include <atomic>

namespace Tarn::Core {
namespace {

constexpr unsigned kKnown = 1u << 31;  // set in every answer, so that 0 means "not asked yet"

std::atomic<unsigned> g_features{0};  // relaxed throughout: nothing else is published by it

bool HasSha() {
  unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
  return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & bit_SHA) != 0;
}

unsigned Detect() {
  unsigned found = kKnown;
  if (!__builtin_cpu_supports("sse4.1")) return found;
  if (HasSha()) found |= kCpuSha;
  if (__builtin_cpu_supports("aes") && __builtin_cpu_supports("avx")) found |= kCpuAes;
  if (!__builtin_cpu_supports("pclmul")) return found;
  found |= kCpuClmul;
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("vpclmulqdq")) {
    found |= kCpuWideClmul;
  }
  return found;
}

}  // namespace

bool CpuHas(CpuFeature feature) {
  unsigned features = g_features.load(std::memory_order_relaxed);
  if (features == 0) {
    features = Detect();
    g_features.store(features, std::memory_order_relaxed);
  }
  return (features & feature) != 0;
}

void LimitCpuFeatures(unsigned allowed) {
  g_features.store(Detect() & (allowed | kKnown), std::memory_order_relaxed);
}

}  // namespace Tarn::Core
