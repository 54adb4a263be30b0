// SPDX-License-Identifier: MIT
//
// Which instruction level the fast paths run on.
#pragma once

namespace corvane {

// Avx512Vbmi adds the byte permutes of two registers.
enum class CpuLevel { Plain, Sse4, Avx2, Avx512, Avx512Vbmi };

inline constexpr CpuLevel kCpuLevels[] = {CpuLevel::Plain, CpuLevel::Sse4, CpuLevel::Avx2,
                                          CpuLevel::Avx512, CpuLevel::Avx512Vbmi};

// "plain", "sse4", "avx2", "avx512" or "avx512vbmi".
const char* NameOf(CpuLevel level);

// The level of a name; null for any other text.
const CpuLevel* FindCpuLevel(const char* name);

// The highest level that the processor has and this build contains.
CpuLevel DetectedCpuLevel();

// The level in use: what the processor has, lowered by the environment variable CORVANE_CPU, which
// names a level. Chosen once, when it is first asked for: in the plug-in when the first colour
// element is made, or before that when the first page of another starts, so a host that sets the
// variable does so before it makes elements. Anything else in the variable is ignored.
CpuLevel SelectedCpuLevel();

}  // namespace corvane
