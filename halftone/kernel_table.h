// SPDX-License-Identifier: MIT
//
// The halftone kernels as data. A kernel turns a row of contone ink planes into a row of binary
// planes by error diffusion; all of them run on one engine (halftone/engine.h), which knows an ink
// only by what this table says about it.
#pragma once

#include <array>
#include <cstdint>

#include "halftone/threshold_tables.h"
#include "printmode/print_mode.h"

namespace corvane {

// Inks that share a value shift and a coverage set.
enum class InkGroup : std::uint8_t {
  CMY,    // C, M, Y
  cmy,    // c, m, y
  Black,  // K, cd, md
};

// What happens to the error of an ink at a pixel where its level is 0, rounded toward zero.
enum class ZeroLevelDecay : std::uint8_t {
  Half,            // halved
  Keep31Of32,      // 31/32 of it stay
  HalfForCoupled,  // halved for coupled inks, 31/32 for the others (in the table only)
};

enum class Passes : std::uint8_t {
  Serpentine,       // odd rows forward, even rows backward; both when BothDirections is set
  FixedSerpentine,  // the same whatever BothDirections says
};

// Rules beyond independent inks, to be combined.
enum KernelRules : std::uint8_t {
  kIndependent = 0,
  kFolded = 1,         // light inks go into their dark ink before halftoning: (3 * C + c) / 4
  kCoupled = 2,        // c and m are halftoned as a pair, and cd and md where the kernel has them
  kBorrowedLines = 4,  // cd and md use the error lines and carried errors of c and m
  kUnsentBlack = 8,    // K is halftoned into a plane behind those that are sent
};

// The kernels. Output planes are in order; "-" is a plane that stays empty, and an ink named twice
// holds its number of drops, 0 to 2, in the two planes (the first is bit 0).
//
//      name, output planes,
//      sets of C-M-Y, c-m-y, K-cd-md, error at level 0, passes, rules
// clang-format off
#define CORVANE_HALFTONE_KERNELS(KERNEL)                                                     \
  KERNEL(K2QDSD_100, "K",                                                                    \
         None, None, Set100, Keep31Of32, Serpentine, kIndependent)                           \
  KERNEL(K2QDSD_25, "K",                                                                     \
         None, None, Set25, Half, Serpentine, kIndependent)                                  \
  KERNEL(K2QDSD_6_25, "K",                                                                   \
         None, None, Set6_25, Half, Serpentine, kIndependent)                                \
  KERNEL(CMY22QDSD_100, "C M Y",                                                             \
         Set100, None, None, Keep31Of32, FixedSerpentine, kFolded)                           \
  KERNEL(CMYK22QDSD_100_100, "C M Y K",                                                      \
         Set100, None, Set100, Keep31Of32, FixedSerpentine, kFolded)                         \
  KERNEL(CMYKcm22QDSD_100_100, "C M Y cd md K",                                              \
         Set100, None, Set100, Keep31Of32, FixedSerpentine, kFolded | kBorrowedLines)        \
  KERNEL(CcMmYy22QDSD_25_25, "C c M m Y y",                                                  \
         Set25, Set25, None, Keep31Of32, Serpentine, kIndependent)                           \
  KERNEL(CcMmYy22QDSD_50_50_1x2, "C c M m Y y",                                              \
         Set1x2, Set1x2, None, Keep31Of32, Serpentine, kIndependent)                         \
  KERNEL(CcMmYy32QDSD_100_100, "C - c - M - m - Y - y -",                                    \
         Set100, Set100, None, Keep31Of32, FixedSerpentine, kIndependent)                    \
  KERNEL(CcMmYy22QDSD_25_50_Coupled, "C c M m Y y",                                          \
         Set25, Set50, Set25, Half, Serpentine, kCoupled | kUnsentBlack)                     \
  KERNEL(CcMmYy22QDSD_12_5_25_Coupled, "C c M m Y y",                                        \
         Set12_5, Set25, Set12_5, Half, Serpentine, kCoupled | kUnsentBlack)                 \
  KERNEL(CcMmYyK22QDSD_50_50_100, "C c M m Y y K",                                           \
         Set50, Set50, Set100, Keep31Of32, Serpentine, kIndependent)                         \
  KERNEL(CcMmYyK22QDSD_25_25_50, "C c M m Y y K",                                            \
         Set25, Set25, Set50, Keep31Of32, Serpentine, kIndependent)                          \
  KERNEL(CcMmYyK22QDSD_25_25_25, "C c M m Y y K",                                            \
         Set25, Set25, Set25, Keep31Of32, Serpentine, kIndependent)                          \
  KERNEL(CcMmYyK22QDSD_50_50_50_1x2, "C c M m Y y K",                                        \
         Set1x2, Set1x2, Set1x2, Keep31Of32, Serpentine, kIndependent)                       \
  KERNEL(CcMmYyK32QDSD_100_100_100, "C - c - M - m - Y - y - K",                             \
         Set100, Set100, Set100, Keep31Of32, FixedSerpentine, kIndependent)                  \
  KERNEL(CcMmYyK22QDSD_25_50_25_Coupled, "C c M m Y y K",                                    \
         Set25, Set50, Set25, Half, Serpentine, kCoupled)                                    \
  KERNEL(CcMmYyK22QDSD_12_5_25_12_5_Coupled, "C c M m Y y K",                                \
         Set12_5, Set25, Set12_5, Half, Serpentine, kCoupled)                                \
  KERNEL(CcMmYyKcm22QDSD_25_25_50, "C c M m Y y cd md K",                                    \
         Set25, Set25, Set50, Keep31Of32, Serpentine, kIndependent)                          \
  KERNEL(CcMmYyKcm22QDSD_50_50_100_1x2, "C c M m Y y cd md K",                               \
         Set1x2, Set1x2, Set1x2K, Keep31Of32, Serpentine, kIndependent)                      \
  KERNEL(CcMmYyKcm22QDSD_25_50_100_Coupled, "C c M m Y y cd md K",                           \
         Set25, Set50, Set100, Half, Serpentine, kCoupled)                                   \
  KERNEL(CcMmYyKcm22QDSD_6_25_12_5_25_Coupled, "C c M m Y y cd md K",                        \
         Set6_25, Set12_5, Set25, HalfForCoupled, Serpentine, kCoupled)                      \
  KERNEL(CCccMMmmYYyyKKccmm33QDSD_100_100_200, "C - c - M - m - Y - y - cd cd md md K K",    \
         Set100, Set100, Set200, Keep31Of32, FixedSerpentine, kIndependent)                  \
  KERNEL(CcMmYyKKccmm23QDSD_50_50_200, "C c M m Y y cd cd md md K K",                        \
         Set50, Set50, Set200, Keep31Of32, FixedSerpentine, kIndependent)
// clang-format on

enum class KernelName : std::uint8_t {
#define CORVANE_KERNEL_NAME(name, ...) name,
  CORVANE_HALFTONE_KERNELS(CORVANE_KERNEL_NAME)
#undef CORVANE_KERNEL_NAME
};

inline constexpr std::uint8_t kNoPlane = 0xFF;
inline constexpr std::uint8_t kNoPartner = 0xFF;

// One ink as a kernel halftones it.
struct KernelInk {
  Ink ink;               // whose drops are counted
  Ink state;             // whose error line and carried error are used
  InkGroup group;        // which value shift applies
  CoverageSet set;       // thresholds and weights
  ZeroLevelDecay decay;  // Half or Keep31Of32
  std::uint8_t contonePlane;
  std::uint8_t foldedPlane;  // contone plane folded into it, or kNoPlane
  std::uint8_t outputPlane;  // first binary plane
  std::uint8_t partner;      // index in Kernel::inks of the ink it is coupled with, or kNoPartner
  bool twoDrop;              // up to two drops, counted in outputPlane and the plane behind it
};

struct Kernel {
  const char* name;
  std::array<KernelInk, kInkCount> inks;  // in the order of Ink
  std::uint8_t inkCount;
  std::uint8_t planeCount;  // binary planes that are cleared and sent
  bool fixedSerpentine;     // BothDirections does not apply
};

inline constexpr int kKernelCount = [] {
  int count = 0;
#define CORVANE_COUNT_KERNEL(...) ++count;
  CORVANE_HALFTONE_KERNELS(CORVANE_COUNT_KERNEL)
#undef CORVANE_COUNT_KERNEL
  return count;
}();

// All kernels, by KernelName.
extern const std::array<Kernel, kKernelCount> kKernels;

inline const Kernel& KernelOf(KernelName name) { return kKernels[static_cast<int>(name)]; }

}  // namespace corvane
