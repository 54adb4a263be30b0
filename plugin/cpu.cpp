// SPDX-License-Identifier: MIT
#include "plugin/cpu.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace corvane {
namespace {

CpuLevel ChooseLevel() {
  const CpuLevel detected = DetectedCpuLevel();
  const char* wish = std::getenv("CORVANE_CPU");
  if (wish == nullptr) return detected;
  for (CpuLevel level : kCpuLevels) {
    if (std::strcmp(wish, NameOf(level)) == 0) return std::min(level, detected);
  }
  return detected;
}

}  // namespace

const char* NameOf(CpuLevel level) {
  static constexpr const char* kNames[] = {"plain", "sse4", "avx2", "avx512"};
  return kNames[static_cast<int>(level)];
}

CpuLevel DetectedCpuLevel() {
#if defined(CORVANE_HAS_SIMD)
  __builtin_cpu_init();
  const bool sse4 = __builtin_cpu_supports("ssse3") && __builtin_cpu_supports("sse4.1");
  const bool avx2 = sse4 && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                    __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("pclmul") &&
                    __builtin_cpu_supports("popcnt") && __builtin_cpu_supports("lzcnt");
  const bool avx512 = avx2 && __builtin_cpu_supports("avx512f") &&
                      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
                      __builtin_cpu_supports("avx512dq");
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
