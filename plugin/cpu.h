// SPDX-License-Identifier: MIT
//
// Which instruction level the fast paths run on.
#pragma once

namespace corvane {

enum class CpuLevel { Plain, Sse4, Avx2, Avx512 };

inline constexpr CpuLevel kCpuLevels[] = {CpuLevel::Plain, CpuLevel::Sse4, CpuLevel::Avx2,
                                          CpuLevel::Avx512};

// "plain", "sse4", "avx2" or "avx512".
const char* NameOf(CpuLevel level);

// The highest level that the processor has and this build contains.
CpuLevel DetectedCpuLevel();

// The level in use: what the processor has, lowered by the environment variable CORVANE_CPU, which
// names a level. Chosen once, when the library is loaded. Anything else in the variable is ignored.
CpuLevel SelectedCpuLevel();

}  // namespace corvane
