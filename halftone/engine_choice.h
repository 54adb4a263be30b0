// SPDX-License-Identifier: MIT
//
// Which fast engine serves which kernels on which instruction level, from what was measured.
#pragma once

#include <array>

#include "halftone/kernel_table.h"
#include "simd/level.h"

namespace corvane {

// Kernels that run alike.
enum class KernelFamily { OneInk, Several, Coupled, Nine, NineCoupled, TwoDrop };
inline constexpr int kKernelFamilies = 6;

inline KernelFamily FamilyOf(const Kernel& kernel) {
  bool coupled = false;
  bool nine = false;
  bool twoDrop = false;
  for (int i = 0; i < kernel.inkCount; ++i) {
    coupled |= kernel.inks[i].partner != kNoPartner;
    nine |= kernel.inks[i].ink == Ink::cd;
    twoDrop |= kernel.inks[i].twoDrop;
  }
  if (kernel.inkCount == 1) return KernelFamily::OneInk;
  if (twoDrop) return KernelFamily::TwoDrop;
  if (nine) return coupled ? KernelFamily::NineCoupled : KernelFamily::Nine;
  return coupled ? KernelFamily::Coupled : KernelFamily::Several;
}

enum class EngineKind {
  Lanes,   // an ink in each lane (engine_simd.cpp)
  Groups,  // groups of inks of several segments (engine_groups_simd.cpp)
};

// By level and family, as measured (docs/benchmarks.md): the groups, but where the lanes are
// faster.
inline constexpr std::array<std::array<EngineKind, kKernelFamilies>, 5> kFastEngines = [] {
  constexpr EngineKind L = EngineKind::Lanes;
  constexpr EngineKind G = EngineKind::Groups;
  return std::array<std::array<EngineKind, kKernelFamilies>, 5>{{
      // One ink, several, coupled, nine, nine coupled, two-drop
      {L, L, L, L, L, L},  // plain has neither
      {G, L, L, L, L, L},  // SSE4.1
      {G, G, G, G, L, L},  // AVX2
      {G, G, G, G, G, G},  // AVX-512
      {G, G, G, G, G, G},  // AVX-512 with byte permutes
  }};
}();

constexpr EngineKind EngineFor(CpuLevel level, KernelFamily family) {
  return kFastEngines[static_cast<std::size_t>(level)][static_cast<std::size_t>(family)];
}

}  // namespace corvane
