// SPDX-License-Identifier: MIT
#include "simd/level.h"

#if defined(CORVANE_HAS_SIMD)
#include <cpuid.h>
#endif

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace corvane {
namespace {

CpuLevel ChooseLevel() {
  const CpuLevel detected = DetectedCpuLevel();
  const char* wish = std::getenv("CORVANE_CPU");
  if (wish == nullptr) return detected;
  const CpuLevel* level = FindCpuLevel(wish);
  return level == nullptr ? detected : std::min(*level, detected);
}

#if defined(CORVANE_HAS_SIMD)
// Not every compiler knows this one by name.
bool HasLeadingZeroCount() {
  constexpr unsigned kExtendedFeatures = 0x80000001, kLzcntBit = 1u << 5;
  unsigned a = 0, b = 0, c = 0, d = 0;
  return __get_cpuid(kExtendedFeatures, &a, &b, &c, &d) != 0 && (c & kLzcntBit) != 0;
}
#endif

}  // namespace

const char* NameOf(CpuLevel level) {
  static constexpr const char* kNames[] = {"plain", "sse4", "avx2", "avx512", "avx512vbmi"};
  return kNames[static_cast<int>(level)];
}

const CpuLevel* FindCpuLevel(const char* name) {
  for (const CpuLevel& level : kCpuLevels) {
    if (std::strcmp(name, NameOf(level)) == 0) return &level;
  }
  return nullptr;
}

CpuLevel DetectedCpuLevel() {
#if defined(CORVANE_HAS_SIMD)
  __builtin_cpu_init();
  const bool sse4 = __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("sse4.1");
  const bool avx2 = sse4 && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                    __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("pclmul") &&
                    __builtin_cpu_supports("popcnt") && HasLeadingZeroCount();
  const bool avx512 = avx2 && __builtin_cpu_supports("avx512f") &&
                      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
                      __builtin_cpu_supports("avx512dq");
  if (avx512 && __builtin_cpu_supports("avx512vbmi")) return CpuLevel::Avx512Vbmi;
  if (avx512) return CpuLevel::Avx512;
  if (avx2) return CpuLevel::Avx2;
  if (sse4) return CpuLevel::Sse4;
#endif
  return CpuLevel::Plain;
}

CpuLevel SelectedCpuLevel() {
  static const CpuLevel level = ChooseLevel();
  return level;
}

}  // namespace corvane
